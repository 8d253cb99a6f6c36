// Where POSIX systems keep what they were told about names.
#include "platform/SysNameServers.h"

#include <unistd.h>

#include "platform/Replaceable.h"

namespace tv::plat {
namespace {

class PosixNameServers final : public SysNameServers {
public:
    bool list(std::vector<std::string>&, std::string& domain, std::string&) override {
        // DNS knows no name of more than 255 bytes.
        char name[256] = {};
        if (gethostname(name, sizeof name - 1) != 0) return true;
        const std::string full = name;
        const size_t dot = full.find('.');
        domain = dot == std::string::npos ? "" : full.substr(dot + 1);
        return true;
    }
    std::string settingsPath() override { return "/etc/resolv.conf"; }
    std::string hostsPath() override { return "/etc/hosts"; }
};

}  // namespace

SysNameServers& sysNameServers() {
    return Replaceable<SysNameServers>::get<PosixNameServers>();
}

}  // namespace tv::plat
