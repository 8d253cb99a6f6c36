// The life of a connection: what comes in records goes to the handshake, to the application or to
// what may follow a handshake, and ends all where it is not allowed.
#include "net/tls/TlsProtocol.h"

#include <utility>

#include "base/ByteWriter.h"
#include "net/tls/CauseAlert.h"

namespace tv::tls {

TlsProtocol::TlsProtocol(TlsSettings settings, TlsEnvironment& environment)
    : settings_(std::move(settings)), environment_(environment) {}

TlsProtocol::~TlsProtocol() = default;

bool TlsProtocol::start(LogBase& log) {
    if (std::exchange(started_, true)) return false;
    handshake_ = std::make_unique<ClientHandshake>(settings_, environment_, records_);
    const Cause failure = handshake_->start(log, nullptr);
    return failure == Cause::None || fail(log, failure);
}

// Ends the connection with the alert that goes with the failure. Always false.
bool TlsProtocol::fail(LogBase& log, Cause failure) {
    log.logError(tlsSentence(failure));
    end(failure, alertOf(failure));
    return false;
}

void TlsProtocol::end(Cause failure, Alert alert) {
    failure_ = failure;
    if (failure != Cause::TlsPeerAlert) sendAlert(AlertLevel::Fatal, alert);
    handshake_.reset();
    session_.reset();
    traffic_ = {};
    records_.discardArrived();
}

void TlsProtocol::refuseCertificate(Alert alert) {
    if (failure_ == Cause::None) end(Cause::TlsCertificateRefused, alert);
}

void TlsProtocol::sendAlert(AlertLevel level, Alert alert) {
    const uint8_t body[] = {static_cast<uint8_t>(level), static_cast<uint8_t>(alert)};
    records_.send(ContentType::Alert, body);
}

bool TlsProtocol::receive(LogBase& log, size_t size) {
    if (failure_ != Cause::None) return false;
    records_.arrived(size);
    while (!closeNotifyReceived_) {
        std::optional<Record> record;
        Cause failure = records_.next(record);
        if (failure == Cause::None && !record) return true;
        if (record) failure = process(log, *record);
        if (failure != Cause::None) return fail(log, failure);
    }
    records_.discardArrived();  // nothing that follows a close_notify counts (RFC 8446, 6.1)
    return true;
}

Cause TlsProtocol::process(LogBase& log, const Record& record) {
    const bool mayInterrupt =
        record.type == ContentType::Handshake || record.type == ContentType::Alert;
    if (!mayInterrupt && !reader_.atBoundary()) {
        return record.type == ContentType::ChangeCipherSpec ? Cause::TlsUnexpectedCcs
                                                            : Cause::TlsUnexpectedMessage;
    }
    switch (record.type) {
        case ContentType::ChangeCipherSpec:
            return onChangeCipherSpec(record.plaintext);
        case ContentType::Alert:
            return onAlert(log, record.plaintext);
        case ContentType::Handshake:
            return onHandshake(log, record.plaintext);
        case ContentType::ApplicationData:
            return onApplicationData(record.plaintext);
    }
    return Cause::TlsRecordType;
}

Cause TlsProtocol::onChangeCipherSpec(std::span<const uint8_t> body) {
    const bool wellFormed = body.size() == 1 && body[0] == 1;
    if (!wellFormed || !handshake_) return Cause::TlsUnexpectedCcs;
    const bool maybeTls13 = handshake_->version() == Version::Tls13 ||
                            (!handshake_->serverHelloSeen() && handshake_->usesCompatibilityMode());
    if (!maybeTls13) return handshake_->onChangeCipherSpec();
    // Dropped between our first hello and the server's Finished (RFC 8446, 5), not without end.
    return ++ccsDropped_ > kMaxIdleRecords ? Cause::TlsUnexpectedCcs : Cause::None;
}

Cause TlsProtocol::onAlert(LogBase& log, std::span<const uint8_t> body) {
    if (body.empty()) return Cause::TlsUnexpectedMessage;  // RFC 8446, 5.4
    if (body.size() != 2) return Cause::TlsDecodeError;
    const AlertLevel level = static_cast<AlertLevel>(body[0]);
    const Alert alert = static_cast<Alert>(body[1]);
    {
        const LogContextExitor context(log, "TlsAlert");
        log.logData("level", level == AlertLevel::Warning ? "warning" : "fatal");
        log.logData("descrip", alertName(alert));
    }
    peerAlert_ = alert;
    serverAnswered_ = true;
    if (alert == Alert::CloseNotify) {
        closeNotifyReceived_ = true;
        if (!handshake_) return Cause::None;
        log.logError("Aborting handshake because of fatal alert.");
        return Cause::TlsPeerAlert;
    }
    // In TLS 1.3 the level says nothing: all but two are fatal (RFC 8446, 6).
    const bool isTls13 = serverHelloSeen_ && negotiated_.version == Version::Tls13;
    const bool harmless = isTls13 ? alert == Alert::UserCanceled : level == AlertLevel::Warning;
    if (harmless && !reader_.atBoundary()) return Cause::TlsUnexpectedMessage;  // RFC 8446, 5.1
    if (harmless) return countIdle() ? Cause::None : Cause::TlsTooManyIdleRecords;
    if (handshake_) log.logError("Aborting handshake because of fatal alert.");
    return Cause::TlsPeerAlert;
}

Cause TlsProtocol::onHandshake(LogBase& log, std::span<const uint8_t> fragment) {
    if (fragment.empty()) {
        // Never legal in TLS 1.3 (RFC 8446, 5.1), and never of use.
        const bool isTls13 = negotiated_.version == Version::Tls13;
        if (isTls13 || !countIdle()) return Cause::TlsUnexpectedMessage;
        return Cause::None;
    }
    reader_.append(fragment);
    for (;;) {
        HandshakeMessage message{};
        switch (reader_.next(message)) {
            case HandshakeReader::Result::NeedMore:
                return Cause::None;
            case HandshakeReader::Result::TooLong:
                return Cause::TlsMessageTooLong;
            case HandshakeReader::Result::Message:
                break;
        }
        const Cause failure = onMessage(log, message);
        if (failure != Cause::None) return failure;
    }
}

Cause TlsProtocol::onMessage(LogBase& log, const HandshakeMessage& message) {
    serverAnswered_ |= message.type == HandshakeType::ServerHello;
    if (!handshake_) return onPostHandshake(log, message);
    // A HelloRequest during a handshake is ignored (RFC 5246, 7.4.1.1).
    if (message.type == HandshakeType::HelloRequest && negotiated_.version != Version::Tls13) {
        const bool fine = message.body.empty() && countIdle();
        return fine ? Cause::None : Cause::TlsUnexpectedMessage;
    }
    idleRecords_ = 0;
    const Cause failure = handshake_->onMessage(log, message, reader_.atBoundary());
    if (failure != Cause::None) return failure;
    if (handshake_->serverHelloSeen()) {
        serverHelloSeen_ = true;
        negotiated_.version = handshake_->version();
        negotiated_.clientCertificateAsked = handshake_->shared().result.clientCertificateAsked;
    }
    if (handshake_->done()) finishHandshake();
    return Cause::None;
}

void TlsProtocol::finishHandshake() {
    Handshake& shared = handshake_->shared();
    negotiated_ = std::move(shared.result);
    if (shared.newSession) session_ = std::move(shared.newSession);
    if (negotiated_.version == Version::Tls13) {
        traffic_ = static_cast<ClientHandshake13*>(handshake_->flow())->takeSecrets();
        handshakeTranscript_ = std::move(shared.transcript);
    }
    established_ = true;
    handshake_.reset();
    settings_.session.reset();  // a session is used once
}

Cause TlsProtocol::onApplicationData(std::span<const uint8_t> bytes) {
    // In a renegotiation it may come until the keys change.
    const bool allowed = established_ && !(handshake_ && handshake_->readKeysChanged());
    if (!allowed) return Cause::TlsUnexpectedMessage;
    if (bytes.empty()) return countIdle() ? Cause::None : Cause::TlsTooManyIdleRecords;
    idleRecords_ = 0;
    textReceived_ = true;
    input_.append(bytes);
    return Cause::None;
}

Cause TlsProtocol::onPostHandshake(LogBase& log, const HandshakeMessage& message) {
    if (!countIdle()) return Cause::TlsTooManyIdleRecords;
    if (negotiated_.version == Version::Tls13) {
        if (message.type == HandshakeType::NewSessionTicket) {
            return onNewSessionTicket(log, message.body);
        }
        if (message.type == HandshakeType::KeyUpdate) return onKeyUpdate(log, message.body);
        if (message.type == HandshakeType::CertificateRequest) return onCertificateRequest(message);
        return Cause::TlsUnexpectedMessage;
    }
    if (message.type == HandshakeType::HelloRequest) return onHelloRequest(log, message.body);
    return Cause::TlsUnexpectedMessage;
}

Cause TlsProtocol::onHelloRequest(LogBase& log, std::span<const uint8_t> body) {
    if (!body.empty()) return Cause::TlsDecodeError;
    log.logInfo("Need to re-negotiate the security parameters.");
    if (closeNotifySent_) return Cause::None;
    if (!negotiated_.renegotiation.isSecure) {
        sendAlert(AlertLevel::Warning, Alert::NoRenegotiation);  // RFC 5746, 4.2
        return Cause::None;
    }
    if (++renegotiations_ > kMaxRenegotiations) return Cause::TlsTooManyRenegotiations;
    log.logInfo("Starting the handshake process again...");
    log.logInfo("Not re-using the session for re-negotiation...");
    handshake_ = std::make_unique<ClientHandshake>(settings_, environment_, records_);
    return handshake_->start(log, &negotiated_);
}

Cause TlsProtocol::onNewSessionTicket(LogBase& log, std::span<const uint8_t> body) {
    NewSessionTicket13 ticket;
    const Cause failure = parseNewSessionTicket13(body, ticket);
    if (failure != Cause::None) return failure;
    log.logDataVerbose("ticket_lifetime", std::to_string(ticket.lifetimeSeconds));
    log.logDataVerbose("ticket_age_add", std::to_string(ticket.ageAdd));
    // No lifetime: to be dropped at once.
    if (ticket.lifetimeSeconds == 0 || ticket.ticket.size() > kMaxOfferedTicket) {
        return Cause::None;
    }
    TlsSession session;
    session.version = Version::Tls13;
    session.suite = negotiated_.suite->id;
    session.secret =
        ticketKey13(negotiated_.suite->hash, traffic_.resumption.bytes(), ticket.nonce);
    session.id.assign(ticket.ticket.begin(), ticket.ticket.end());
    session.lifetimeSeconds = ticket.lifetimeSeconds;
    session.ageAdd = ticket.ageAdd;
    session.leaf = negotiated_.leaf;
    session.receivedAtMs = environment_.wallClockMs();
    session_ = std::move(session);
    return Cause::None;
}

// Only where post_handshake_auth was offered; answered with no certificate (RFC 8446, 4.6.2).
Cause TlsProtocol::onCertificateRequest(const HandshakeMessage& message) {
    if (!settings_.options.postHandshakeAuth) return Cause::TlsUnexpectedMessage;
    std::span<const uint8_t> context;
    const Cause failure = parseCertificateRequest13(message.body, context);
    if (failure != Cause::None) return failure;
    negotiated_.clientCertificateAsked = true;
    ByteWriter body;
    body.vector8(context);
    body.u24(0);
    const std::vector<uint8_t> none = handshakeMessage(HandshakeType::Certificate, body.bytes());
    Transcript transcript = handshakeTranscript_;
    transcript.add(message.whole);
    transcript.add(none);
    const std::vector<uint8_t> verify =
        finishedMac13(negotiated_.suite->hash, traffic_.client.bytes(), transcript.hash());
    const bool sent =
        records_.send(ContentType::Handshake, none) &&
        records_.send(ContentType::Handshake, handshakeMessage(HandshakeType::Finished, verify));
    return sent ? Cause::None : Cause::OutOfMemory;
}

// Moves a traffic secret on and makes the cipher of the new one.
std::unique_ptr<RecordCipher> TlsProtocol::renewedCipher(SecureBuffer& secret) {
    const CipherSuite& suite = *negotiated_.suite;
    secret = nextTrafficSecret(suite.hash, secret.bytes());
    return makeRecordCipher(suite, Version::Tls13, trafficKeys13(suite, secret.bytes()), {});
}

Cause TlsProtocol::onKeyUpdate(LogBase& log, std::span<const uint8_t> body) {
    if (body.size() != 1) return Cause::TlsDecodeError;
    if (body[0] > 1) return Cause::TlsIllegalParameter;  // RFC 8446, 4.6.3
    if (!reader_.atBoundary()) return Cause::TlsLeftoverAtKeyChange;
    log.logVerbose("Received a TLS 1.3 KeyUpdate.");
    records_.protectReading(renewedCipher(traffic_.server));
    // One answer, however many updates are asked for before we send data (RFC 8446, 4.6.3): until
    // then the new keys are as good as newer ones.
    if (body[0] == 0 || std::exchange(keyUpdateAnswered_, true)) return Cause::None;
    static constexpr uint8_t kNotRequested[] = {0};
    const bool sent = records_.send(ContentType::Handshake,
                                    handshakeMessage(HandshakeType::KeyUpdate, kNotRequested));
    if (!sent) return Cause::OutOfMemory;
    records_.protectWriting(renewedCipher(traffic_.client));
    return Cause::None;
}

bool TlsProtocol::sendApplicationData(LogBase& log, std::span<const uint8_t> bytes) {
    if (failure_ != Cause::None || closeNotifySent_ || isHandshaking()) return false;
    if (!established_ || !records_.isWritingProtected()) {
        log.logError(tlsSentence(Cause::TlsNoKeys));
        return false;
    }
    keyUpdateAnswered_ = false;
    if (records_.send(ContentType::ApplicationData, bytes)) return true;
    log.logError("Failed to encrypt TLS fragment");
    return fail(log, Cause::OutOfMemory);
}

void TlsProtocol::sendCloseNotify() {
    if (failure_ != Cause::None || std::exchange(closeNotifySent_, true)) return;
    sendAlert(AlertLevel::Warning, Alert::CloseNotify);
    records_.endWriting();  // it is the last that a side says (RFC 8446, 6.1)
}

std::optional<TlsSession> TlsProtocol::takeSession() {
    return std::exchange(session_, std::nullopt);
}

}  // namespace tv::tls
