// The version named where there is no Windows.
#include "platform/SysVersion.h"

namespace tv::plat {

SystemVersion systemVersion() {
    return {6, 1, 7601};  // Windows 7 with its service pack
}

}  // namespace tv::plat
