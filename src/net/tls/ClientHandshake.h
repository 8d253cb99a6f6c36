// One handshake of the client: the hellos, and then the flow of the version that the server chose.
#pragma once

#include <memory>
#include <optional>

#include "net/tls/Handshake.h"

namespace tv::tls {

class ClientHandshake {
public:
    // settings, environment and records outlive the handshake.
    ClientHandshake(const TlsSettings& settings, TlsEnvironment& environment, RecordLayer& records);

    // Sends the ClientHello. For a renegotiation, established tells of the connection so far: only
    // its version is offered and no session.
    Cause start(LogBase& log, const Negotiated* established);
    Cause onMessage(LogBase& log, const HandshakeMessage& message, bool atBoundary);
    Cause onChangeCipherSpec();

    bool done() const { return flow_ && flow_->done(); }
    // Until the version is known this is the highest one offered.
    Version version() const { return shared_.result.version; }
    bool serverHelloSeen() const { return flow_ != nullptr; }
    // TLS 1.2 and before: the server's records are under the new keys, and only its Finished may
    // follow.
    bool readKeysChanged() const { return readKeysChanged_; }
    bool usesCompatibilityMode() const { return offersTls13_; }

    Handshake& shared() { return shared_; }
    // After a TLS 1.3 handshake: what the connection goes on with.
    HandshakeFlow* flow() { return flow_.get(); }

private:
    Cause prepareHello(LogBase& log, const Negotiated* established);
    void offerSession(LogBase& log);
    bool addShare(LogBase& log, Group group);
    HelloParameters parameters() const;
    Cause sendHello(LogBase& log);
    void fillBinder(std::vector<uint8_t>& message) const;
    void logHello(LogBase& log) const;

    Cause onServerHello(LogBase& log, const HandshakeMessage& message, bool atBoundary);
    Cause onHelloRetryRequest(LogBase& log, const ServerHello& reply,
                              const HandshakeMessage& message, bool atBoundary);
    Cause judgeVersion(LogBase& log, const ServerHello& reply) const;
    Cause judgeSuite(const ServerHello& reply) const;
    Cause startFlow(LogBase& log, const ServerHello& reply, const HandshakeMessage& message,
                    bool atBoundary);

    const TlsSettings& settings_;
    Handshake shared_;
    VersionRange offered_;
    bool offersTls13_ = false;
    bool readKeysChanged_ = false;
    const Negotiated* established_ = nullptr;  // in a renegotiation
    std::vector<uint8_t> cookie_;
    std::vector<ExtensionType> extensionOrder_;
    const CipherSuite* retrySuite_ = nullptr;  // settled by a HelloRetryRequest
    std::unique_ptr<HandshakeFlow> flow_;
};

}  // namespace tv::tls
