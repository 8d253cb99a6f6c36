// The one object of the process, and the lock around each look into it.
#include "net/resolve/ResolverState.h"

#include "platform/Replaceable.h"
#include "platform/SysNameServers.h"

namespace tv {

bool ResolverState::findInHosts(const std::string& path, std::string_view name,
                                plat::AddressFamily family, std::vector<plat::IpAddress>& out) {
    const std::string systems = path.empty() ? plat::sysNameServers().hostsPath() : "";
    const std::lock_guard guard(lock_);
    return path.empty() ? hosts_.find(systems, name, family, out)
                        : namedHosts_.find(path, name, family, out);
}

bool ResolverState::findInCache(std::string_view name, uint64_t nowMs,
                                std::vector<plat::IpAddress>& out) const {
    const std::lock_guard guard(lock_);
    return cache_.find(name, nowMs, out);
}

void ResolverState::keep(std::string_view name, const dns::Reply& reply, uint64_t nowMs) {
    const std::lock_guard guard(lock_);
    cache_.put(name, reply.addresses, reply.ttlSeconds, nowMs);
}

void ResolverState::noteServer(const NameServer& server, bool answered, uint64_t nowMs) {
    const std::lock_guard guard(lock_);
    silent_.note(server, answered, nowMs);
}

void ResolverState::order(std::vector<NameServer>& servers, uint64_t nowMs) const {
    const std::lock_guard guard(lock_);
    silent_.order(servers, nowMs);
}

ResolverState& resolverState() {
    return plat::Replaceable<ResolverState>::get<ResolverState>();
}

ResolverState* replaceResolverState(ResolverState* state) {
    return plat::Replaceable<ResolverState>::replace(state);
}

}  // namespace tv
