// A limit on one operation as a whole. The limits of its waits are renewed by each byte that moves:
// a peer that gives or takes one now and then would hold a send for days.
#pragma once

#include <cstdint>
#include <string>

#include "net/stream/CallContext.h"

namespace tv {

// Holds as long as it lives. Limits nest: the one that is over first counts.
class WholeLimit {
public:
    WholeLimit(CallContext& call, uint64_t limitMs);
    // Never shorter than one wait of the operation may be.
    WholeLimit(CallContext& call, uint64_t limitMs, uint32_t maxIdleMs);
    ~WholeLimit() { call_.whole = outer_; }
    WholeLimit(const WholeLimit&) = delete;
    WholeLimit& operator=(const WholeLimit&) = delete;

private:
    CallContext& call_;
    const std::optional<Deadline> outer_;
};

// "5 minutes", "1500 ms"
std::string durationText(uint64_t ms);

}  // namespace tv
