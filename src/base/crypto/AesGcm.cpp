// The mode around the block cipher and the hash: nonce, lengths, the last part of a block, the tag.
// The portable form of the bulk work and the choice among the forms stand here too.
#include "base/crypto/AesGcm.h"

#include <algorithm>
#include <utility>

#include "base/ConstTime.h"
#include "base/crypto/Endian.h"
#include "base/crypto/Ghash.h"
#include "platform/SysWipe.h"

namespace tv::crypto {
namespace {

void expand(GcmKey& out, std::span<const uint8_t> key) {
    kAesPortable.expand(out.aes, key);
    uint8_t block[16] = {};
    kAesPortable.encrypt(out.aes, block, block, 1);
    const GhashElement factor = ghashFactor(loadGhash(block));
    out.hash[0] = factor.high;
    out.hash[1] = factor.low;
    plat::wipe(block, sizeof block);
}

void encryptBlock(const GcmKey& key, const uint8_t* in, uint8_t* out) {
    kAesPortable.encrypt(key.aes, in, out, 1);
}

void hash(const GcmKey& key, uint8_t* sum, const uint8_t* blocks, size_t count) {
    const GhashElement factor = {key.hash[0], key.hash[1]};
    GhashElement y = loadGhash(sum);
    for (; count != 0; --count, blocks += 16) {
        const GhashElement block = loadGhash(blocks);
        y = ghashMultiply({y.high ^ block.high, y.low ^ block.low}, factor);
    }
    storeGhash(sum, y);
}

// Whole blocks through the cipher in counter mode.
void applyKeyStream(const GcmKey& key, GcmState& state, const uint8_t* in, uint8_t* out,
                    size_t count) {
    constexpr size_t kBatch = 4;  // what the bit slices take at once
    uint8_t stream[16 * kBatch];
    // The last four bytes count (SP 800-38D 6.2).
    uint32_t counter = loadBe<uint32_t>(state.counter.data() + 12);
    while (count != 0) {
        const size_t n = std::min(count, kBatch);
        for (size_t i = 0; i < n; ++i) {
            std::copy_n(state.counter.data(), 12, stream + 16 * i);
            storeBe(stream + 16 * i + 12, counter++);
        }
        kAesPortable.encrypt(key.aes, stream, stream, n);
        for (size_t i = 0; i < 16 * n; ++i) {
            out[i] = in[i] ^ stream[i];
        }
        in += 16 * n;
        out += 16 * n;
        count -= n;
    }
    storeBe(state.counter.data() + 12, counter);
    plat::wipe(stream, sizeof stream);
}

void encrypt(const GcmKey& key, GcmState& state, const uint8_t* in, uint8_t* out, size_t count) {
    applyKeyStream(key, state, in, out, count);
    hash(key, state.sum.data(), out, count);
}

void decrypt(const GcmKey& key, GcmState& state, const uint8_t* in, uint8_t* out, size_t count) {
    hash(key, state.sum.data(), in, count);
    applyKeyStream(key, state, in, out, count);
}

}  // namespace

constinit const GcmForm kGcmPortable = {"portable", alwaysUsable, expand, encryptBlock,
                                        hash,       encrypt,      decrypt};

namespace {
constexpr const GcmForm* kForms[] = {&kGcmVaes, &kGcmAesNi, &kGcmPortable};
}
constinit Dispatch<GcmForm> gcmForms{kForms};

AesGcm::~AesGcm() {
    plat::wipe(&key_, sizeof key_);
}

void AesGcm::hashPadded(GcmState& state, std::span<const uint8_t> data) const {
    const size_t whole = data.size() / 16;
    form_->hash(key_, state.sum.data(), data.data(), whole);
    if (const auto rest = data.subspan(16 * whole); !rest.empty()) {
        uint8_t block[16] = {};
        std::copy(rest.begin(), rest.end(), block);
        form_->hash(key_, state.sum.data(), block, 1);
    }
}

void AesGcm::start(GcmState& state, std::span<const uint8_t> nonce) const {
    state.sum = {};
    state.counter = {};
    if (nonce.size() == kNonceSize) {
        std::copy(nonce.begin(), nonce.end(), state.counter.begin());
        state.counter[15] = 1;  // SP 800-38D 7.1, step 2
        return;
    }
    // SP 800-38D 7.1, step 2: any other nonce is hashed, followed by its length.
    uint8_t lengths[16] = {};
    storeBe(lengths + 8, uint64_t{nonce.size()} * 8);
    hashPadded(state, nonce);
    form_->hash(key_, state.sum.data(), lengths, 1);
    state.counter = std::exchange(state.sum, {});
}

void AesGcm::cryptTail(GcmState& state, Direction direction, std::span<const uint8_t> in,
                       uint8_t* out) const {
    if (in.empty()) return;
    uint8_t stream[16];
    form_->encryptBlock(key_, state.counter.data(), stream);
    uint8_t block[16] = {};  // the cipher text, padded with zeros
    for (size_t i = 0; i < in.size(); ++i) {
        const uint8_t changed = in[i] ^ stream[i];
        block[i] = direction == Direction::Encrypt ? changed : in[i];
        out[i] = changed;
    }
    form_->hash(key_, state.sum.data(), block, 1);
    plat::wipe(stream, sizeof stream);
}

void AesGcm::crypt(Direction direction, std::span<const uint8_t> nonce,
                   std::span<const uint8_t> additional, std::span<const uint8_t> in, uint8_t* out,
                   uint8_t* tag) const {
    GcmState state;
    start(state, nonce);
    uint8_t mask[kTagSize];
    form_->encryptBlock(key_, state.counter.data(), mask);
    uint8_t* const count = state.counter.data() + 12;
    // The first counter block masks the tag, the text begins with the next (SP 800-38D 7.1).
    storeBe(count, loadBe<uint32_t>(count) + 1);
    hashPadded(state, additional);

    const size_t whole = in.size() / 16;
    const auto bulk = direction == Direction::Encrypt ? form_->encrypt : form_->decrypt;
    bulk(key_, state, in.data(), out, whole);
    cryptTail(state, direction, in.subspan(16 * whole), out + 16 * whole);

    uint8_t lengths[16];
    storeBe(lengths, uint64_t{additional.size()} * 8);
    storeBe(lengths + 8, uint64_t{in.size()} * 8);
    form_->hash(key_, state.sum.data(), lengths, 1);
    for (size_t i = 0; i < kTagSize; ++i) {
        tag[i] = state.sum[i] ^ mask[i];
    }
    plat::wipe(mask, sizeof mask);
}

void AesGcm::seal(std::span<const uint8_t> nonce, std::span<const uint8_t> additional,
                  std::span<const uint8_t> plain, uint8_t* out,
                  std::span<uint8_t, kTagSize> tag) const {
    crypt(Direction::Encrypt, nonce, additional, plain, out, tag.data());
}

bool AesGcm::open(std::span<const uint8_t> nonce, std::span<const uint8_t> additional,
                  std::span<const uint8_t> cipher, std::span<const uint8_t, kTagSize> tag,
                  uint8_t* out) const {
    std::array<uint8_t, kTagSize> expected;
    if (!nonce.empty()) {
        crypt(Direction::Decrypt, nonce, additional, cipher, out, expected.data());
        if (ctEqual(expected, tag)) return true;
    }
    plat::wipe(out, cipher.size());
    return false;
}

}  // namespace tv::crypto
