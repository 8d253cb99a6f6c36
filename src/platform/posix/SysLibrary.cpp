// Libraries by dlopen; symbols stay local, so that a library cannot change the host's.
#include "platform/SysLibrary.h"

#include <dlfcn.h>

namespace tv::plat {

bool SysLibrary::open(std::string_view utf8Path, std::string& error) {
    close();
    handle_ = dlopen(std::string(utf8Path).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle_) return true;
    const char* reason = dlerror();
    error = reason ? reason : "unknown reason";
    return false;
}

void SysLibrary::close() {
    if (handle_) dlclose(handle_);
    handle_ = nullptr;
}

SysLibrary::Function SysLibrary::function(const char* name) const {
    return handle_ ? reinterpret_cast<Function>(dlsym(handle_, name)) : nullptr;
}

}  // namespace tv::plat
