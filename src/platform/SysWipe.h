// Clears memory that held a secret, in a way the compiler may not leave out.
#pragma once

#include <cstddef>

namespace tv::plat {

void wipe(void* data, size_t size) noexcept;

}  // namespace tv::plat
