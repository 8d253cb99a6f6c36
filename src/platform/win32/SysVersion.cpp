// The version as Windows tells it to the host: none newer than the host's manifest declares.
#include "platform/SysVersion.h"

#include <windows.h>

namespace tv::plat {

SystemVersion systemVersion() {
    OSVERSIONINFOA info{};
    info.dwOSVersionInfoSize = sizeof info;
    if (!GetVersionExA(&info)) return {6, 1, 7601};  // Windows 7 with its service pack
    return {static_cast<uint8_t>(info.dwMajorVersion), static_cast<uint8_t>(info.dwMinorVersion),
            static_cast<uint16_t>(info.dwBuildNumber)};
}

}  // namespace tv::plat
