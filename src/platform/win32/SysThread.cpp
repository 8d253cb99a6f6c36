// The number of the running thread. Not the C++ library's own: that would make a record for each
// thread of the host, which stays behind when the library is unloaded.
#include "platform/SysThread.h"

#include <windows.h>

namespace tv::plat {

uint64_t currentThread() {
    return GetCurrentThreadId();
}

}  // namespace tv::plat
