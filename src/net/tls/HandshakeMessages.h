// The other handshake messages as plain records: certificates, key exchange, tickets.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "base/Cause.h"
#include "net/tls/TlsTypes.h"

namespace tv::tls {

// Views in these records point into the message body they were read from. Every reader answers
// false, or which rule was broken, where the body is malformed or something is left over.

using CertificateList = std::vector<std::span<const uint8_t>>;  // DER, the server's own first

constexpr size_t kMaxCertificates = 64;

bool parseCertificate12(std::span<const uint8_t> body, CertificateList& out);
// The context must be empty in the handshake; extensions of entries must have been asked for
// (status_request).
Cause parseCertificate13(std::span<const uint8_t> body, CertificateList& out);
bool parseCertificateStatus12(std::span<const uint8_t> body);

bool parseCertificateRequest12(std::span<const uint8_t> body, Version version);
// The context is empty in the handshake and names the request after it.
Cause parseCertificateRequest13(std::span<const uint8_t> body, std::span<const uint8_t>& context);

struct Signature {
    SignatureScheme scheme = SignatureScheme::None;  // None before TLS 1.2
    std::span<const uint8_t> bytes;
};
bool parseCertificateVerify(std::span<const uint8_t> body, Signature& out);

// The signed part of a ServerKeyExchange is parameters; it stands first in the body.
struct EcdheParameters {
    Group group = Group::None;  // None for anything but a named curve
    std::span<const uint8_t> publicKey;
    std::span<const uint8_t> parameters;
    Signature signature;
};
struct DheParameters {
    std::span<const uint8_t> p, g, publicKey;
    std::span<const uint8_t> parameters;
    Signature signature;
};
bool parseServerKeyExchange(std::span<const uint8_t> body, Version version, EcdheParameters& out);
bool parseServerKeyExchange(std::span<const uint8_t> body, Version version, DheParameters& out);

struct NewSessionTicket13 {
    uint32_t lifetimeSeconds = 0;
    uint32_t ageAdd = 0;
    std::span<const uint8_t> nonce;
    std::span<const uint8_t> ticket;
};
Cause parseNewSessionTicket13(std::span<const uint8_t> body, NewSessionTicket13& out);
bool parseNewSessionTicket12(std::span<const uint8_t> body);

// A handshake message: type, three bytes of length, body.
std::vector<uint8_t> handshakeMessage(HandshakeType type, std::span<const uint8_t> body);

}  // namespace tv::tls
