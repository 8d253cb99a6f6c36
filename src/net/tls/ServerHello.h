// ServerHello, HelloRetryRequest and EncryptedExtensions: their bytes taken apart, and which
// extensions may stand in which (RFC 8446, 4.1.3, 4.1.4, 4.2; RFC 5246, 7.4.1.3).
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "base/Cause.h"
#include "net/tls/ClientHello.h"
#include "net/tls/TlsTypes.h"

namespace tv::tls {

// What a server may say in extensions; each is absent unless the server sent it. Views point into
// the message they were read from.
struct ServerExtensions {
    std::optional<Version> selectedVersion;
    Group keyShareGroup = Group::None;
    std::span<const uint8_t> keyShare;  // empty in a HelloRetryRequest
    bool hasKeyShare = false;
    std::optional<std::span<const uint8_t>> cookie;
    std::optional<uint16_t> selectedPsk;
    std::optional<std::span<const uint8_t>> renegotiationInfo;
    std::optional<uint16_t> recordSizeLimit;
    bool extendedMasterSecret = false;
    bool statusRequest = false;
    bool sessionTicket = false;
};

enum class HelloKind : uint8_t { ServerHello, ServerHello13, HelloRetryRequest, Encrypted };

struct ServerHello {
    Version legacyVersion = Version::None;
    std::span<const uint8_t> random;
    std::span<const uint8_t> sessionId;
    uint16_t suite = 0;
    bool isRetry = false;
    // The version that the message settles: supported_versions if it is there.
    Version version = Version::None;
    ServerExtensions extensions;
};

// The body of a ServerHello or HelloRetryRequest, checked against what the hello offered:
// unsolicited, repeated and misplaced extensions end the handshake. tooShort is 1 to 4 for the
// place where the message ended early.
Cause parseServerHello(std::span<const uint8_t> body, const ClientHello& offered, ServerHello& out,
                       int& tooShort);

// The body of EncryptedExtensions.
Cause parseEncryptedExtensions(std::span<const uint8_t> body, const ClientHello& offered,
                               ServerExtensions& out);

// How the end of a server's random marks that it could have spoken a higher version (RFC 8446,
// 4.1.3).
enum class DowngradeMark : uint8_t { None, FromTls13ToTls12, ToTls11OrBelow };
DowngradeMark downgradeMark(std::span<const uint8_t> random);

}  // namespace tv::tls
