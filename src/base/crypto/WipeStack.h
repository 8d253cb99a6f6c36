// Clears what computations with secrets leave on the stack: products, powers and digits that live
// in no object, and those that the compiler keeps there on its own.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/SysWipe.h"

namespace tv::crypto {

// To be called by the function that called the computation, after it returned: the size is that of
// the deepest stack the computation takes in any of its forms, with some room to spare.
template <size_t size>
__attribute__((noinline)) void wipeStack() {
    uint8_t below[size];
    plat::wipe(below, size);
}

}  // namespace tv::crypto
