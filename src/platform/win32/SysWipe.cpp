#include "platform/SysWipe.h"

#include <windows.h>

namespace tv::plat {

void wipe(void* data, size_t size) noexcept { SecureZeroMemory(data, size); }

}  // namespace tv::plat
