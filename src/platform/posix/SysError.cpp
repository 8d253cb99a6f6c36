// errno in words.
#include "platform/SysError.h"

#include <errno.h>
#include <string.h>

namespace tv::plat {

std::string lastErrorWords() {
    return strerror(errno);
}

}  // namespace tv::plat
