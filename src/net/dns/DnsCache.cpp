// Entries by name with the moment at which each ends; what is over is not found and makes room
// first.
#include "net/dns/DnsCache.h"

#include <algorithm>

namespace tv::dns {
namespace {

constexpr uint32_t kUnknownTtl = 60;  // seconds
// No longer: a server that has moved is found again within the hour.
constexpr uint32_t kMaxTtl = 3600;

}  // namespace

bool DnsCache::find(std::string_view name, uint64_t nowMs,
                    std::vector<plat::IpAddress>& out) const {
    const auto entry = entries_.find(name);
    if (entry == entries_.end()) return false;
    // A clock that has gone back says nothing about the age.
    if (nowMs < entry->second.storedMs || nowMs >= entry->second.endsMs) return false;
    out = entry->second.addresses;
    return true;
}

void DnsCache::put(std::string_view name, const std::vector<plat::IpAddress>& addresses,
                   std::optional<uint32_t> ttlSeconds, uint64_t nowMs) {
    const uint64_t lifetimeMs =
        uint64_t{std::min(ttlSeconds.value_or(kUnknownTtl), kMaxTtl)} * 1000;
    const auto old = entries_.find(name);
    if (old != entries_.end()) entries_.erase(old);
    if (lifetimeMs == 0 || addresses.empty()) return;
    if (entries_.size() >= maxNames_) makeRoom();
    entries_.emplace(name, Entry{addresses, nowMs, nowMs + lifetimeMs});
}

void DnsCache::makeRoom() {
    const auto first = std::min_element(
        entries_.begin(), entries_.end(),
        [](const auto& a, const auto& b) { return a.second.endsMs < b.second.endsMs; });
    if (first != entries_.end()) entries_.erase(first);
}

}  // namespace tv::dns
