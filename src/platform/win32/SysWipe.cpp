// A memset behind which the compiler has to see a reader.
#include "platform/SysWipe.h"

#include <cstring>

namespace tv::plat {

void wipe(void* data, size_t size) noexcept {
    if (size == 0) return;
    std::memset(data, 0, size);
    // Here the compiler has to assume a reader. (SecureZeroMemory of this tool chain does too, but
    // clears byte by byte.)
    __asm__ __volatile__("" : : "r"(data) : "memory");
}

}  // namespace tv::plat
