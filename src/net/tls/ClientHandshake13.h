// The TLS 1.3 handshake after the ServerHello (RFC 8446, 4.3 to 4.6).
#pragma once

#include <optional>

#include "net/tls/Handshake.h"
#include "net/tls/KeySchedule13.h"
#include "net/x509/X509Key.h"

namespace tv::tls {

// What outlives a TLS 1.3 handshake: the secrets for key updates and tickets.
struct TrafficSecrets13 {
    SecureBuffer client;
    SecureBuffer server;
    SecureBuffer resumption;
};

class ClientHandshake13 final : public HandshakeFlow {
public:
    explicit ClientHandshake13(Handshake& shared) : shared_(shared) {}

    Cause begin(LogBase& log, const ServerHello& reply);
    const NextMessages& next() const override { return next_; }
    Cause onMessage(LogBase& log, const HandshakeMessage& message, bool atBoundary) override;
    Cause onChangeCipherSpec() override { return Cause::TlsUnexpectedCcs; }
    bool done() const override { return done_; }

    TrafficSecrets13 takeSecrets() { return std::move(traffic_); }

private:
    Cause sharedSecret(LogBase& log, const ServerHello& reply, SecureBuffer& shared);
    Cause onEncryptedExtensions(std::span<const uint8_t> body);
    Cause onCertificateRequest(std::span<const uint8_t> body);
    Cause onCertificate(std::span<const uint8_t> body);
    Cause onCertificateVerify(std::span<const uint8_t> body);
    Cause onFinished(LogBase& log, const HandshakeMessage& message, bool atBoundary);
    Cause finish(LogBase& log);
    bool protect(std::span<const uint8_t> trafficSecret, bool reading);

    Handshake& shared_;
    NextMessages next_;
    std::optional<HandshakeStage13> stage_;
    SecureBuffer clientHandshake_;
    SecureBuffer serverHandshake_;
    x509::PublicKey serverKey_;  // views into the chain in shared_
    TrafficSecrets13 traffic_;
    bool done_ = false;
};

}  // namespace tv::tls
