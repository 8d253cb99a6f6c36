// What a connection allows itself: the range of protocol versions and the option keywords.
#pragma once

#include <string_view>

#include "log/LogBase.h"
#include "net/tls/TlsTypes.h"

namespace tv::tls {

struct VersionRange {
    Version lowest = Version::Tls10;
    Version highest = Version::Tls13;

    bool contains(Version version) const { return version >= lowest && version <= highest; }
    bool empty() const { return lowest > highest; }
    bool operator==(const VersionRange&) const = default;
};

// Reads a policy text ("TLS 1.2 or higher", "TLS 1.0 exact", "TLS 1.1 to 1.2", ...). An unknown or
// empty text is the default, TLS 1.0 to 1.3. SSL 3.0 may stand in a policy but is never offered: a
// range that holds nothing else comes out empty.
VersionRange versionRange(std::string_view policy);

// Switches of one connection, from the keywords that travel with its log.
struct TlsOptions {
    bool sni = true;                 // NO_TLS_SNI clears it
    bool shuffleExtensions = true;   // NO_TLS_EXT_RND clears it
    bool gcm = true;                 // TLS_NO_GCM
    bool dhe = true;                 // TLS_NO_DHE
    bool ecdhe = true;               // TLS_NO_ECDHE
    bool oldSuites = true;           // RC4, DES, 3DES, MD5, static RSA, DHE
    bool brainpool = false;          // brainpool_supported_group
    bool zeroLengthTicket = false;   // SendZeroLenTicket
    bool postHandshakeAuth = false;  // SendPostHandshakeAuth
    bool reuseSessions = true;       // TlsNoReuseSession clears it
    bool sniLocalhost = false;       // TlsAllowSniLocalhost
    bool disableTls13 = false;       // DisableTls13, unless EnableTls13 stands there too

    bool operator==(const TlsOptions&) const = default;
};

TlsOptions tlsOptions(const LogBase& log);

}  // namespace tv::tls
