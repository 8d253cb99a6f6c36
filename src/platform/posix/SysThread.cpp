// The number of the running thread, from its POSIX handle.
#include "platform/SysThread.h"

#include <pthread.h>

namespace tv::plat {

uint64_t currentThread() {
    return static_cast<uint64_t>(pthread_self());
}

}  // namespace tv::plat
