// Choices and comparisons on secrets: no branch, index or early exit depends on them. A mask is a
// word of all ones (yes) or all zeros (no).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

namespace tv {

// The same value, which the compiler can no longer reason about: it would otherwise be free to turn
// mask arithmetic back into a branch.
template <class Word>
inline Word ctBarrier(Word value) {
    __asm__("" : "+r"(value));
    return value;
}

// Mask of the top bit.
template <class Word>
inline Word ctMaskOfTopBit(Word value) {
    static_assert(std::is_unsigned_v<Word> && sizeof(Word) >= 4);
    return ctBarrier(static_cast<Word>(Word{0} - (value >> (8 * sizeof(Word) - 1))));
}

template <class Word>
inline Word ctIsZero(Word value) {
    return ctMaskOfTopBit(static_cast<Word>(~value & (value - 1)));
}

template <class Word>
inline Word ctIsNonZero(Word value) {
    return static_cast<Word>(~ctIsZero(value));
}

template <class Word>
inline Word ctIsEqual(Word a, Word b) {
    return ctIsZero(static_cast<Word>(a ^ b));
}

// a < b, unsigned.
template <class Word>
inline Word ctIsLess(Word a, Word b) {
    return ctMaskOfTopBit(static_cast<Word>(a ^ ((a ^ b) | ((a - b) ^ b))));
}

// yes where the mask is set, else no.
template <class Word>
inline Word ctSelect(Word mask, Word yes, Word no) {
    return static_cast<Word>(no ^ (mask & (yes ^ no)));
}

// Mask: equal bytes. The sizes are public; different sizes are not equal.
inline uint32_t ctEqualMask(std::span<const uint8_t> a, std::span<const uint8_t> b) {
    if (a.size() != b.size()) return 0;
    uint32_t difference = 0;
    for (size_t i = 0; i < a.size(); ++i) {
        difference |= static_cast<uint32_t>(a[i] ^ b[i]);
    }
    return ctIsZero(ctBarrier(difference));
}

inline bool ctEqual(std::span<const uint8_t> a, std::span<const uint8_t> b) {
    return ctEqualMask(a, b) != 0;
}

}  // namespace tv
