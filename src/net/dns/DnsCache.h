// The addresses of names for as long as their servers vouch for them. The caller has the clock and
// the lock.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/IpAddress.h"

namespace tv::dns {

class DnsCache {
public:
    // The limit keeps a host that names ever new servers from filling the memory.
    explicit DnsCache(size_t maxNames = 256) : maxNames_(maxNames) {}

    bool find(std::string_view name, uint64_t nowMs, std::vector<plat::IpAddress>& out) const;
    // 60 s where the answer carried no time, an hour at most; 0 is not kept. When the cache is
    // full, the entry that would end first gives way.
    void put(std::string_view name, const std::vector<plat::IpAddress>& addresses,
             std::optional<uint32_t> ttlSeconds, uint64_t nowMs);
    size_t size() const { return entries_.size(); }

private:
    struct Entry {
        std::vector<plat::IpAddress> addresses;
        uint64_t storedMs;
        uint64_t endsMs;
    };

    void makeRoom();

    size_t maxNames_;
    std::map<std::string, Entry, std::less<>> entries_;
};

}  // namespace tv::dns
