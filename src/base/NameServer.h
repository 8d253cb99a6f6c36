// A name server as people write it in settings.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "platform/IpAddress.h"

namespace tv {

// How many are asked at most: each may cost seconds of silence.
constexpr size_t kMostNameServers = 32;

struct NameServer {
    plat::IpAddress address;
    bool tls = false;  // DNS over TLS (RFC 7858)
    std::string name;  // that its certificate must prove (RFC 8310); empty: nothing is proven

    bool operator==(const NameServer& other) const = default;
};

// A numeric address, "tls://address" or "tls://address#name"; nothing for any other text.
std::optional<NameServer> parseNameServer(std::string_view text);

// The same form again.
std::string toText(const NameServer& server);

}  // namespace tv
