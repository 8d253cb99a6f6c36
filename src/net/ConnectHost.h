// The way from a host name to a connected socket: normalise, resolve, try each address.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "log/LogBase.h"
#include "net/stream/CallContext.h"
#include "net/stream/TolvaneSocket.h"

namespace tv {

struct ConnectTarget {
    std::string_view host;
    uint16_t port = 0;
    uint32_t connectTimeoutMs = 0;  // for all of it; 0: no limit in all, the usual one per step
    bool preferIpv6 = false;
    std::optional<plat::AddressFamily> onlyFamily;  // others of its addresses are not tried
};

// On failure the socket is closed.
Failure connectSocket_v2(CallContext& call, TolvaneSocket& socket, const ConnectTarget& target);

}  // namespace tv
