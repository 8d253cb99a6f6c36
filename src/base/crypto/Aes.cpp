// The portable form of AES, four blocks at a time on bit slices, the key schedule that all forms
// share, and the choice among them.
#include "base/crypto/Aes.h"

#include <algorithm>
#include <bit>

#include "base/crypto/AesSlices.h"
#include "base/crypto/Endian.h"
#include "platform/SysWipe.h"

namespace tv::crypto {
namespace {

constexpr size_t kBatch = 4;  // blocks side by side in the slices

uint32_t subWordSliced(uint32_t word) {
    uint8_t blocks[16 * kBatch] = {};
    storeLe(blocks, word);
    AesSlices s = sliceBlocks(blocks);
    subBytes(s);
    unsliceBlocks(s, blocks);
    const uint32_t out = loadLe<uint32_t>(blocks);
    plat::wipe(blocks, sizeof blocks);
    return out;
}

void expand(AesKey& out, std::span<const uint8_t> key) {
    std::array<uint32_t, 4 * (kMaxAesRounds + 1)> words;
    out.rounds = expandAesKey(key, subWordSliced, words);
    uint8_t blocks[16 * kBatch];
    for (size_t round = 0; round <= out.rounds; ++round) {
        for (size_t i = 0; i < 4 * kBatch; ++i) {
            storeLe(blocks + 4 * i, words[4 * round + i % 4]);
        }
        const AesSlices s = sliceBlocks(blocks);
        std::copy(s.planes, s.planes + 8,
                  out.words.begin() + static_cast<std::ptrdiff_t>(8 * round));
    }
    plat::wipe(words.data(), sizeof words);
    plat::wipe(blocks, sizeof blocks);
}

void encryptSlices(const AesKey& key, AesSlices& s) {
    const uint64_t* roundKey = key.words.data();
    addRoundKey(s, roundKey);
    for (size_t round = 1; round < key.rounds; ++round) {
        subBytes(s);
        shiftRows(s);
        mixColumns(s);
        addRoundKey(s, roundKey += 8);
    }
    subBytes(s);
    shiftRows(s);
    addRoundKey(s, roundKey + 8);
}

void decryptSlices(const AesKey& key, AesSlices& s) {
    const uint64_t* roundKey = key.words.data() + 8 * key.rounds;
    addRoundKey(s, roundKey);
    for (size_t round = 1; round < key.rounds; ++round) {
        invShiftRows(s);
        invSubBytes(s);
        addRoundKey(s, roundKey -= 8);
        invMixColumns(s);
    }
    invShiftRows(s);
    invSubBytes(s);
    addRoundKey(s, roundKey - 8);
}

template <void (*kCrypt)(const AesKey&, AesSlices&)>
void forEachBatch(const AesKey& key, const uint8_t* in, uint8_t* out, size_t count) {
    uint8_t blocks[16 * kBatch] = {};
    while (count != 0) {
        const size_t n = std::min(count, kBatch);
        std::copy_n(in, 16 * n, blocks);
        AesSlices s = sliceBlocks(blocks);
        kCrypt(key, s);
        unsliceBlocks(s, blocks);
        std::copy_n(blocks, 16 * n, out);
        in += 16 * n;
        out += 16 * n;
        count -= n;
    }
    plat::wipe(blocks, sizeof blocks);
}

}  // namespace

constinit const AesForm kAesPortable = {"portable", alwaysUsable, expand,
                                        forEachBatch<encryptSlices>, forEachBatch<decryptSlices>};

namespace {
constexpr const AesForm* kForms[] = {&kAesNi, &kAesPortable};
}
constinit Dispatch<AesForm> aesForms{kForms};

Aes::~Aes() {
    plat::wipe(&key_, sizeof key_);
}

size_t expandAesKey(std::span<const uint8_t> key, uint32_t (*subWord)(uint32_t),
                    std::span<uint32_t, 4 * (kMaxAesRounds + 1)> out) {
    const size_t keyWords = key.size() / 4;
    const size_t rounds = keyWords + 6;
    for (size_t i = 0; i < keyWords; ++i) {
        out[i] = loadLe<uint32_t>(key.data() + 4 * i);
    }
    uint32_t constant = 1;
    for (size_t i = keyWords; i < 4 * (rounds + 1); ++i) {
        uint32_t word = out[i - 1];
        // A key has 4, 6 or 8 words. NOLINTNEXTLINE(clang-analyzer-core.DivideZero)
        if (i % keyWords == 0) {
            word = subWord(std::rotr(word, 8)) ^ constant;
            // Rcon, the powers of x (FIPS 197 5.2): 1b stands for x^8 once the byte is full.
            constant = constant < 0x80 ? constant << 1 : 0x1b;
        } else if (keyWords == 8 && i % 8 == 4) {
            word = subWord(word);
        }
        out[i] = out[i - keyWords] ^ word;
    }
    return rounds;
}

}  // namespace tv::crypto
