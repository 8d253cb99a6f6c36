// AES-GCM by the vector forms of the AES and carry-less multiplication instructions: four blocks to
// a register of 512 bits.
#include "base/CpuFeatures.h"
#include "base/crypto/Avx512_x86.h"
#include "base/crypto/GcmHash_x86.h"
#include "platform/SysWipe.h"

#define TV_TARGET                                                                    \
    __attribute__((                                                                  \
        target("avx512f,avx512bw,avx512vl,avx512dq,vaes,vpclmulqdq,aes,pclmul,avx2," \
               "ssse3")))
#define TV_INLINE TV_TARGET __attribute__((always_inline)) inline

namespace tv::crypto {
namespace {

constexpr size_t kLanes = 4;                 // blocks to a register
constexpr size_t kBatch = 4;                 // registers
constexpr size_t kBlocks = kLanes * kBatch;  // of a batch
constexpr size_t kKeyStride = 2 * kLanes;    // every round key stands four times

enum class Direction { Encrypt, Decrypt };

TV_INLINE __m512i load512(const void* p) {
    return _mm512_loadu_si512(p);
}

// For a value with several uses, which the compiler would rather load for each of them.
TV_INLINE __m512i loadOnce(const void* p) {
    __m512i v = load512(p);
    __asm__("" : "+v"(v));
    return v;
}

TV_INLINE __m512i turnBlocks(__m512i v) {
    return _mm512_shuffle_epi8(
        v, _mm512_broadcast_i32x4(_mm_set_epi32(0x00010203, 0x04050607, 0x08090a0b, 0x0c0d0e0f)));
}

struct Product {
    __m512i low, middle, high;
};

TV_INLINE __m512i xor3(__m512i a, __m512i b, __m512i c) {
    // 96 is the truth table of a ^ b ^ c.
    return _mm512_ternarylogic_epi64(a, b, c, 0x96);
}

TV_INLINE void addProduct(Product& sum, __m512i a, __m512i factors) {
    sum.low = _mm512_xor_si512(sum.low, _mm512_clmulepi64_epi128(a, factors, 0x00));
    sum.middle = xor3(sum.middle, _mm512_clmulepi64_epi128(a, factors, 0x01),
                      _mm512_clmulepi64_epi128(a, factors, 0x10));
    sum.high = _mm512_xor_si512(sum.high, _mm512_clmulepi64_epi128(a, factors, 0x11));
}

// The sum over the four lanes.
TV_INLINE __m128i foldLanes(__m512i v) {
    const __m256i two =
        _mm256_xor_si256(_mm512_castsi512_si256(v), _mm512_extracti64x4_epi64(v, 1));
    return _mm_xor_si128(_mm256_castsi256_si128(two), _mm256_extracti128_si256(two, 1));
}

TV_INLINE __m128i reduce(const Product& p) {
    return reduceGcm({foldLanes(p.low), foldLanes(p.middle), foldLanes(p.high)});
}

TV_INLINE __m128i hashBatch(const uint64_t* factors, __m128i y, const uint8_t* blocks) {
    Product sum = {_mm512_setzero_si512(), _mm512_setzero_si512(), _mm512_setzero_si512()};
#pragma GCC unroll 4
    for (size_t i = 0; i < kBatch; ++i) {
        __m512i text = turnBlocks(load512(blocks + 16 * kLanes * i));
        if (i == 0) text = _mm512_xor_si512(text, _mm512_zextsi128_si512(y));
        addProduct(sum, text, loadOnce(factors + 2 * kLanes * i));
    }
    return reduce(sum);
}

TV_INLINE void encryptRound(__m512i (&b)[kBatch], const uint64_t* roundKey) {
    const __m512i key = loadOnce(roundKey);
#pragma GCC unroll 4
    for (size_t i = 0; i < kBatch; ++i) {
        b[i] = _mm512_aesenc_epi128(b[i], key);
    }
}

TV_INLINE void cryptBatch(const AesKey& key, __m512i& counter, const uint8_t* in, uint8_t* out) {
    const uint64_t* roundKey = key.words.data();
    const __m512i step = _mm512_broadcast_i32x4(_mm_set_epi32(0, 0, 0, kLanes));
    const __m512i first = load512(roundKey);
    __m512i b[kBatch];
#pragma GCC unroll 4
    for (size_t i = 0; i < kBatch; ++i) {
        b[i] = _mm512_xor_si512(turnBlocks(counter), first);
        counter = _mm512_add_epi32(counter, step);
    }
// The rounds that every key size has; longer keys have two or four more.
#pragma GCC unroll 9
    for (size_t round = 1; round < 10; ++round) {
        encryptRound(b, roundKey += kKeyStride);
    }
    for (size_t round = 10; round < key.rounds; ++round) {
        encryptRound(b, roundKey += kKeyStride);
    }
    const __m512i last = load512(roundKey + kKeyStride);
#pragma GCC unroll 4
    for (size_t i = 0; i < kBatch; ++i) {
        const __m512i text = load512(in + 16 * kLanes * i);
        _mm512_storeu_si512(out + 16 * kLanes * i,
                            _mm512_xor_si512(_mm512_aesenclast_epi128(b[i], last), text));
    }
}

// Up to four blocks: the lanes beyond are masked.
template <Direction kDirection>
TV_INLINE __m128i cryptRest(const GcmKey& key, __m512i counter, __m128i y, const uint8_t* in,
                            uint8_t* out, size_t count) {
    const __mmask8 mask = static_cast<__mmask8>((1u << 2 * count) - 1);
    const uint64_t* roundKey = key.aes.words.data();
    __m512i b = _mm512_xor_si512(turnBlocks(counter), load512(roundKey));
    for (size_t round = 1; round < key.aes.rounds; ++round) {
        b = _mm512_aesenc_epi128(b, load512(roundKey += kKeyStride));
    }
    b = _mm512_aesenclast_epi128(b, load512(roundKey + kKeyStride));
    const __m512i text = _mm512_maskz_loadu_epi64(mask, in);
    const __m512i changed = _mm512_maskz_xor_epi64(mask, b, text);
    _mm512_mask_storeu_epi64(out, mask, changed);
    Product sum = {_mm512_setzero_si512(), _mm512_setzero_si512(), _mm512_setzero_si512()};
    const __m512i cipher = turnBlocks(kDirection == Direction::Encrypt ? changed : text);
    addProduct(sum, _mm512_xor_si512(cipher, _mm512_zextsi128_si512(y)),
               _mm512_maskz_loadu_epi64(mask, gcmFactors(key, count)));
    return reduce(sum);
}

template <Direction kDirection>
TV_TARGET void crypt(const GcmKey& key, GcmState& state, const uint8_t* in, uint8_t* out,
                     size_t count) {
    const __m128i start = turnBlock(load128(state.counter.data()));
    __m512i counter =
        _mm512_add_epi32(_mm512_broadcast_i32x4(start),
                         _mm512_set_epi32(0, 0, 0, 3, 0, 0, 0, 2, 0, 0, 0, 1, 0, 0, 0, 0));
    __m128i y = turnBlock(load128(state.sum.data()));
    const uint64_t* factors = gcmFactors(key, kBlocks);
    for (; count >= kBlocks; count -= kBlocks, in += 16 * kBlocks, out += 16 * kBlocks) {
        if (kDirection == Direction::Decrypt) y = hashBatch(factors, y, in);
        cryptBatch(key.aes, counter, in, out);
        if (kDirection == Direction::Encrypt) y = hashBatch(factors, y, out);
    }
    __m128i next = _mm512_castsi512_si128(counter);
    while (count != 0) {
        const size_t n = count < kLanes ? count : kLanes;
        y = cryptRest<kDirection>(key, counter, y, in, out, n);
        counter = _mm512_add_epi32(counter, _mm512_broadcast_i32x4(_mm_set_epi32(0, 0, 0, kLanes)));
        next = _mm_add_epi32(next, _mm_set_epi32(0, 0, 0, static_cast<int>(n)));
        in += 16 * n;
        out += 16 * n;
        count -= n;
    }
    store128(state.counter.data(), turnBlock(next));
    store128(state.sum.data(), turnBlock(y));
}

TV_TARGET void expand(GcmKey& out, std::span<const uint8_t> key) {
    AesKey narrow;
    kAesNi.expand(narrow, key);
    out.aes.rounds = narrow.rounds;
    for (size_t round = 0; round <= narrow.rounds; ++round) {
        _mm512_storeu_si512(out.aes.words.data() + kKeyStride * round,
                            _mm512_broadcast_i32x4(load128(narrow.words.data() + 2 * round)));
    }
    uint8_t zeros[16] = {};
    encryptGcmBlock(out.aes, kKeyStride, zeros, zeros);
    makeGcmFactors(out, zeros, kBlocks);
    plat::wipe(zeros, sizeof zeros);
    plat::wipe(&narrow, sizeof narrow);
}

void encryptBlock(const GcmKey& key, const uint8_t* in, uint8_t* out) {
    encryptGcmBlock(key.aes, kKeyStride, in, out);
}

}  // namespace

constinit const GcmForm kGcmVaes = {
    "vaes-avx512",
    cpuHas<&CpuFeatures::avx512, &CpuFeatures::vaes, &CpuFeatures::vpclmul, &CpuFeatures::aesNi,
           &CpuFeatures::pclmul, &CpuFeatures::ssse3>,
    expand,
    encryptBlock,
    hashGcmBlocks,
    crypt<Direction::Encrypt>,
    crypt<Direction::Decrypt>};

}  // namespace tv::crypto
