// The words of the host's setting for versions, and the keywords that change a handshake.
#include "net/tls/TlsPolicy.h"

#include <algorithm>

#include "base/Ascii.h"

namespace tv::tls {

VersionRange versionRange(std::string_view policy) {
    // A server's choice other than the one version that is allowed ends the handshake, so allowing
    // a connection only if the server chooses a version is the same as offering nothing else.
    constexpr std::string_view kOnlyIf = "allowConnectionOnlyIfServerChooses";
    const bool only = startsWithIgnoreCase(policy, kOnlyIf);
    if (only) policy = trimmed(policy.substr(kOnlyIf.size()));

    for (const Version version :
         {Version::Ssl30, Version::Tls10, Version::Tls11, Version::Tls12, Version::Tls13}) {
        if (!startsWithIgnoreCase(policy, versionName(version))) continue;
        const std::string_view rule = trimmed(policy.substr(versionName(version).size()));
        VersionRange range;
        if (only || equalsIgnoreCase(rule, "exact")) {
            range = {version, version};
        } else if (equalsIgnoreCase(rule, "or higher")) {
            range.lowest = version;
        } else if (equalsIgnoreCase(rule, "or lower")) {
            range.highest = version;
        } else if (rule.starts_with("to 1.") && rule.size() == 6) {
            for (const Version highest :
                 {Version::Tls10, Version::Tls11, Version::Tls12, Version::Tls13}) {
                if (versionName(highest).ends_with(rule.substr(3))) range = {version, highest};
            }
        } else {
            break;
        }
        range.lowest = std::max(range.lowest, Version::Tls10);
        return range;
    }
    return {};
}

TlsOptions tlsOptions(const LogBase& log) {
    TlsOptions o;
    o.sni = !log.hasOption("NO_TLS_SNI");
    o.shuffleExtensions = !log.hasOption("NO_TLS_EXT_RND");
    o.gcm = !log.hasOption("TLS_NO_GCM");
    o.dhe = !log.hasOption("TLS_NO_DHE");
    o.ecdhe = !log.hasOption("TLS_NO_ECDHE");
    o.brainpool = log.hasOption("brainpool_supported_group");
    o.zeroLengthTicket = log.hasOption("SendZeroLenTicket");
    o.postHandshakeAuth = log.hasOption("SendPostHandshakeAuth");
    o.reuseSessions = !log.hasOption("TlsNoReuseSession");
    o.sniLocalhost = log.hasOption("TlsAllowSniLocalhost");
    o.disableTls13 = log.hasOption("DisableTls13") && !log.hasOption("EnableTls13");
    return o;
}

}  // namespace tv::tls
