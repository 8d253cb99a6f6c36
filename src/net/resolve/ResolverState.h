// What the process remembers of name resolution: addresses, the hosts file, silent servers. One
// object behind one lock, which is never held while the network is waited for.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "net/dns/DnsCache.h"
#include "net/dns/DnsMessage.h"
#include "net/resolve/HostsFile.h"
#include "net/resolve/NameServers.h"

namespace tv {

class ResolverState {
public:
    // Set before the first look-up.
    bool requireTls = false;                      // DNS over TLS only
    std::vector<plat::IpAddress> ownNameServers;  // in place of the system's

    bool findInHosts(std::string_view name, std::vector<plat::IpAddress>& out);
    bool findInCache(std::string_view name, uint64_t nowMs,
                     std::vector<plat::IpAddress>& out) const;
    void keep(std::string_view name, const dns::Reply& reply, uint64_t nowMs);
    void noteServer(const plat::IpAddress& server, bool answered, uint64_t nowMs);
    void order(std::vector<plat::IpAddress>& servers, uint64_t nowMs) const;

private:
    mutable std::mutex lock_;
    dns::DnsCache cache_;
    HostsFile hosts_;
    SilentServers silent_;
};

ResolverState& resolverState();

// For tests: puts another in place (nullptr: the process's own) and returns the one before.
ResolverState* replaceResolverState(ResolverState* state);

}  // namespace tv
