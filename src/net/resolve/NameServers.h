// Which name servers to ask, and in which order.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "base/NameServer.h"
#include "log/LogBase.h"
#include "platform/IpAddress.h"

namespace tv {

struct NameServers {
    std::vector<plat::IpAddress> addresses;
    std::vector<std::string> suffixes;  // domains this host is in, lower case, without dots around
    bool hasOthers = false;             // servers are listed that cannot be asked by their address

    void add(std::string_view server);
    void addSuffix(std::string_view domain);
    // Names that only a server of the house knows: nobody else is to be told of them.
    bool isInside(std::string_view name) const;
};

// Reads lines in the form of resolv.conf. Pure.
void parseResolvConf(std::string_view text, NameServers& out);

// The list of the system. The log says why there is none.
NameServers systemNameServers(LogBase& log);

// Asked where the system lists none.
const std::vector<plat::IpAddress>& publicNameServers();

// Remembers servers that did not answer, by their text form.
class SilentServers {
public:
    void note(const NameServer& server, bool answered, uint64_t nowMs);
    // Those that failed recently come last; otherwise the order stays.
    void order(std::vector<NameServer>& servers, uint64_t nowMs) const;

private:
    bool isSilent(const NameServer& server, uint64_t nowMs) const;

    std::map<std::string, uint64_t> failedAtMs_;
};

}  // namespace tv
