// Computer name and locale of a POSIX system.
#include "platform/SysHost.h"

#include <stdlib.h>
#include <unistd.h>

#include "platform/Replaceable.h"
#include "platform/SysFile.h"

namespace tv::plat {
namespace {

std::string hostName() {
    // HOST_NAME_MAX is 64 on Linux, and DNS knows no name of more than 255 bytes.
    char name[256] = {};
    return gethostname(name, sizeof name - 1) == 0 ? name : "";
}

std::string readComputerName() {
    const std::string full = hostName();
    return full.substr(0, full.find('.'));
}

std::string readDnsName() {
    constexpr size_t kMostHosts = size_t{1} << 20;
    std::string hosts;
    readFileStart("/etc/hosts", kMostHosts, hosts);
    return nameInDns(hostName(), hosts);
}

class PosixHost final : public SysHost {
public:
    std::string computerName() override {
        static const std::string& name = *new std::string(readComputerName());
        return name;
    }

    std::string dnsName() override {
        static const std::string& name = *new std::string(readDnsName());
        return name;
    }

    uint32_t ansiCodePage() override {
        for (const char* variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
            const char* value = getenv(variable);
            if (value && *value) return codePageOfLocale(value);
        }
        return codePageOfLocale("");
    }

    uint32_t oemCodePage() override { return ansiCodePage(); }
    uint32_t textFileCodePage() override { return 0; }
};

}  // namespace

SysHost& sysHost() {
    return Replaceable<SysHost>::get<PosixHost>();
}

}  // namespace tv::plat
