// The base64 encoders for the vector units of x86.
#include "base/Base64.h"

#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

#include "base/CpuFeatures.h"

namespace tv {

namespace {

#define TV_SSSE3 __attribute__((target("ssse3")))
#define TV_AVX2 __attribute__((target("avx2")))
#define TV_VBMI __attribute__((target("avx512f,avx512bw,avx512vl,avx512dq,avx512vbmi")))

// What no vector covers is left to the portable form.
void encodeRest(const uint8_t* in, size_t groups, char* out) {
    kBase64Portable.encodeGroups(in, groups, out);
}

void endLine(char* out) {
    out[kBase64LineChars] = '\r';
    out[kBase64LineChars + 1] = '\n';
}

// The places of four groups of three bytes, counted from first: b a c b in each 32-bit lane.
TV_SSSE3 inline __m128i spreadFrom(char first) {
    const __m128i spread = _mm_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10);
    return _mm_add_epi8(spread, _mm_set1_epi8(first));
}

// From lanes "b a c b" to one 6-bit value in each byte: each pair is moved by a multiplication that
// stands for a shift of its own.
TV_SSSE3 inline __m128i sixBits(__m128i lanes) {
    const __m128i ac = _mm_mulhi_epu16(_mm_and_si128(lanes, _mm_set1_epi32(0x0FC0FC00)),
                                       _mm_set1_epi32(0x04000040));
    const __m128i bd = _mm_mullo_epi16(_mm_and_si128(lanes, _mm_set1_epi32(0x003F03F0)),
                                       _mm_set1_epi32(0x01000010));
    return _mm_or_si128(ac, bd);
}

// 6-bit values to characters: the distance between value and character is looked up by range
// (0: 26 to 51, 1 to 10: 52 to 61, 11: 62, 12: 63, 13: 0 to 25).
TV_SSSE3 inline __m128i letters(__m128i values) {
    const __m128i distances =
        _mm_setr_epi8('a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                      '0' - 52, '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0);
    const __m128i upper = _mm_cmpgt_epi8(_mm_set1_epi8(26), values);
    const __m128i range = _mm_or_si128(_mm_subs_epu8(values, _mm_set1_epi8(51)),
                                       _mm_and_si128(upper, _mm_set1_epi8(13)));
    return _mm_add_epi8(values, _mm_shuffle_epi8(distances, range));
}

// 12 of the 16 bytes at in, chosen by spread, to 16 characters.
TV_SSSE3 inline void encode12(const uint8_t* in, __m128i spread, char* out) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
    const __m128i text = letters(sixBits(_mm_shuffle_epi8(bytes, spread)));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), text);
}

TV_SSSE3 void encodeGroupsSsse3(const uint8_t* in, size_t groups, char* out) {
    const __m128i spread = spreadFrom(0);
    // Four groups are 12 bytes, but 16 are read: two groups behind them keep that within the input.
    for (; groups >= 6; groups -= 4, in += 12, out += 16) {
        encode12(in, spread, out);
    }
    encodeRest(in, groups, out);
}

TV_SSSE3 void encodeLinesSsse3(const uint8_t* in, size_t count, char* out) {
    const __m128i spread = spreadFrom(0);
    const __m128i spreadLate = spreadFrom(4);
    for (; count != 0; --count, in += kBase64LineBytes, out += kBase64LineWithBreak) {
        encode12(in, spread, out);
        encode12(in + 12, spread, out + 16);
        encode12(in + 24, spread, out + 32);
        encode12(in + 36, spread, out + 48);
        // The last 12 bytes begin at 45: they overlap what is done, and end with the line.
        encode12(in + 41, spreadLate, out + 60);
        endLine(out);
    }
}

// The two above again for twice the width: nothing in them has a name that serves both.
TV_AVX2 inline __m256i sixBits(__m256i lanes) {
    const __m256i ac = _mm256_mulhi_epu16(_mm256_and_si256(lanes, _mm256_set1_epi32(0x0FC0FC00)),
                                          _mm256_set1_epi32(0x04000040));
    const __m256i bd = _mm256_mullo_epi16(_mm256_and_si256(lanes, _mm256_set1_epi32(0x003F03F0)),
                                          _mm256_set1_epi32(0x01000010));
    return _mm256_or_si256(ac, bd);
}

TV_AVX2 inline __m256i letters(__m256i values) {
    const __m256i distances = _mm256_broadcastsi128_si256(
        _mm_setr_epi8('a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                      '0' - 52, '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0));
    const __m256i upper = _mm256_cmpgt_epi8(_mm256_set1_epi8(26), values);
    const __m256i range = _mm256_or_si256(_mm256_subs_epu8(values, _mm256_set1_epi8(51)),
                                          _mm256_and_si256(upper, _mm256_set1_epi8(13)));
    return _mm256_add_epi8(values, _mm256_shuffle_epi8(distances, range));
}

// 12 bytes out of each of two blocks of 16, chosen by spread, to 32 characters.
TV_AVX2 inline void encode24(const uint8_t* low, const uint8_t* high, __m256i spread, char* out) {
    const __m256i bytes = _mm256_inserti128_si256(
        _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(low))),
        _mm_loadu_si128(reinterpret_cast<const __m128i*>(high)), 1);
    const __m256i text = letters(sixBits(_mm256_shuffle_epi8(bytes, spread)));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), text);
}

TV_AVX2 inline __m256i spreadFrom(char low, char high) {
    const __m256i spread = _mm256_broadcastsi128_si256(
        _mm_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10));
    const __m256i first =
        _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_set1_epi8(low)), _mm_set1_epi8(high), 1);
    return _mm256_add_epi8(spread, first);
}

TV_AVX2 void encodeGroupsAvx2(const uint8_t* in, size_t groups, char* out) {
    const __m256i spread = spreadFrom(0, 0);
    // Eight groups are taken and 28 bytes read, the last 16 from the twelfth on: hence ten.
    for (; groups >= 10; groups -= 8, in += 24, out += 32) {
        encode24(in, in + 12, spread, out);
    }
    encodeRest(in, groups, out);
}

TV_AVX2 void encodeLinesAvx2(const uint8_t* in, size_t count, char* out) {
    const __m256i spread = spreadFrom(0, 0);
    const __m256i spreadLate = spreadFrom(0, 4);
    for (; count != 0; --count, in += kBase64LineBytes, out += kBase64LineWithBreak) {
        encode24(in, in + 12, spread, out);
        encode24(in + 24, in + 36, spread, out + 32);
        // The last 24 bytes begin at 33: they overlap what is done, and end with the line.
        encode24(in + 33, in + 41, spreadLate, out + 44);
        endLine(out);
    }
}

// The alphabet as it stands, looked up by the low six bits of each byte.
alignas(64) constexpr char kLetters[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

struct SpreadTable {
    uint8_t places[64];
    constexpr SpreadTable() : places() {
        for (size_t i = 0; i < 16; ++i) {
            places[4 * i] = static_cast<uint8_t>(3 * i + 1);
            places[4 * i + 1] = static_cast<uint8_t>(3 * i);
            places[4 * i + 2] = static_cast<uint8_t>(3 * i + 2);
            places[4 * i + 3] = static_cast<uint8_t>(3 * i + 1);
        }
    }
};
alignas(64) constexpr SpreadTable kSpread512;

// 48 bytes to 64 characters. The masks take everything: the unmasked intrinsics of GCC 12 warn of
// their own undefined operand.
TV_VBMI inline void encode48(const uint8_t* in, __m512i spread, __m512i alphabet, char* out) {
    constexpr __mmask64 kAll = ~__mmask64{0};
    constexpr __mmask64 kFirst48 = kAll >> 16;
    // In each half of a lane "b a c b b a c b": from which bit on the eight values begin.
    const __m512i shifts = _mm512_set1_epi64(0x3036242A1016040A);
    const __m512i bytes = _mm512_maskz_loadu_epi8(kFirst48, in);
    const __m512i lanes = _mm512_maskz_permutexvar_epi8(kAll, spread, bytes);
    const __m512i values = _mm512_maskz_multishift_epi64_epi8(kAll, shifts, lanes);
    _mm512_storeu_si512(out, _mm512_maskz_permutexvar_epi8(kAll, values, alphabet));
}

TV_VBMI void encodeGroupsVbmi(const uint8_t* in, size_t groups, char* out) {
    const __m512i spread = _mm512_load_si512(kSpread512.places);
    const __m512i alphabet = _mm512_load_si512(kLetters);
    for (; groups >= 16; groups -= 16, in += 48, out += 64) {
        encode48(in, spread, alphabet, out);
    }
    encodeRest(in, groups, out);
}

TV_VBMI void encodeLinesVbmi(const uint8_t* in, size_t count, char* out) {
    const __m512i spread = _mm512_load_si512(kSpread512.places);
    const __m512i alphabet = _mm512_load_si512(kLetters);
    for (; count != 0; --count, in += kBase64LineBytes, out += kBase64LineWithBreak) {
        encode48(in, spread, alphabet, out);
        // The last 48 bytes begin at 9: they overlap what is done, and end with the line.
        encode48(in + 9, spread, alphabet, out + 12);
        endLine(out);
    }
}

}  // namespace

constinit const Base64Form kBase64Ssse3 = {"ssse3", cpuHas<&CpuFeatures::ssse3>, encodeLinesSsse3,
                                           encodeGroupsSsse3};

constinit const Base64Form kBase64Avx2 = {"avx2", cpuHas<&CpuFeatures::avx2>, encodeLinesAvx2,
                                          encodeGroupsAvx2};

constinit const Base64Form kBase64Avx512 = {"avx512-vbmi", cpuHas<&CpuFeatures::avx512Vbmi>,
                                            encodeLinesVbmi, encodeGroupsVbmi};

}  // namespace tv

#endif
