// The dynamic loader's word, and the environment as far as it can be trusted.
#include "platform/SysModule.h"

#include <limits.h>
#include <link.h>
#include <stdlib.h>

namespace tv::plat {

namespace {

// For dl_iterate_phdr, which every glibc has under one version (dladdr moved with 2.34): stops at
// the module that holds this function and leaves the loader's name of it.
int findOurs(dl_phdr_info* module, size_t, void* found) {
    const auto code = reinterpret_cast<uintptr_t>(&findOurs);
    for (size_t i = 0; i < module->dlpi_phnum; ++i) {
        const auto& part = module->dlpi_phdr[i];
        if (part.p_type == PT_LOAD && code - module->dlpi_addr - part.p_vaddr < part.p_memsz) {
            *static_cast<const char**>(found) = module->dlpi_name;
            return 1;
        }
    }
    return 0;
}

}  // namespace

std::string modulePath() {
    const char* name = nullptr;
    if (dl_iterate_phdr(findOurs, &name) == 0 || !name) return {};
    if (*name == '\0') name = "/proc/self/exe";  // the program itself
    // The loader keeps the name as it was asked for, which may start at a directory of the past;
    // links are followed, for the file lies beside the library itself.
    char path[PATH_MAX];
    return realpath(name, path) ? path : name;
}

std::string trustedVariable(const char* name) {
    const char* value = secure_getenv(name);
    return value ? value : "";
}

std::string machineSettingsPath() {
    return "/etc/emailsending.ini";
}

}  // namespace tv::plat
