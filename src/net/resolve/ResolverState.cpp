// The one object of the process, and the lock around each look into it.
#include "net/resolve/ResolverState.h"

#include "platform/Replaceable.h"
#include "platform/SysNameServers.h"

namespace tv {

bool ResolverState::isUsable() const {
    const std::lock_guard guard(lock_);
    return !finalised_;
}

bool ResolverState::findInHosts(std::string_view name, std::vector<plat::IpAddress>& out) {
    const std::string path = plat::sysNameServers().hostsPath();
    const std::lock_guard guard(lock_);
    return !finalised_ && hosts_.find(path, name, out);
}

bool ResolverState::findInCache(std::string_view name, uint64_t nowMs,
                                std::vector<plat::IpAddress>& out) const {
    const std::lock_guard guard(lock_);
    return cache_.find(name, nowMs, out);
}

void ResolverState::keep(std::string_view name, const dns::Reply& reply, uint64_t nowMs) {
    const std::lock_guard guard(lock_);
    if (!finalised_) cache_.put(name, reply.addresses, reply.ttlSeconds, nowMs);
}

void ResolverState::noteServer(const plat::IpAddress& server, bool answered, uint64_t nowMs) {
    const std::lock_guard guard(lock_);
    silent_.note(server, answered, nowMs);
}

void ResolverState::order(std::vector<plat::IpAddress>& servers, uint64_t nowMs) const {
    const std::lock_guard guard(lock_);
    silent_.order(servers, nowMs);
}

void ResolverState::finalise() {
    const std::lock_guard guard(lock_);
    finalised_ = true;
    cache_.clear();
    hosts_.clear();
    silent_ = SilentServers();
}

ResolverState& resolverState() {
    return plat::Replaceable<ResolverState>::get<ResolverState>();
}

ResolverState* replaceResolverState(ResolverState* state) {
    return plat::Replaceable<ResolverState>::replace(state);
}

}  // namespace tv
