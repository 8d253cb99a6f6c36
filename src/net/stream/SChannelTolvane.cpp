// Moving bytes between the engine and the socket: in the handshake, which ends with the verdict on
// the server's certificate, for the text, and at the good-bye.
#include "net/stream/SChannelTolvane.h"

#include <algorithm>
#include <utility>

#include "base/Ascii.h"
#include "base/Random.h"
#include "base/ShuffleRandom.h"
#include "log/LogContextExitor.h"
#include "log/LogNull.h"
#include "net/stream/ServerVerdict.h"
#include "net/stream/TotalTimeout.h"
#include "net/tls/KeyUsage.h"
#include "net/tls/TlsProtocol.h"
#include "net/x509/X509Cert.h"
#include "net/x509/X509Chain.h"
#include "net/x509/X509Name.h"
#include "platform/SysClock.h"

namespace tv {
namespace {

constexpr size_t kSendBatch = 4 * tls::kMaxPlaintext;  // between two looks at what the server says
constexpr size_t kMaxKeptInput = 65536;       // beyond it, what arrives during a send stays unread
constexpr uint64_t kMaxHandshakeMs = 300000;  // as a greeting may (RFC 5321, 4.5.3.2.1)
constexpr uint32_t kMaxGoodbyeMs = 1000;      // the good-bye changes nothing any more
constexpr uint64_t kWeekMs = uint64_t{7} * 24 * 3600 * 1000;
constexpr uint32_t kMaxVerifyMs = 60000;                  // of work, where the host sets no limit
constexpr uint64_t kFileTimeOf1970 = 116444736000000000;  // in 100 ns since 1601

uint64_t wallClockMs() {
    return (plat::sysClock().fileTimeUtc() - kFileTimeOf1970) / 10000;
}

std::string withStart(std::string_view text, TlsStart start) {
    return std::string(text) + " (" + std::to_string(static_cast<int>(start)) + ")";
}

tls::SessionScope scopeOf(std::string_view host, int port, const tls::TlsSettings& wanted,
                          const TrustAnchors* anchors, std::span<const std::string> pins) {
    tls::SessionScope scope;
    scope.host = asciiLower(host);
    scope.port = port;
    scope.serverName = host;
    scope.versions = wanted.versions;
    scope.options = wanted.options;
    scope.requireVerify = wanted.verifiesServer;
    if (anchors) scope.anchors = anchors->identity();
    for (const std::string& pin : pins) {
        scope.anchors += pin;
    }
    return scope;
}

// How long sessions may spare the verification of a chain that was verified now: no longer than its
// certificate lasts, and a week at most, however often the server renews its tickets.
uint64_t endOfTrustMs(const x509::Certificate& leaf, uint64_t nowMs) {
    if (leaf.notAfter < 0) return 0;
    const uint64_t expiresMs = (static_cast<uint64_t>(leaf.notAfter) + 1) * 1000;
    return std::min(expiresMs, nowMs + kWeekMs);
}

// RFC 8446, 6.2.
tls::Alert alertOf(x509::ChainRule rule) {
    using x509::ChainRule;
    static constexpr std::pair<ChainRule, tls::Alert> kAlerts[] = {
        {ChainRule::Unreadable, tls::Alert::BadCertificate},
        {ChainRule::NotYetValid, tls::Alert::CertificateExpired},  // "or is not currently valid"
        {ChainRule::Expired, tls::Alert::CertificateExpired},
        {ChainRule::HostMismatch, tls::Alert::BadCertificate},
        {ChainRule::NotForServers, tls::Alert::UnsupportedCertificate},
        {ChainRule::UnknownCritical, tls::Alert::UnsupportedCertificate},
        {ChainRule::WeakSignature, tls::Alert::BadCertificate},
        {ChainRule::WeakKey, tls::Alert::BadCertificate},
        {ChainRule::NameConstraint, tls::Alert::BadCertificate},
        {ChainRule::BadConstraints, tls::Alert::BadCertificate},
        {ChainRule::BadSignature, tls::Alert::BadCertificate},
        {ChainRule::OtherKey, tls::Alert::BadCertificate},
        {ChainRule::NotAnAuthority, tls::Alert::UnknownCa},
        {ChainRule::MayNotSign, tls::Alert::UnknownCa},
        {ChainRule::PathTooLong, tls::Alert::UnknownCa},
        {ChainRule::UnknownIssuer, tls::Alert::UnknownCa},
    };
    for (const auto& [known, alert] : kAlerts) {
        if (known == rule) return alert;
    }
    return tls::Alert::CertificateUnknown;
}

// The server says that it can do more than the repetition without TLS 1.3 offers.
bool refusesFallback(const tls::TlsProtocol& engine) {
    return engine.failure() == Cause::TlsDowngrade ||
           (engine.failure() == Cause::TlsPeerAlert &&
            engine.peerAlert() == tls::Alert::InappropriateFallback);
}

// A sentence without its full stop.
std::string clause(std::string_view sentence) {
    return std::string(sentence.substr(0, sentence.find_last_not_of('.') + 1));
}

std::string endedByAlert(std::string_view what, tls::Alert alert) {
    return "The server ended the " + std::string(what) + " with the alert \"" +
           std::string(tls::alertName(alert)) + "\"";
}

// A server that will not go on without a certificate of the client ends the connection behind our
// last flight, with one of several alerts or with none (RFC 5246, 7.4.6; RFC 8446, 4.4.2.4).
std::string askedForCertificate(const tls::TlsProtocol& engine) {
    using tls::Alert;
    constexpr Alert kAlerts[] = {Alert::HandshakeFailure,   Alert::NoCertificate,
                                 Alert::BadCertificate,     Alert::UnsupportedCertificate,
                                 Alert::CertificateUnknown, Alert::UnknownCa,
                                 Alert::AccessDenied,       Alert::CertificateRequired};
    const Alert alert = engine.peerAlert().value_or(Alert::CertificateRequired);
    const bool isMeant = engine.negotiated().clientCertificateAsked &&
                         std::ranges::find(kAlerts, alert) != std::end(kAlerts);
    return isMeant ? "; a client certificate was asked for, and there is none" : "";
}

// What went wrong in the handshake, for a sentence of the host's.
std::string failureClause(const Failure& failure, const tls::TlsProtocol& engine, bool isFallback) {
    if (isFallback && refusesFallback(engine)) {
        return "The server speaks TLS 1.3, but the connection broke off when TLS 1.3 was offered; "
               "a firewall, a proxy or an attacker on the way may have cut it. Let TLS 1.3 pass to "
               "the server, or set TlsProtocol to \"TLS 1.2 or lower\" where the network is "
               "trusted";
    }
    if (engine.failure() == Cause::TlsPeerAlert && engine.peerAlert()) {
        return endedByAlert("TLS handshake", *engine.peerAlert()) + askedForCertificate(engine);
    }
    if (engine.failure() != Cause::None) return clause(tlsSentence(engine.failure()));
    if (!failure.is(Cause::Timeout)) {
        return "The connection was lost in the TLS handshake" + askedForCertificate(engine);
    }
    if (failure.totalMs() == 0) return "Timeout in the TLS handshake";
    return "The TLS handshake took more than " + durationText(failure.totalMs());
}

}  // namespace

class SChannelTolvane::Environment final : public tls::TlsEnvironment {
public:
    bool random(std::span<uint8_t> out) override { return randomBytes(out); }
    uint32_t draw(uint32_t below) override { return orderRandom().next() % below; }
    uint64_t wallClockMs() override { return tv::wallClockMs(); }
};

SChannelTolvane::SChannelTolvane(TolvaneSocket& socket)
    : socket_(socket), environment_(std::make_unique<Environment>()) {}

SChannelTolvane::~SChannelTolvane() = default;

bool SChannelTolvane::isOpen() const {
    return engine_ && engine_->isEstablished() && !engine_->closeNotifyReceived() && !readFailed_;
}

Failure SChannelTolvane::handshake(CallContext& call, std::string_view host, int port,
                                   const TlsChannelSettings& settings, TlsStart start,
                                   uint32_t idleTimeoutMs) {
    const LogContextExitor context(call.log, "SslHandshake");
    call.log.logInfo("Starting");
    tls::TlsSettings wanted;
    wanted.versions = tls::versionRange(settings.tlsProtocol);
    wanted.options = tls::tlsOptions(call.log);
    wanted.options.oldSuites = settings.oldSuites;
    wanted.verifiesServer = settings.requireSslCertVerify || !settings.pinnedKeys.empty();
    std::optional<TrustAnchors> anchors;
    if (settings.requireSslCertVerify) {
        anchors.emplace(settings.trustAnchorsFile, settings.furtherAnchorsFile);
    }
    const ServerTrust trust{anchors ? &*anchors : nullptr, settings.pinnedKeys};
    scope_ = scopeOf(host, port, wanted, trust.anchors, trust.pins);
    wanted.options.disableTls13 |= settings.withoutTls13;
    wanted.fallback = settings.withoutTls13 && wanted.verifiesServer;
    wanted.serverName = host;
    wanted.moreCurves = settings.moreCurves;
    sessions_ = settings.sessions;
    if (sessions_) {
        // Used once, whatever comes of it.
        std::optional<tls::TlsSession> kept = std::exchange(sessions_->session, std::nullopt);
        if (kept && kept->scope == scope_) wanted.session = std::move(kept);
    }
    isFallback_ = wanted.fallback;
    const uint64_t keptUntilMs = wanted.session ? wanted.session->verifiedUntilMs : 0;
    engine_ = std::make_unique<tls::TlsProtocol>(std::move(wanted), *environment_);
    readFailed_ = false;

    if (Failure failure = exchange(call, idleTimeoutMs)) {
        return handshakeFailed(call.log, std::move(failure), start);
    }
    verifiedUntilMs_ = engine_->negotiated().resumed ? keptUntilMs : 0;
    Failure distrust = checkServerCert(call, host, trust, idleTimeoutMs);
    if (distrust) {
        call.log.logError(withStart("Server certificate verification failed.", start));
        return distrust;
    }
    keepSession();
    call.log.logInfo("Finished");
    call.log.logInfo("SSL/TLS Channel Established.");
    return {};
}

// Moves bytes both ways until the handshake is over.
Failure SChannelTolvane::exchange(CallContext& call, uint32_t idleTimeoutMs) {
    if (!engine_->start(call.log)) return Failure(Cause::Internal);
    const TotalTimeout limit(call, kMaxHandshakeMs, idleTimeoutMs);
    while (!engine_->isEstablished()) {
        if (Failure failure = flush(call, idleTimeoutMs)) return failure;
        if (Failure failure = readMore(call, idleTimeoutMs)) return failure;
    }
    return flush(call, idleTimeoutMs);
}

Failure SChannelTolvane::handshakeFailed(LogBase& log, Failure failure, TlsStart start) {
    log.logError(withStart("Client handshake failed.", start));
    if (failure.is(Cause::Aborted)) return failure;
    if (engine_->failure() == Cause::TlsCertificateMissing) {
        return Failure(Cause::NoServerCertificate);
    }
    const Cause cause = !readFailed_ || engine_->serverAnswered() ? Cause::Internal
                        : failure.is(Cause::Timeout)              ? Cause::TlsServerHelloUnreadable
                                                                  : Cause::TlsNoServerHello;
    return Failure(cause, failureClause(failure, *engine_, isFallback_))
        .because(engine_->failure())
        .at(Stage::TlsHandshake);
}

Failure SChannelTolvane::flush(CallContext& call, uint32_t idleTimeoutMs) {
    DataBuffer& output = engine_->output();
    if (output.empty()) return {};
    size_t sent = 0;
    Failure failure = socket_.sendBytes(call, output.bytes(), sent, idleTimeoutMs);
    output.clear();
    return failure;
}

// One segment from the socket into the engine. An alert that the engine answers with goes out.
Failure SChannelTolvane::readMore(CallContext& call, uint32_t idleTimeoutMs) {
    size_t size = 0;
    if (Failure failure = socket_.receiveBytes(call, engine_->room(), size, idleTimeoutMs)) {
        readFailed_ = true;
        return failure;
    }
    return process(call, size, idleTimeoutMs);
}

Failure SChannelTolvane::process(CallContext& call, size_t arrived, uint32_t idleTimeoutMs) {
    const bool success = engine_->receive(call.log, arrived);
    if (Failure failure = flush(call, idleTimeoutMs)) return failure;
    return success ? Failure() : whyEnded();
}

// In TLS 1.3 a server that is not content with our last flight, as one that wants a certificate of
// the client, says so when our handshake is over (RFC 8446, 4.4.2.4 and 6.2).
Failure SChannelTolvane::whyEnded() const {
    const Cause cause = engine_->failure();
    if (cause != Cause::TlsPeerAlert || engine_->textReceived()) {
        return Failure(Cause::ConnectionLost).because(cause);
    }
    return Failure(Cause::ConnectionLost, endedByAlert("connection", *engine_->peerAlert()) +
                                              askedForCertificate(*engine_))
        .because(cause)
        .at(Stage::TlsHandshake);
}

Failure SChannelTolvane::checkServerCert(CallContext& call, std::string_view host,
                                         const ServerTrust& trust, uint32_t idleTimeoutMs) {
    const LogContextExitor context(call.log, "checkServerCert");
    const auto& chain = engine_->negotiated().chain;  // empty for a resumed session
    x509::Certificate leaf;
    const bool readable = !chain.empty() && x509::parseCertificate(chain.front(), leaf);
    if (!trust.anchors && trust.pins.empty()) {
        call.log.logInfo("Not verifying server certificate...");
        call.log.logInfo("Set the RequireSslCertVerify property to enable verification.");
        if (readable) {
            const std::string lacking = tls::lackingKeyUsage(leaf, *engine_->negotiated().suite);
            if (!lacking.empty()) tls::warnOfKeyUsage(call.log, lacking);
        }
        return {};
    }
    if (engine_->negotiated().resumed) {
        call.log.logInfo(
            "Not verifying server certificate because this TLS session is a resumption.");
        return {};
    }
    if (chain.empty()) {
        call.log.logError("No server certificate is available.");
        return Failure(Cause::NoServerCertificate);
    }
    call.log.logInfo("Verifying server certificate...");
    const uint64_t nowMs = wallClockMs();
    const Deadline deadline(idleTimeoutMs == 0 ? kMaxVerifyMs : idleTimeoutMs);
    x509::WorkBudget budget([&] { return call.mustStop() ? 0 : deadline.leftMs(); });
    const x509::ChainVerdict verdict =
        judgeServer(call.log, engine_->negotiated(), readable ? &leaf : nullptr, host, trust,
                    static_cast<int64_t>(nowMs / 1000), budget);
    if (!verdict.trusted()) return refuseCertificate(call, verdict);
    if (!trust.anchors) {
        call.log.logInfo("The server's public key is a pinned one.");
        verifiedUntilMs_ = nowMs + kWeekMs;
        return {};
    }
    verifiedUntilMs_ = endOfTrustMs(leaf, nowMs);
    call.log.logInfo("Server certificate is verified.");
    call.log.logInfo("Whether it has been revoked is not checked.");
    return {};
}

// Tells the log and the server. Whoever looks after the server is to find the reason there, so the
// alert must not get lost: closing with unread bytes would overtake it.
Failure SChannelTolvane::refuseCertificate(CallContext& call, const x509::ChainVerdict& verdict) {
    call.log.logError("SSL server certificate verification failed.");
    call.log.logError(x509::ruleText(verdict.broken));
    call.log.logData("certificate", verdict.subject);
    call.log.logData("issuedBy", verdict.issuer);
    if (!verdict.detail.empty()) call.log.logData("detail", verdict.detail);
    engine_->refuseCertificate(alertOf(verdict.broken));
    LogNull quiet;
    CallContext own = call.aside(quiet);
    if (!flush(own, kMaxGoodbyeMs)) {
        socket_.terminateConnection(own, CloseForm::Graceful, kMaxGoodbyeMs);
    }
    return Failure(call.wasStopped() ? Cause::Aborted : Cause::CertificateInvalid,
                   clause(x509::ruleText(verdict.broken)));
}

void SChannelTolvane::keepSession() {
    std::optional<tls::TlsSession> fresh = engine_->takeSession();
    if (!fresh || !sessions_) return;
    fresh->scope = scope_;
    fresh->verifiedUntilMs = verifiedUntilMs_;
    sessions_->session = std::move(fresh);
}

Failure SChannelTolvane::takeArrived(CallContext& call) {
    size_t size = 0;
    if (!socket_.receiveReady(engine_->room(), size)) {
        return socket_.isConnected() ? Failure() : Failure(Cause::ConnectionLost);
    }
    const TotalTimeout limit(call, kMaxGoodbyeMs);
    Failure failure = process(call, size, kMaxGoodbyeMs);
    keepSession();
    return failure;
}

Failure SChannelTolvane::sendApplicationData(CallContext& call, std::span<const uint8_t> bytes,
                                             size_t& sent, uint32_t idleTimeoutMs) {
    sent = 0;
    while (!bytes.empty()) {
        // A look at what the server has to say in the meantime: an alert ends a long send.
        if (engine_->input().size() < kMaxKeptInput) {
            if (Failure failure = takeArrived(call)) {
                call.log.logError("Failed to receive TLS application data while sending.");
                return failure;
            }
        }
        if (engine_->closeNotifyReceived()) {
            call.log.logError(
                "Aborting the TLS send because the peer sent the TLS close-notify alert.");
            return Failure(Cause::ConnectionLost);
        }
        while (engine_->isHandshaking()) {
            if (Failure failure = readMore(call, idleTimeoutMs)) return failure;
        }
        if (call.mustStop()) {
            call.log.logError("Aborting the TLS send..");
            return Failure(Cause::Aborted);
        }
        const std::span<const uint8_t> batch = bytes.first(std::min(bytes.size(), kSendBatch));
        if (!engine_->sendApplicationData(call.log, batch)) return Failure(Cause::ConnectionLost);
        if (Failure failure = flush(call, idleTimeoutMs)) return failure;
        sent += batch.size();
        bytes = bytes.subspan(batch.size());
    }
    return {};
}

SecureBuffer& SChannelTolvane::input() {
    return engine_->input();
}

bool SChannelTolvane::receiveReady(CallContext& call) {
    if (!engine_) return false;
    if (takeArrived(call)) readFailed_ = true;
    return !input().empty();
}

Failure SChannelTolvane::receiveApplicationData(CallContext& call, uint32_t idleTimeoutMs) {
    // Records may arrive that carry no text; the engine bounds how many.
    while (input().empty()) {
        if (engine_->closeNotifyReceived()) {
            call.log.logError("Already received close-notify.");
            return Failure(Cause::ConnectionLost);
        }
        // Text that came before what fails counts; the failure shows at the next read.
        Failure failure = readMore(call, idleTimeoutMs);
        if (failure && input().empty()) return failure;
        keepSession();
    }
    return {};
}

void SChannelTolvane::closeNotify(CallContext& call, uint32_t idleTimeoutMs) {
    if (!engine_ || !engine_->isEstablished() || readFailed_ || call.wasStopped()) return;
    engine_->sendCloseNotify();
    const uint32_t limit =
        idleTimeoutMs == 0 ? kMaxGoodbyeMs : std::min(idleTimeoutMs, kMaxGoodbyeMs);
    LogNull quiet;  // whatever fails from here on is of no interest
    CallContext own = call.aside(quiet);
    const TotalTimeout whole(own, limit);
    Failure failure = flush(own, limit);
    while (!failure && !engine_->closeNotifyReceived()) {
        failure = readMore(own, limit);
        input().clear();
    }
    keepSession();
    if (!engine_->closeNotifyReceived()) {
        call.log.logInfo("Did not read TLS close-notify (this is not an error)");
    }
}

}  // namespace tv
