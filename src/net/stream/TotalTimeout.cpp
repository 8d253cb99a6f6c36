// Setting a limit and taking it back. The waits of TolvaneSocket keep to it, and so does all that
// waits through them: replies, handshakes, messages.
#include "net/stream/TotalTimeout.h"

#include <algorithm>

#include "net/stream/TolvaneSocket.h"

namespace tv {

TotalTimeout::TotalTimeout(CallContext& call, uint64_t limitMs) : call_(call), outer_(call.total) {
    if (!outer_ || outer_->leftMs() > limitMs) call_.total.emplace(limitMs);
}

TotalTimeout::TotalTimeout(CallContext& call, uint64_t limitMs, uint32_t idleTimeoutMs)
    : TotalTimeout(call, std::max(limitMs, TolvaneSocket::longestWaitMs(idleTimeoutMs))) {}

std::string durationText(uint64_t ms) {
    constexpr uint64_t kMinute = 60000;
    return ms % kMinute == 0 ? std::to_string(ms / kMinute) + " minutes"
                             : std::to_string(ms) + " ms";
}

}  // namespace tv
