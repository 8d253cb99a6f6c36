#include "platform/SysVersion.h"

namespace tv::plat {

SystemVersion systemVersion() {
    return {6, 1, 7601};
}

}  // namespace tv::plat
