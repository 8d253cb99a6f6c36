// The hash of GCM in portable form: carry-less products by integer multiplication, with holes of
// three bits between the bits so that carries never reach a neighbour. The multiplication of 32-bit
// numbers takes the same time for all operands on the processors we run on.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tv::crypto {

// A field element: the 16 bytes as one big-endian number.
struct GhashElement {
    uint64_t high;
    uint64_t low;
};

GhashElement loadGhash(const uint8_t* p);
void storeGhash(uint8_t* p, GhashElement v);

// The factor for ghashMultiply out of an element: multiplied by x^-1, which saves a shift later.
GhashElement ghashFactor(GhashElement v);
GhashElement ghashMultiply(GhashElement a, GhashElement factor);

}  // namespace tv::crypto
