// The ClientHello: what it offers, and its bytes (RFC 8446, 4.1.2; RFC 5246, 7.4.1.2).
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "net/tls/CipherSuites.h"
#include "net/tls/TlsPolicy.h"
#include "net/tls/TlsTypes.h"

namespace tv::tls {

struct HelloExtension {
    ExtensionType type;
    std::vector<uint8_t> body;
};

// The public half of a key share that the hello offers.
struct OfferedShare {
    Group group;
    std::vector<uint8_t> publicKey;
};

// A ticket of an earlier TLS 1.3 session. The binder stands last in the encoded hello and is filled
// in by whoever holds the secret.
struct OfferedPsk {
    std::span<const uint8_t> ticket;
    uint32_t obfuscatedAge = 0;
    size_t binderSize = 0;  // 0: no ticket is offered
};

struct HelloParameters {
    VersionRange versions;
    TlsOptions options;
    std::string serverName;                        // sent only if it may be (RFC 6066, 3)
    std::span<const OfferedShare> shares;          // for TLS 1.3
    std::span<const uint8_t> cookie;               // from a HelloRetryRequest
    std::span<const uint8_t> renegotiationVerify;  // our last Finished; empty on the first hello
    OfferedPsk psk;
    bool moreCurves = false;  // also brainpoolP384r1 and brainpoolP512r1; for tests
};

struct ClientHello {
    Version legacyVersion = Version::Tls12;
    std::array<uint8_t, kRandomSize> random{};
    std::vector<uint8_t> sessionId;
    std::vector<const CipherSuite*> suites;
    bool fallback = false;  // TLS_FALLBACK_SCSV stands behind the suites
    std::vector<HelloExtension> extensions;

    bool offers(ExtensionType type) const;
    bool offersSuite(uint16_t id) const;
    // False where the extensions are longer than a hello can say.
    bool fits() const;
    // The whole handshake message with its header, if it fits.
    std::vector<uint8_t> encode() const;
};

// The extensions of a hello in their fixed order (pre_shared_key last).
std::vector<HelloExtension> helloExtensions(const HelloParameters& parameters);

// Varies the order by draws; pre_shared_key stays last.
void shuffleExtensions(std::vector<HelloExtension>& extensions, const DrawBelow& draw);

// The groups and signature schemes that such a hello offers, in their order.
std::vector<Group> offeredGroups(const HelloParameters& parameters);
std::vector<SignatureScheme> offeredSignatures(const VersionRange& versions);

// True for a name that may stand in server_name: no address (RFC 6066, 3), and "localhost" only
// when the options say so.
bool mayBeServerName(std::string_view name, const TlsOptions& options);

// With a longer ticket the hello would not stay within one record: there are servers, and boxes on
// the way, that read no further.
constexpr size_t kMaxOfferedTicket = 14336;

// The bytes that every binder takes behind the truncated hello: two of the list's length, one of
// the binder's (RFC 8446, 4.2.11.2).
constexpr size_t kBinderListOverhead = 3;

}  // namespace tv::tls
