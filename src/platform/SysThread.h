// Which thread is running.
#pragma once

#include <cstdint>

namespace tv::plat {

// Never 0. A number may come back once its thread has ended.
uint64_t currentThread();

}  // namespace tv::plat
