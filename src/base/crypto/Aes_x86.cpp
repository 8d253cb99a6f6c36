// AES by the processor's AES instructions.
#include <immintrin.h>

#include "base/CpuFeatures.h"
#include "base/crypto/Aes.h"
#include "base/crypto/AesRound_x86.h"
#include "platform/SysWipe.h"

namespace tv::crypto {

TV_AES_TARGET uint32_t subWordAesNi(uint32_t word) {
    // The first lane of the answer is the S-box of the second lane of the question.
    const __m128i v = _mm_set_epi32(0, 0, static_cast<int>(word), 0);
    return static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_aeskeygenassist_si128(v, 0)));
}

namespace {

constexpr size_t kBatch = sizeof(void*) == 8 ? 8 : 4;  // as many as the registers hold
// The decryption keys follow the encryption keys, in the order of their use.
constexpr size_t kDecryptionKeys = 2 * (kMaxAesRounds + 1);

TV_AES_TARGET void expand(AesKey& out, std::span<const uint8_t> key) {
    std::array<uint32_t, 4 * (kMaxAesRounds + 1)> words{};
    out.rounds = expandAesKey(key, subWordAesNi, words);
    for (size_t round = 0; round <= out.rounds; ++round) {
        const __m128i v = load128(words.data() + 4 * round);
        const bool inner = round != 0 && round != out.rounds;
        store128(out.words.data() + 2 * round, v);
        store128(out.words.data() + kDecryptionKeys + 2 * (out.rounds - round),
                 inner ? _mm_aesimc_si128(v) : v);
    }
    plat::wipe(words.data(), sizeof words);
}

template <bool kEncrypt, size_t kCount>
TV_AES_INLINE void cryptBatch(const uint64_t* keys, size_t rounds, const uint8_t* in,
                              uint8_t* out) {
    __m128i b[kCount];
    const __m128i first = load128(keys);
#pragma GCC unroll 8
    for (size_t i = 0; i < kCount; ++i) {
        b[i] = _mm_xor_si128(load128(in + 16 * i), first);
    }
    for (size_t round = 1; round < rounds; ++round) {
        const __m128i key = load128(keys + 2 * round);
#pragma GCC unroll 8
        for (size_t i = 0; i < kCount; ++i) {
            b[i] = kEncrypt ? _mm_aesenc_si128(b[i], key) : _mm_aesdec_si128(b[i], key);
        }
    }
    const __m128i last = load128(keys + 2 * rounds);
#pragma GCC unroll 8
    for (size_t i = 0; i < kCount; ++i) {
        b[i] = kEncrypt ? _mm_aesenclast_si128(b[i], last) : _mm_aesdeclast_si128(b[i], last);
        store128(out + 16 * i, b[i]);
    }
}

template <bool kEncrypt>
TV_AES_TARGET void crypt(const AesKey& key, const uint8_t* in, uint8_t* out, size_t count) {
    const uint64_t* keys = key.words.data() + (kEncrypt ? 0 : kDecryptionKeys);
    for (; count >= kBatch; count -= kBatch, in += 16 * kBatch, out += 16 * kBatch) {
        cryptBatch<kEncrypt, kBatch>(keys, key.rounds, in, out);
    }
    for (; count != 0; --count, in += 16, out += 16) {
        cryptBatch<kEncrypt, 1>(keys, key.rounds, in, out);
    }
}

}  // namespace

constinit const AesForm kAesNi = {"aes-ni", cpuHas<&CpuFeatures::aesNi, &CpuFeatures::sse2>, expand,
                                  crypt<true>, crypt<false>};

}  // namespace tv::crypto
