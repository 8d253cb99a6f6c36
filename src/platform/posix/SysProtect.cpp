// POSIX systems keep no key for a machine; rights of files do the same there.
#include "platform/SysProtect.h"

namespace tv::plat {

bool protectForMachine(std::string_view, std::string&) {
    return false;
}

bool unprotectOfMachine(std::string_view, std::string&) {
    return false;
}

}  // namespace tv::plat
