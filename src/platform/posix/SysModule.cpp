// The dynamic loader's word, and the environment as far as it can be trusted.
#include "platform/SysModule.h"

#include <dlfcn.h>
#include <limits.h>
#include <stdlib.h>

namespace tv::plat {

std::string modulePath() {
    Dl_info info;
    if (dladdr(reinterpret_cast<void*>(&modulePath), &info) == 0 || !info.dli_fname) return {};
    // The loader keeps the name as it was asked for, which may start at a directory of the past;
    // links are followed, for the file lies beside the library itself.
    char path[PATH_MAX];
    return realpath(info.dli_fname, path) ? path : info.dli_fname;
}

std::string trustedVariable(const char* name) {
    const char* value = secure_getenv(name);
    return value ? value : "";
}

std::string machineSettingsPath() {
    return "/etc/emailsending.ini";
}

}  // namespace tv::plat
