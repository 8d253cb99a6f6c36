// explicit_bzero, which the compiler may not drop.
#include "platform/SysWipe.h"

#include <string.h>

namespace tv::plat {

void wipe(void* data, size_t size) noexcept {
    if (size != 0) {
        explicit_bzero(data, size);
    }
}

}  // namespace tv::plat
