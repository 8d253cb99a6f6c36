// What is kept of a finished handshake so that a later connection to the same server may be
// shorter.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/SecureBuffer.h"
#include "net/tls/TlsPolicy.h"
#include "net/tls/TlsTypes.h"

namespace tv {
class LogBase;
}

namespace tv::tls {

// Whom a session may be offered to: exactly the same peer under the same rules, verified by the
// same anchors.
struct SessionScope {
    std::string host;
    int port = 0;
    std::string serverName;
    VersionRange versions;
    TlsOptions options;
    bool requireVerify = false;
    std::string anchors;  // what tells one set of anchors from another

    bool operator==(const SessionScope&) const = default;
};

struct TlsSession {
    Version version = Version::None;
    uint16_t suite = 0;
    SecureBuffer secret;      // master secret, or the pre-shared key of the ticket (TLS 1.3)
    std::vector<uint8_t> id;  // session ID, or the ticket (TLS 1.3)
    uint32_t lifetimeSeconds = 0;
    uint32_t ageAdd = 0;        // TLS 1.3
    uint64_t receivedAtMs = 0;  // wall clock
    bool extendedMasterSecret = false;
    std::vector<uint8_t> leaf;  // the server's certificate, from the handshake that had one
    // Wall clock: from then on the server's chain has to be verified anew; 0: it never was. Handed
    // on to every session that resumes this one.
    uint64_t verifiedUntilMs = 0;
    SessionScope scope;

    bool isTls13() const { return version == Version::Tls13; }
};

// True if the session holds all it needs and is not too old; says in the log what it lacks.
bool sessionIsUsable(LogBase& log, const TlsSession& session, uint64_t nowMs);

// The age of a ticket as pre_shared_key carries it (RFC 8446, 4.2.11.1).
uint32_t obfuscatedTicketAge(const TlsSession& session, uint64_t nowMs);

}  // namespace tv::tls
