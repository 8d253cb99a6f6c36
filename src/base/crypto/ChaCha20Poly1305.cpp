// The construction of RFC 8439 2.8 over any form, and the portable key stream. The forms for vector
// units stand in files of their own.
#include "base/crypto/ChaCha20Poly1305.h"

#include <algorithm>
#include <bit>

#include "base/ConstTime.h"
#include "base/crypto/Endian.h"
#include "platform/SysWipe.h"

namespace tv::crypto {
namespace {

constexpr size_t kBlockSize = 64;
// The text is encrypted and summed in pieces that stay in the cache in between; a TLS record is
// one.
constexpr size_t kPiece = 320 * kBlockSize;

inline void quarterRound(ChaChaState& s, size_t a, size_t b, size_t c, size_t d) {
    s[a] += s[b], s[d] = std::rotl(s[d] ^ s[a], 16);  // RFC 8439 2.1
    s[c] += s[d], s[b] = std::rotl(s[b] ^ s[c], 12);
    s[a] += s[b], s[d] = std::rotl(s[d] ^ s[a], 8);
    s[c] += s[d], s[b] = std::rotl(s[b] ^ s[c], 7);
}

void apply(ChaChaState& state, const uint8_t* in, uint8_t* out, size_t count) {
    ChaChaState s;
    for (; count != 0; --count, in += kBlockSize, out += kBlockSize) {
        s = state;
        // Ten times a round of columns and one of diagonals (RFC 8439 2.3).
        for (int i = 0; i < 10; ++i) {
            quarterRound(s, 0, 4, 8, 12);
            quarterRound(s, 1, 5, 9, 13);
            quarterRound(s, 2, 6, 10, 14);
            quarterRound(s, 3, 7, 11, 15);
            quarterRound(s, 0, 5, 10, 15);
            quarterRound(s, 1, 6, 11, 12);
            quarterRound(s, 2, 7, 8, 13);
            quarterRound(s, 3, 4, 9, 14);
        }
        for (size_t i = 0; i < s.size(); ++i) {
            storeLe(out + 4 * i, loadLe<uint32_t>(in + 4 * i) ^ (s[i] + state[i]));
        }
        ++state[12];  // the block counter
    }
    plat::wipe(&s, sizeof s);
}

}  // namespace

constinit const ChaChaForm kChaChaPortable = {"portable", alwaysUsable, apply, absorbPoly1305};

namespace {
constexpr const ChaChaForm* kForms[] = {&kChaChaAvx512, &kChaChaAvx2, &kChaChaPortable};
}
constinit Dispatch<ChaChaForm> chaChaForms{kForms};

ChaCha20Poly1305::ChaCha20Poly1305(std::span<const uint8_t> key) : form_(&chaChaForms.get()) {
    for (size_t i = 0; i < key_.size(); ++i) {
        key_[i] = loadLe<uint32_t>(key.data() + 4 * i);
    }
}

ChaCha20Poly1305::~ChaCha20Poly1305() {
    plat::wipe(&key_, sizeof key_);
}

void ChaCha20Poly1305::start(ChaChaState& state, Poly1305State& sum,
                             std::span<const uint8_t> nonce) const {
    state = {0x61707865, 0x3320646e, 0x79622d32, 0x6b206574};  // "expand 32-byte k"
    std::copy(key_.begin(), key_.end(), state.begin() + 4);
    for (size_t i = 0; i < 3; ++i) {
        state[13 + i] = loadLe<uint32_t>(nonce.data() + 4 * i);
    }
    // Block 0 of the key stream is the key of the sum (RFC 8439 2.6), the text begins at block 1.
    uint8_t block[kBlockSize] = {};
    form_->apply(state, block, block, 1);
    startPoly1305(sum, block);
    plat::wipe(block, sizeof block);
}

void ChaCha20Poly1305::absorbPadded(Poly1305State& sum, std::span<const uint8_t> data) const {
    const size_t whole = data.size() / 16;
    form_->absorb(sum, data.data(), whole);
    if (const auto rest = data.subspan(16 * whole); !rest.empty()) {
        uint8_t block[16] = {};
        std::copy(rest.begin(), rest.end(), block);
        form_->absorb(sum, block, 1);
    }
}

void ChaCha20Poly1305::crypt(Direction direction, std::span<const uint8_t> nonce,
                             std::span<const uint8_t> additional, std::span<const uint8_t> in,
                             uint8_t* out, uint8_t* tag) const {
    ChaChaState state;
    Poly1305State sum;
    start(state, sum, nonce);
    absorbPadded(sum, additional);
    uint8_t lengths[16];
    storeLe(lengths, uint64_t{additional.size()});
    storeLe(lengths + 8, uint64_t{in.size()});

    while (!in.empty()) {
        const auto piece = in.first(std::min(in.size(), kPiece));
        if (direction == Direction::Decrypt) absorbPadded(sum, piece);
        const size_t whole = piece.size() / kBlockSize;
        form_->apply(state, piece.data(), out, whole);
        if (const auto rest = piece.subspan(whole * kBlockSize); !rest.empty()) {
            uint8_t block[kBlockSize] = {};
            std::copy(rest.begin(), rest.end(), block);
            form_->apply(state, block, block, 1);
            std::copy_n(block, rest.size(), out + whole * kBlockSize);
            plat::wipe(block, sizeof block);
        }
        if (direction == Direction::Encrypt) absorbPadded(sum, {out, piece.size()});
        in = in.subspan(piece.size());
        out += piece.size();
    }
    form_->absorb(sum, lengths, 1);
    finishPoly1305(sum, tag);
    plat::wipe(&state, sizeof state);
}

void ChaCha20Poly1305::seal(std::span<const uint8_t> nonce, std::span<const uint8_t> additional,
                            std::span<const uint8_t> plain, uint8_t* out,
                            std::span<uint8_t, kTagSize> tag) const {
    crypt(Direction::Encrypt, nonce, additional, plain, out, tag.data());
}

bool ChaCha20Poly1305::open(std::span<const uint8_t> nonce, std::span<const uint8_t> additional,
                            std::span<const uint8_t> cipher, std::span<const uint8_t, kTagSize> tag,
                            uint8_t* out) const {
    std::array<uint8_t, kTagSize> expected;
    if (nonce.size() == kNonceSize) {
        crypt(Direction::Decrypt, nonce, additional, cipher, out, expected.data());
        if (ctEqual(expected, tag)) return true;
    }
    plat::wipe(out, cipher.size());
    return false;
}

}  // namespace tv::crypto
