// The tables of the standard, the network made of them at compile time, and the key schedule.
#include "base/crypto/Des.h"

#include <bit>
#include <utility>

#include "base/crypto/Endian.h"

namespace tv::crypto {
namespace {

// The tables of FIPS 46-3. Bits are counted from 1, the highest first, as there.
constexpr uint8_t kPermutedChoice1[56] = {57, 49, 41, 33, 25, 17, 9,  1,  58, 50, 42, 34, 26, 18,
                                          10, 2,  59, 51, 43, 35, 27, 19, 11, 3,  60, 52, 44, 36,
                                          63, 55, 47, 39, 31, 23, 15, 7,  62, 54, 46, 38, 30, 22,
                                          14, 6,  61, 53, 45, 37, 29, 21, 13, 5,  28, 20, 12, 4};
constexpr uint8_t kPermutedChoice2[48] = {
    14, 17, 11, 24, 1,  5,  3,  28, 15, 6,  21, 10, 23, 19, 12, 4,  26, 8,  16, 7,  27, 20, 13, 2,
    41, 52, 31, 37, 47, 55, 30, 40, 51, 45, 33, 48, 44, 49, 39, 56, 34, 53, 46, 42, 50, 36, 29, 32};
constexpr uint8_t kRotations[16] = {1, 1, 2, 2, 2, 2, 2, 2, 1, 2, 2, 2, 2, 2, 2, 1};
constexpr uint8_t kP[32] = {16, 7, 20, 21, 29, 12, 28, 17, 1,  15, 23, 26, 5,  18, 31, 10,
                            2,  8, 24, 14, 32, 27, 3,  9,  19, 13, 30, 6,  22, 11, 4,  25};
constexpr uint8_t kSBoxes[8][4][16] = {{{14, 4, 13, 1, 2, 15, 11, 8, 3, 10, 6, 12, 5, 9, 0, 7},
                                        {0, 15, 7, 4, 14, 2, 13, 1, 10, 6, 12, 11, 9, 5, 3, 8},
                                        {4, 1, 14, 8, 13, 6, 2, 11, 15, 12, 9, 7, 3, 10, 5, 0},
                                        {15, 12, 8, 2, 4, 9, 1, 7, 5, 11, 3, 14, 10, 0, 6, 13}},
                                       {{15, 1, 8, 14, 6, 11, 3, 4, 9, 7, 2, 13, 12, 0, 5, 10},
                                        {3, 13, 4, 7, 15, 2, 8, 14, 12, 0, 1, 10, 6, 9, 11, 5},
                                        {0, 14, 7, 11, 10, 4, 13, 1, 5, 8, 12, 6, 9, 3, 2, 15},
                                        {13, 8, 10, 1, 3, 15, 4, 2, 11, 6, 7, 12, 0, 5, 14, 9}},
                                       {{10, 0, 9, 14, 6, 3, 15, 5, 1, 13, 12, 7, 11, 4, 2, 8},
                                        {13, 7, 0, 9, 3, 4, 6, 10, 2, 8, 5, 14, 12, 11, 15, 1},
                                        {13, 6, 4, 9, 8, 15, 3, 0, 11, 1, 2, 12, 5, 10, 14, 7},
                                        {1, 10, 13, 0, 6, 9, 8, 7, 4, 15, 14, 3, 11, 5, 2, 12}},
                                       {{7, 13, 14, 3, 0, 6, 9, 10, 1, 2, 8, 5, 11, 12, 4, 15},
                                        {13, 8, 11, 5, 6, 15, 0, 3, 4, 7, 2, 12, 1, 10, 14, 9},
                                        {10, 6, 9, 0, 12, 11, 7, 13, 15, 1, 3, 14, 5, 2, 8, 4},
                                        {3, 15, 0, 6, 10, 1, 13, 8, 9, 4, 5, 11, 12, 7, 2, 14}},
                                       {{2, 12, 4, 1, 7, 10, 11, 6, 8, 5, 3, 15, 13, 0, 14, 9},
                                        {14, 11, 2, 12, 4, 7, 13, 1, 5, 0, 15, 10, 3, 9, 8, 6},
                                        {4, 2, 1, 11, 10, 13, 7, 8, 15, 9, 12, 5, 6, 3, 0, 14},
                                        {11, 8, 12, 7, 1, 14, 2, 13, 6, 15, 0, 9, 10, 4, 5, 3}},
                                       {{12, 1, 10, 15, 9, 2, 6, 8, 0, 13, 3, 4, 14, 7, 5, 11},
                                        {10, 15, 4, 2, 7, 12, 9, 5, 6, 1, 13, 14, 0, 11, 3, 8},
                                        {9, 14, 15, 5, 2, 8, 12, 3, 7, 0, 4, 10, 1, 13, 11, 6},
                                        {4, 3, 2, 12, 9, 5, 15, 10, 11, 14, 1, 7, 6, 0, 8, 13}},
                                       {{4, 11, 2, 14, 15, 0, 8, 13, 3, 12, 9, 7, 5, 10, 6, 1},
                                        {13, 0, 11, 7, 4, 9, 1, 10, 14, 3, 5, 12, 2, 15, 8, 6},
                                        {1, 4, 11, 13, 12, 3, 7, 14, 10, 15, 6, 8, 0, 5, 9, 2},
                                        {6, 11, 13, 8, 1, 4, 10, 7, 9, 5, 0, 15, 14, 2, 3, 12}},
                                       {{13, 2, 8, 4, 6, 15, 11, 1, 10, 9, 3, 14, 5, 0, 12, 7},
                                        {1, 15, 13, 8, 10, 3, 7, 4, 12, 5, 6, 11, 0, 14, 9, 2},
                                        {7, 11, 4, 1, 9, 12, 14, 2, 0, 6, 10, 13, 15, 3, 5, 8},
                                        {2, 1, 14, 7, 4, 10, 8, 13, 15, 12, 9, 0, 3, 5, 6, 11}}};

// kOutputs[v]: what all eight S-boxes give for the 6-bit input v, S-box b in nibble b.
constexpr std::array<uint32_t, 64> makeOutputs() {
    std::array<uint32_t, 64> outputs{};
    for (size_t v = 0; v < 64; ++v) {
        const size_t row = (v >> 4 & 2) | (v & 1);
        for (size_t box = 0; box < 8; ++box) {
            outputs[v] |= uint32_t{kSBoxes[box][row][v >> 1 & 15]} << (28 - 4 * box);
        }
    }
    return outputs;
}
constexpr std::array<uint32_t, 64> kOutputs = makeOutputs();

// The output of the eight boxes as a tree of selections by the input bits, the last one at the
// leaves: the constants are fixed in the code, the path through the tree is all of them.
template <size_t kBits, size_t kPrefix>
inline uint32_t select(const uint32_t (&x)[6]) {
    if constexpr (kBits == 1) {
        constexpr uint32_t kNo = kOutputs[2 * kPrefix];
        constexpr uint32_t kYes = kOutputs[2 * kPrefix + 1];
        return kNo ^ (x[5] & (kNo ^ kYes));
    } else {
        const uint32_t no = select<kBits - 1, 2 * kPrefix>(x);
        const uint32_t yes = select<kBits - 1, 2 * kPrefix + 1>(x);
        return no ^ (x[6 - kBits] & (no ^ yes));
    }
}

// The bits that the permutation P moves right by kDistance, where they arrive.
constexpr uint32_t arrivals(size_t distance) {
    uint32_t mask = 0;
    for (size_t i = 0; i < 32; ++i) {
        if ((i + 33 - kP[i]) % 32 == distance) {
            mask |= 0x80000000u >> i;
        }
    }
    return mask;
}

template <size_t... kDistance>
inline uint32_t permuteByDistance(uint32_t v, std::index_sequence<kDistance...>) {
    return ((arrivals(kDistance) == 0 ? 0 : std::rotr(v, kDistance) & arrivals(kDistance)) | ...);
}

inline uint32_t round(uint32_t half, const std::array<uint32_t, 6>& key) {
    uint32_t x[6];
    for (int bit = 0; bit < 6; ++bit) {
        // Bit `bit` of the expansion E of nibble b is bit 4b+bit of the half (0 standing for 32).
        x[bit] = (std::rotr(half, 4 - bit) & 0x11111111) * 15 ^ key[static_cast<size_t>(bit)];
    }
    return permuteByDistance(select<6, 0>(x), std::make_index_sequence<32>());
}

inline void exchange(uint32_t& a, uint32_t& b, int shift, uint32_t mask) {
    const uint32_t t = ((a >> shift) ^ b) & mask;
    b ^= t;
    a ^= t << shift;
}

// IP as five exchanges of bits between the halves, and its inverse as the same ones backwards.
inline void initialPermutation(uint32_t& left, uint32_t& right) {
    exchange(left, right, 4, 0x0f0f0f0f);
    exchange(left, right, 16, 0x0000ffff);
    exchange(right, left, 2, 0x33333333);
    exchange(right, left, 8, 0x00ff00ff);
    exchange(left, right, 1, 0x55555555);
}

inline void finalPermutation(uint32_t& left, uint32_t& right) {
    exchange(left, right, 1, 0x55555555);
    exchange(right, left, 8, 0x00ff00ff);
    exchange(right, left, 2, 0x33333333);
    exchange(left, right, 16, 0x0000ffff);
    exchange(left, right, 4, 0x0f0f0f0f);
}

// Runs rounds(left, right) on each block between the two permutations.
template <class Rounds>
void forEachBlock(const uint8_t* in, uint8_t* out, size_t count, Rounds rounds) {
    for (; count != 0; --count, in += Des::kBlockSize, out += Des::kBlockSize) {
        uint32_t left = loadBe<uint32_t>(in);
        uint32_t right = loadBe<uint32_t>(in + 4);
        initialPermutation(left, right);
        rounds(left, right);
        finalPermutation(left, right);
        storeBe(out, left);
        storeBe(out + 4, right);
    }
}

}  // namespace

Des::Des(std::span<const uint8_t> key) {
    const uint64_t bits = loadBe<uint64_t>(key.data());
    // The halves C and D, each 28 bits, side by side.
    uint32_t halves[2] = {0, 0};
    for (size_t i = 0; i < 56; ++i) {
        const uint32_t bit = static_cast<uint32_t>(bits >> (64 - kPermutedChoice1[i]) & 1);
        halves[i / 28] |= bit << (27 - i % 28);
    }
    for (size_t r = 0; r < keys_.size(); ++r) {
        for (uint32_t& half : halves) {
            half = (half << kRotations[r] | half >> (28 - kRotations[r])) & 0x0fffffff;
        }
        keys_[r] = {};
        for (size_t i = 0; i < 48; ++i) {
            const size_t from = kPermutedChoice2[i] - 1u;
            const uint32_t bit = halves[from / 28] >> (27 - from % 28) & 1;
            keys_[r][i % 6] |= bit * 15 << (28 - 4 * (i / 6));
        }
    }
    plat::wipe(halves, sizeof halves);
}

Des::~Des() {
    plat::wipe(&keys_, sizeof keys_);
}

void Des::encryptRounds(uint32_t& left, uint32_t& right) const {
    for (size_t r = 0; r < 16; r += 2) {
        left ^= round(right, keys_[r]);
        right ^= round(left, keys_[r + 1]);
    }
    std::swap(left, right);
}

void Des::decryptRounds(uint32_t& left, uint32_t& right) const {
    for (size_t r = 16; r > 0; r -= 2) {
        left ^= round(right, keys_[r - 1]);
        right ^= round(left, keys_[r - 2]);
    }
    std::swap(left, right);
}

void Des::encryptBlocks(const uint8_t* in, uint8_t* out, size_t count) const {
    forEachBlock(in, out, count, [this](uint32_t& l, uint32_t& r) { encryptRounds(l, r); });
}

void Des::decryptBlocks(const uint8_t* in, uint8_t* out, size_t count) const {
    forEachBlock(in, out, count, [this](uint32_t& l, uint32_t& r) { decryptRounds(l, r); });
}

void TripleDes::encryptBlocks(const uint8_t* in, uint8_t* out, size_t count) const {
    forEachBlock(in, out, count, [this](uint32_t& l, uint32_t& r) {
        first_.encryptRounds(l, r);
        second_.decryptRounds(l, r);
        third_.encryptRounds(l, r);
    });
}

void TripleDes::decryptBlocks(const uint8_t* in, uint8_t* out, size_t count) const {
    forEachBlock(in, out, count, [this](uint32_t& l, uint32_t& r) {
        third_.decryptRounds(l, r);
        second_.encryptRounds(l, r);
        first_.decryptRounds(l, r);
    });
}

}  // namespace tv::crypto
