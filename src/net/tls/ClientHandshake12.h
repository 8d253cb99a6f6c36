// The handshake of TLS 1.0 to 1.2 after the ServerHello (RFC 5246, 7.3, 7.4; RFC 8422; RFC 7627).
#pragma once

#include <optional>

#include "net/tls/Handshake.h"
#include "net/tls/KeySchedule12.h"
#include "net/x509/X509Key.h"

namespace tv::tls {

class ClientHandshake12 final : public HandshakeFlow {
public:
    // established is set in a renegotiation.
    ClientHandshake12(Handshake& shared, const Negotiated* established)
        : shared_(shared), established_(established) {}

    TlsFailure begin(LogBase& log, const ServerHello& reply);
    const NextMessages& next() const override { return next_; }
    TlsFailure onMessage(LogBase& log, const HandshakeMessage& message, bool atBoundary) override;
    TlsFailure onChangeCipherSpec() override;
    bool done() const override { return done_; }

private:
    TlsFailure judgeRenegotiation(const ServerExtensions& answer);
    TlsFailure judgeSession(const ServerHello& reply);
    TlsFailure beginResumed(LogBase& log);
    NextMessages afterCertificate() const;
    TlsFailure onCertificate(LogBase& log, std::span<const uint8_t> body);
    TlsFailure judgeKeyUsage(LogBase& log) const;
    bool offersGroup(Group group) const;
    TlsFailure onServerKeyExchange(LogBase& log, std::span<const uint8_t> body);
    TlsFailure onEcdhe(LogBase& log, std::span<const uint8_t> body);
    TlsFailure onDhe(LogBase& log, std::span<const uint8_t> body);
    TlsFailure judgeSignature(std::span<const uint8_t> parameters,
                              const Signature& signature) const;
    TlsFailure onServerHelloDone(LogBase& log, std::span<const uint8_t> body);
    TlsFailure makeRsaPremaster();
    TlsFailure sendKeyExchange();
    void deriveMaster(std::span<const uint8_t> premaster);
    bool makeCiphers();
    bool sendFinished();
    TlsFailure onFinished(LogBase& log, const HandshakeMessage& message, bool atBoundary);
    std::vector<uint8_t> verifyData(bool fromClient) const;
    NextMessages beforeServerFinished() const;

    Handshake& shared_;
    const Negotiated* established_;
    NextMessages next_;
    bool statusAnnounced_ = false;
    bool ticketAnnounced_ = false;
    bool clientCertificateAsked_ = false;
    bool sentFinished_ = false;
    x509::PublicKey serverKey_;          // views into the chain in shared_
    std::vector<uint8_t> exchangeBody_;  // of our ClientKeyExchange
    SecureBuffer premaster_;
    SecureBuffer master_;
    std::vector<uint8_t> sessionId_;
    std::unique_ptr<RecordCipher> readCipher_;
    std::unique_ptr<RecordCipher> writeCipher_;
    bool done_ = false;
};

}  // namespace tv::tls
