// AES-GCM by the AES and carry-less multiplication instructions, several blocks side by side.
#include "base/CpuFeatures.h"
#include "base/crypto/Endian.h"
#include "base/crypto/GcmHash_x86.h"
#include "base/crypto/Ghash.h"
#include "platform/SysWipe.h"

namespace tv::crypto {

TV_CLMUL_TARGET void makeGcmFactors(GcmKey& key, const uint8_t* encryptedZeros, size_t count) {
    const GhashElement first = ghashFactor(loadGhash(encryptedZeros));
    uint64_t* at = key.hash.data() + 2 * (kGcmPowers - 1);
    at[0] = first.low;
    at[1] = first.high;
    const __m128i step = load128(at);
    __m128i power = step;
    for (size_t i = 1; i < count; ++i) {
        power = reduceGcm(multiplyGcm(power, step));
        store128(at -= 2, power);
    }
}

TV_CLMUL_TARGET void hashGcmBlocks(const GcmKey& key, uint8_t* sum, const uint8_t* blocks,
                                   size_t count) {
    const __m128i factor = load128(gcmFactors(key, 1));
    __m128i y = turnBlock(load128(sum));
    for (; count != 0; --count, blocks += 16) {
        y = reduceGcm(multiplyGcm(_mm_xor_si128(y, turnBlock(load128(blocks))), factor));
    }
    store128(sum, turnBlock(y));
}

TV_CLMUL_TARGET void encryptGcmBlock(const AesKey& key, size_t stride, const uint8_t* in,
                                     uint8_t* out) {
    const uint64_t* roundKey = key.words.data();
    __m128i block = _mm_xor_si128(load128(in), load128(roundKey));
    for (size_t round = 1; round < key.rounds; ++round) {
        block = _mm_aesenc_si128(block, load128(roundKey += stride));
    }
    store128(out, _mm_aesenclast_si128(block, load128(roundKey + stride)));
}

namespace {

// As many as the registers hold.
constexpr size_t kBatch = sizeof(void*) == 8 ? 8 : 4;
constexpr size_t kKeyStride = 2;

enum class Direction { Encrypt, Decrypt };

void expand(GcmKey& out, std::span<const uint8_t> key) {
    kAesNi.expand(out.aes, key);
    uint8_t zeros[16] = {};
    encryptGcmBlock(out.aes, kKeyStride, zeros, zeros);
    makeGcmFactors(out, zeros, kBatch);
    plat::wipe(zeros, sizeof zeros);
}

void encryptBlock(const GcmKey& key, const uint8_t* in, uint8_t* out) {
    encryptGcmBlock(key.aes, kKeyStride, in, out);
}

TV_CLMUL_INLINE __m128i hashBatch(const uint64_t* factors, __m128i y, const uint8_t* blocks,
                                  size_t count) {
    GcmProduct sum = multiplyGcm(_mm_xor_si128(y, turnBlock(load128(blocks))), load128(factors));
#pragma GCC unroll 8
    for (size_t i = 1; i < count; ++i) {
        addGcm(sum, multiplyGcm(turnBlock(load128(blocks + 16 * i)), load128(factors + 2 * i)));
    }
    return reduceGcm(sum);
}

TV_CLMUL_INLINE void cryptBatch(const AesKey& key, __m128i& counter, const uint8_t* in,
                                uint8_t* out, size_t count) {
    const uint64_t* roundKey = key.words.data();
    const __m128i one = _mm_set_epi32(0, 0, 0, 1);
    __m128i b[kBatch];
    const __m128i first = load128(roundKey);
#pragma GCC unroll 8
    for (size_t i = 0; i < count; ++i) {
        b[i] = _mm_xor_si128(turnBlock(counter), first);
        counter = _mm_add_epi32(counter, one);
    }
    for (size_t round = 1; round < key.rounds; ++round) {
        const __m128i k = load128(roundKey += kKeyStride);
#pragma GCC unroll 8
        for (size_t i = 0; i < count; ++i) {
            b[i] = _mm_aesenc_si128(b[i], k);
        }
    }
    const __m128i last = load128(roundKey + kKeyStride);
#pragma GCC unroll 8
    for (size_t i = 0; i < count; ++i) {
        store128(out + 16 * i,
                 _mm_xor_si128(_mm_aesenclast_si128(b[i], last), load128(in + 16 * i)));
    }
}

template <Direction kDirection>
TV_CLMUL_TARGET void crypt(const GcmKey& key, GcmState& state, const uint8_t* in, uint8_t* out,
                           size_t count) {
    __m128i counter = turnBlock(load128(state.counter.data()));
    __m128i y = turnBlock(load128(state.sum.data()));
    const uint64_t* factors = gcmFactors(key, kBatch);
    for (; count >= kBatch; count -= kBatch, in += 16 * kBatch, out += 16 * kBatch) {
        if (kDirection == Direction::Decrypt) y = hashBatch(factors, y, in, kBatch);
        cryptBatch(key.aes, counter, in, out, kBatch);
        if (kDirection == Direction::Encrypt) y = hashBatch(factors, y, out, kBatch);
    }
    factors = gcmFactors(key, 1);
    for (; count != 0; --count, in += 16, out += 16) {
        if (kDirection == Direction::Decrypt) y = hashBatch(factors, y, in, 1);
        cryptBatch(key.aes, counter, in, out, 1);
        if (kDirection == Direction::Encrypt) y = hashBatch(factors, y, out, 1);
    }
    store128(state.counter.data(), turnBlock(counter));
    store128(state.sum.data(), turnBlock(y));
}

}  // namespace

constinit const GcmForm kGcmAesNi = {
    "aes-ni",
    cpuHas<&CpuFeatures::aesNi, &CpuFeatures::pclmul, &CpuFeatures::ssse3>,
    expand,
    encryptBlock,
    hashGcmBlocks,
    crypt<Direction::Encrypt>,
    crypt<Direction::Decrypt>};

}  // namespace tv::crypto
