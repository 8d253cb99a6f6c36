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

    Cause begin(LogBase& log, const ServerHello& reply);
    const NextMessages& next() const override { return next_; }
    Cause onMessage(LogBase& log, const HandshakeMessage& message, bool atBoundary) override;
    Cause onChangeCipherSpec() override;
    bool done() const override { return done_; }

private:
    Cause judgeRenegotiation(const ServerExtensions& answer);
    Cause judgeSession(const ServerHello& reply);
    Cause beginResumed(LogBase& log);
    NextMessages afterCertificate() const;
    Cause onCertificate(LogBase& log, std::span<const uint8_t> body);
    Cause judgeKeyUsage(LogBase& log) const;
    bool offersGroup(Group group) const;
    Cause onServerKeyExchange(LogBase& log, std::span<const uint8_t> body);
    Cause onEcdhe(LogBase& log, std::span<const uint8_t> body);
    Cause onDhe(LogBase& log, std::span<const uint8_t> body);
    Cause judgeSignature(std::span<const uint8_t> parameters, const Signature& signature) const;
    Cause onServerHelloDone(LogBase& log, std::span<const uint8_t> body);
    Cause makeRsaPremaster();
    Cause sendKeyExchange();
    void deriveMaster(std::span<const uint8_t> premaster);
    bool makeCiphers();
    bool sendFinished();
    Cause onFinished(LogBase& log, const HandshakeMessage& message, bool atBoundary);
    std::vector<uint8_t> verifyData(bool fromClient) const;
    NextMessages beforeServerFinished() const;

    Handshake& shared_;
    const Negotiated* established_;
    NextMessages next_;
    bool statusAnnounced_ = false;
    bool ticketAnnounced_ = false;
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
