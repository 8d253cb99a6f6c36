// The TLS client as an engine: bytes from the peer go in, bytes for the peer and plain text come
// out. It knows no socket, clock or file; SChannelTolvane moves the bytes.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "base/DataBuffer.h"
#include "net/tls/ClientHandshake.h"
#include "net/tls/ClientHandshake13.h"
#include "net/tls/HandshakeReader.h"
#include "net/tls/RecordLayer.h"

namespace tv::tls {

class TlsProtocol {
public:
    // environment outlives the engine.
    TlsProtocol(TlsSettings settings, TlsEnvironment& environment);
    ~TlsProtocol();
    TlsProtocol(const TlsProtocol&) = delete;
    TlsProtocol& operator=(const TlsProtocol&) = delete;

    // Puts the ClientHello into the output.
    bool start(LogBase& log);
    // Where bytes from the peer are put, RecordLayer::kReceiveSize of them at most.
    std::span<uint8_t> room() { return records_.room(); }
    // Takes the first size bytes of the room. False once the connection has failed: failure() says
    // why, the output may hold a last alert, and nothing more is taken.
    bool receive(LogBase& log, size_t size);
    // Protects bytes and appends their records to the output. Not during a renegotiation.
    bool sendApplicationData(LogBase& log, std::span<const uint8_t> bytes);
    void sendCloseNotify();
    // Ends the connection because of the server's certificate, with the alert that says why.
    void refuseCertificate(Alert alert);

    // Bytes for the peer; whoever sends them removes them.
    DataBuffer& output() { return records_.outbox(); }
    // Plain text from the peer; whoever reads it removes it.
    SecureBuffer& input() { return input_; }

    bool isEstablished() const { return established_ && failure_ == Cause::None; }
    // A renegotiation is under way: application data waits until it is over.
    bool isHandshaking() const { return handshake_ != nullptr; }
    // A whole ServerHello (a HelloRetryRequest is one) or an alert has come.
    bool serverAnswered() const { return serverAnswered_; }
    // Text has come: the server is content with what ended our handshake.
    bool textReceived() const { return textReceived_; }
    bool closeNotifyReceived() const { return closeNotifyReceived_; }
    Cause failure() const { return failure_; }
    std::optional<Alert> peerAlert() const { return peerAlert_; }
    // Whole after the handshake; of one that failed only its version, and whether a certificate of
    // the client was asked for.
    const Negotiated& negotiated() const { return negotiated_; }
    // The newest session that this connection was given, without scope and verdict; at most once.
    std::optional<TlsSession> takeSession();

private:
    bool fail(LogBase& log, Cause failure);
    void end(Cause failure, Alert alert);
    Cause process(LogBase& log, const Record& record);
    Cause onChangeCipherSpec(std::span<const uint8_t> body);
    Cause onAlert(LogBase& log, std::span<const uint8_t> body);
    Cause onHandshake(LogBase& log, std::span<const uint8_t> fragment);
    Cause onApplicationData(std::span<const uint8_t> bytes);
    Cause onMessage(LogBase& log, const HandshakeMessage& message);
    Cause onPostHandshake(LogBase& log, const HandshakeMessage& message);
    Cause onHelloRequest(LogBase& log, std::span<const uint8_t> body);
    Cause onCertificateRequest(const HandshakeMessage& message);
    Cause onNewSessionTicket(LogBase& log, std::span<const uint8_t> body);
    Cause onKeyUpdate(LogBase& log, std::span<const uint8_t> body);
    std::unique_ptr<RecordCipher> renewedCipher(SecureBuffer& secret);
    void finishHandshake();
    void sendAlert(AlertLevel level, Alert alert);
    bool countIdle() { return ++idleRecords_ <= kMaxIdleRecords; }

    // Records that bring nothing on: a peer must not keep us busy with them for ever.
    static constexpr int kMaxIdleRecords = 32;
    static constexpr int kMaxRenegotiations = 3;

    TlsSettings settings_;
    TlsEnvironment& environment_;
    RecordLayer records_;
    HandshakeReader reader_;
    SecureBuffer input_;
    std::unique_ptr<ClientHandshake> handshake_;
    Negotiated negotiated_;
    TrafficSecrets13 traffic_;
    Transcript handshakeTranscript_;  // of TLS 1.3, for certificate requests after the handshake
    std::optional<TlsSession> session_;
    Cause failure_ = Cause::None;
    std::optional<Alert> peerAlert_;
    int idleRecords_ = 0;  // in a row that brought nothing on
    int ccsDropped_ = 0;
    int renegotiations_ = 0;
    bool started_ = false;
    bool established_ = false;
    bool serverHelloSeen_ = false;
    bool serverAnswered_ = false;
    bool textReceived_ = false;
    bool closeNotifyReceived_ = false;
    bool closeNotifySent_ = false;
    bool keyUpdateAnswered_ = false;
};

}  // namespace tv::tls
