// What the system was told about names: which servers to ask, where its hosts file lies.
#pragma once

#include <string>
#include <vector>

#include "platform/Replaceable.h"

namespace tv::plat {

class SysNameServers {
public:
    virtual ~SysNameServers() = default;
    // Windows: the addresses of GetNetworkParams, as text, and the domain this host is in; on
    // failure error holds the reason. POSIX: no servers, see settingsPath; the domain of the host
    // name.
    virtual bool list(std::vector<std::string>& servers, std::string& domain,
                      std::string& error) = 0;
    // A file that lists servers in the form of resolv.conf; empty where the system has none.
    virtual std::string settingsPath() = 0;
    virtual std::string hostsPath() = 0;
};

SysNameServers& sysNameServers();

// For tests: as replaceSysClock.
inline SysNameServers* replaceSysNameServers(SysNameServers* source) {
    return Replaceable<SysNameServers>::replace(source);
}

}  // namespace tv::plat
