// From host names to addresses, by what the call's NameSource says or, without one, the system.
#pragma once

#include <string_view>
#include <vector>

#include "base/Failure.h"
#include "net/stream/CallContext.h"
#include "net/stream/Deadline.h"
#include "platform/IpAddress.h"

namespace tv {

// The IPv4 addresses of a name, a numeric address itself, or, where a name has none, its IPv6
// addresses; in the order to be tried. A name is looked for in the hosts file, the cache and at the
// name servers; the system's resolver is asked for single labels and where that all has failed, but
// never beside servers that the call names: these are then asked for IPv6 addresses, too.
Failure dnsLookup(CallContext& call, std::string_view domain, const Deadline& deadline,
                  std::vector<plat::IpAddress>& addresses);

// The same for who wants IPv6 addresses, and IPv4 ones where there are none. The system's servers
// are not asked, but its resolver.
Failure lookUpPreferringIpv6(CallContext& call, std::string_view domain, const Deadline& deadline,
                             std::vector<plat::IpAddress>& addresses);

// Asks the system's resolver, whatever the call names: addresses of one family, the preferred one
// if there are any. This wait cannot be cut short, so it is not begun with less than a second left.
Failure getAddressInfo(CallContext& call, std::string_view hostOrIpAddr, bool preferIpv6,
                       const Deadline& deadline, std::vector<plat::IpAddress>& addresses);

}  // namespace tv
