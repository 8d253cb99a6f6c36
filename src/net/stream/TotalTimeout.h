// A time-out for one operation in all. The idle time-outs of its waits are renewed by each byte:
// a peer that gives or takes one now and then would hold a send for days.
#pragma once

#include <cstdint>
#include <string>

#include "net/stream/CallContext.h"

namespace tv {

// Holds as long as it lives. Limits nest: the one that is over first counts.
class TotalTimeout {
public:
    TotalTimeout(CallContext& call, uint64_t limitMs);
    // Never shorter than one wait of the operation may be.
    TotalTimeout(CallContext& call, uint64_t limitMs, uint32_t idleTimeoutMs);
    ~TotalTimeout() { call_.total = outer_; }
    TotalTimeout(const TotalTimeout&) = delete;
    TotalTimeout& operator=(const TotalTimeout&) = delete;

private:
    CallContext& call_;
    const std::optional<Deadline> outer_;
};

// "5 minutes", "1500 ms"
std::string durationText(uint64_t ms);

}  // namespace tv
