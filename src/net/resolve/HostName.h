// Host names as people write them, brought into the form that connects and look-ups use. Pure.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/IpAddress.h"

namespace tv {

// The host to connect to: without a user part, scheme, path, white space and the brackets of an
// IPv6 literal; "localhost" as its address. Empty where nothing remains.
std::string normalizeHost(std::string_view host,
                          std::optional<plat::AddressFamily> onlyFamily = {});

// What a TLS server of that host is called, and has to be certified for: the same as far as it goes
// ("localhost" stays a name), without a port and the dot of an absolute name, in ASCII.
std::string serverName(std::string_view host);

// The name to look up: lower-case ASCII (other letters by IDNA), without scheme, path and port.
// False where that is no name a resolver could know.
bool normalizeDomain(std::string_view domain, std::string& out);

}  // namespace tv
