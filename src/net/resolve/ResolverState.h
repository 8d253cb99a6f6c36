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
    // path: the file to look into; empty: the system's.
    bool findInHosts(const std::string& path, std::string_view name, plat::AddressFamily family,
                     std::vector<plat::IpAddress>& out);
    // name: with all that must be the same for the answer to serve.
    bool findInCache(std::string_view name, uint64_t nowMs,
                     std::vector<plat::IpAddress>& out) const;
    void keep(std::string_view name, const dns::Reply& reply, uint64_t nowMs);
    void noteServer(const NameServer& server, bool answered, uint64_t nowMs);
    void order(std::vector<NameServer>& servers, uint64_t nowMs) const;

private:
    mutable std::mutex lock_;
    dns::DnsCache cache_;
    HostsFile hosts_;       // the system's
    HostsFile namedHosts_;  // of settings, the last one asked for
    SilentServers silent_;
};

ResolverState& resolverState();

// For tests: puts another in place (nullptr: the process's own) and returns the one before.
ResolverState* replaceResolverState(ResolverState* state);

}  // namespace tv
