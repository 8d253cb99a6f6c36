// The connection under the SMTP session: which socket the bytes go through, and the buffer of
// what has come and was not asked for yet.
#include "net/Socket2.h"

#include <array>

#include "log/LogContextExitor.h"
#include "log/LogNull.h"
#include "net/ConnectFailure.h"
#include "net/ConnectHost.h"
#include "net/LineBuffer.h"
#include "net/resolve/HostName.h"
#include "net/stream/SChannelTolvane.h"
#include "net/stream/SocketLibrary.h"
#include "net/stream/TolvaneSocket.h"
#include "net/tls/TlsProtocol.h"

namespace tv {
namespace {

constexpr uint32_t kAlive = 0xC64D29EA;
constexpr size_t kReceiveSize = 16384;
constexpr uint32_t kDefaultConnectTimeoutMs = 30000;

enum class ConnectionType { None = 0, Plain = 1, Tls = 2 };

// How the texts of a failed handshake tell implicit TLS from a conversion.
constexpr int kImplicitRoad = 3;
constexpr int kConversionRoad = 1;

}  // namespace

struct Socket2::State {
    std::atomic<uint32_t> alive{kAlive};
    TolvaneSocket tcp;
    ConnectionType type = ConnectionType::None;
    bool tcpNoDelay = false;
    bool preferIpv6 = false;
    uint32_t connectTimeoutMs = kDefaultConnectTimeoutMs;
    std::string host;
    int port = 0;
    TlsChannelSettings tlsSettings;
    std::unique_ptr<SChannelTolvane> tls;  // present while the connection is, or is made, secure
    LineBuffer received;                   // arrived, and not yet asked for
    std::array<uint8_t, kReceiveSize> segment;
    std::unique_ptr<LoggedSocket2> sessionLog;

    bool isUsable(LogBase& log) {
        if (alive == kAlive && type != ConnectionType::None) return true;
        if (sessionLog) sessionLog->notConnected();
        log.logError("This socket is not connected");
        return false;
    }

    bool keep(std::span<const uint8_t> bytes) {
        if (sessionLog) sessionLog->received(bytes);
        received.append(bytes);
        return true;
    }

    // One segment from the network, or one record's text, into the buffer.
    bool receiveMore(CallContext& call, uint32_t maxIdleMs) {
        if (tls) {
            SecureBuffer text;
            return tls->receiveApplicationData(call, text, maxIdleMs) && alive == kAlive &&
                   keep(text.bytes());
        }
        size_t size = 0;
        return tcp.receiveBytes(call, segment, size, maxIdleMs) && alive == kAlive &&
               keep({segment.data(), size});
    }

    // What has arrived, without waiting.
    bool receiveReady() {
        if (tls) {
            LogNull quiet;
            CallContext call(quiet);
            SecureBuffer text;
            return tls->receiveReady(call, text) && keep(text.bytes());
        }
        size_t size = 0;
        return tcp.receiveReady(segment, size) && keep({segment.data(), size});
    }

    bool connectionFailed(CallContext& call) {
        logConnectFailReason(call);
        return false;
    }

    // A handshake over the open TCP connection. A failure closes it.
    bool secure(CallContext& call, int road, uint32_t maxIdleMs) {
        tls = std::make_unique<SChannelTolvane>(tcp);
        if (tls->handshake(call, serverName(host), port, tlsSettings, road, maxIdleMs) &&
            alive == kAlive) {
            type = ConnectionType::Tls;
            return true;
        }
        closeTcp(call);
        return false;
    }

    void closeTcp(CallContext& call) {
        tcp.terminateConnection(call, CloseForm::AtOnce, 0);
        type = ConnectionType::None;
        tls.reset();
        received.clear();
    }
};

Socket2::Socket2() : state_(std::make_shared<State>()) {}

Socket2::~Socket2() {
    LogNull quiet;
    CallContext call(quiet);
    state_->alive = 0;
    state_->tcp.terminateConnection(call, CloseForm::AtOnce, 0);
}

bool Socket2::mayRetryWithoutTls13(const CallContext& call) const {
    const TlsChannelSettings& settings = state_->tlsSettings;
    const bool unread = call.connectFailReason == ConnectFailReason::TlsNoServerHello ||
                        call.connectFailReason == ConnectFailReason::TlsServerHelloUnreadable;
    const tls::VersionRange range = tls::versionRange(settings.tlsProtocol);
    return unread && !settings.withoutTls13 && !tls::tlsOptions(call.log).disableTls13 &&
           range.contains(tls::Version::Tls13) && range.contains(tls::Version::Tls12);
}

// A server that falls silent or hangs up at a hello with TLS 1.3 is asked once more without it.
bool Socket2::connectTls(CallContext& call) {
    const auto state = state_;
    if (!connectTcp(call)) {
        call.log.logError("pmConnect failed.");
        return false;
    }
    if (state->secure(call, kImplicitRoad, state->connectTimeoutMs)) return true;
    if (!mayRetryWithoutTls13(call)) return false;
    call.log.logInfo("Failed to read the TLS server hello.  Retry without TLS 1.3");
    state->tlsSettings.withoutTls13 = true;
    call.timedOut = false;
    call.connectFailReason = ConnectFailReason::None;
    call.cause.clear();
    const bool success =
        connectTcp(call) && state->secure(call, kImplicitRoad, state->connectTimeoutMs);
    state->tlsSettings.withoutTls13 = false;
    return success;
}

bool Socket2::connectTcp(CallContext& call) {
    const auto state = state_;
    const ConnectTarget target{state->host, static_cast<uint16_t>(state->port),
                               state->connectTimeoutMs, state->preferIpv6};
    if (!connectSocket_v2(call, state->tcp, target) || state->alive != kAlive) {
        return false;
    }
    state->type = ConnectionType::Plain;
    if (state->tcpNoDelay) state->tcp.setTcpNoDelay(call.log, true);
    return true;
}

bool Socket2::connect2(CallContext& call, std::string_view hostname, int port, bool ssl) {
    const LogContextExitor context(call.log, "connect2");
    const auto state = state_;
    call.log.logData("hostname", hostname);
    call.log.logDataLong("port", port);
    call.log.logDataBool("ssl", ssl);
    call.timedOut = false;
    call.connectFailReason = ConnectFailReason::None;
    call.cause.clear();
    state->closeTcp(call);
    state->host = hostname;
    state->port = port;
    if (port < 1 || port > 65535) {
        call.log.logError("Cannot connect, the port is not a number from 1 to 65535.");
        call.connectFailReason = ConnectFailReason::InternalError;
        call.cause = "The port is not a number from 1 to 65535";
        return state->connectionFailed(call);
    }
    if (!ensureSocketLibrary(call.log)) {
        call.connectFailReason = ConnectFailReason::InternalError;
        call.cause = "The system's socket library did not start";
        return state->connectionFailed(call);
    }
    const bool success = ssl ? connectTls(call) : connectTcp(call);
    return success || state->connectionFailed(call);
}

bool Socket2::convertToTls(CallContext& call, std::string_view hostname, uint32_t maxIdleMs) {
    const LogContextExitor context(call.log, "convertToTls");
    const auto state = state_;
    call.log.logData("hostname", hostname);
    if (!state->isUsable(call.log) || state->type != ConnectionType::Plain) return false;
    state->host = hostname;
    return state->secure(call, kConversionRoad, maxIdleMs) || state->connectionFailed(call);
}

bool Socket2::isTls() const {
    return state_->type == ConnectionType::Tls;
}

std::string_view Socket2::connectionType() const {
    switch (state_->type) {
        case ConnectionType::Plain:
            return "Unencrypted TCP/IP";
        case ConnectionType::Tls:
            return "SSL/TLS";
        default:
            return {};
    }
}

bool Socket2::isConnected() const {
    return state_->type != ConnectionType::None && state_->tcp.isConnected() &&
           (!state_->tls || state_->tls->isOpen());
}

bool Socket2::isQuiet() {
    const auto state = state_;
    if (!isConnected() || !state->received.empty()) return false;
    return !state->receiveReady() && isConnected();
}

bool Socket2::sendBytes(CallContext& call, std::span<const uint8_t> bytes, uint32_t maxIdleMs) {
    const auto state = state_;
    call.anySent = false;
    if (!state->isUsable(call.log)) return false;
    if (call.checkAbort()) {
        call.log.logError("Socket SendBytes aborted by application.");
        return false;
    }
    size_t sent = 0;
    const bool success = state->tls ? state->tls->sendApplicationData(call, bytes, sent, maxIdleMs)
                                    : state->tcp.sendBytes(call, bytes, sent, maxIdleMs);
    call.anySent = sent > 0 || state->tls;  // TLS counts whole records alone
    if (state->sessionLog && sent > 0) state->sessionLog->sent(bytes.first(sent));
    if (success && state->alive == kAlive) return true;
    if (call.aborted) call.log.logError("Socket SendBytes2 aborted by application.");
    call.log.logError("Did not send all of the bytes.");
    call.log.logDataLong("numBytesToSend", static_cast<int64_t>(bytes.size()));
    call.log.logDataLong("numBytesSent", static_cast<int64_t>(sent));
    return false;
}

bool Socket2::receiveBytes(CallContext& call, DataBuffer& buffer, uint32_t maxIdleMs) {
    const auto state = state_;
    if (state->received.empty() &&
        (!state->isUsable(call.log) || !state->receiveMore(call, maxIdleMs))) {
        return false;
    }
    if (state->received.takeAll(buffer)) return true;
    call.log.logError("Out of memory while receiving.");
    return false;
}

bool Socket2::receiveUntilMatch(CallContext& call, DataBuffer& buffer, std::string_view match,
                                size_t maxSize, uint32_t maxIdleMs) {
    const auto state = state_;
    if (!state->isUsable(call.log)) return false;
    for (;;) {  // every round adds at least one byte, and maxSize bounds them
        switch (state->received.takeUntil(match, maxSize, buffer)) {
            case LineBuffer::Take::Found:
                return true;
            case LineBuffer::Take::NeedMore:
                break;
            case LineBuffer::Take::TooLong:
                call.log.logError("The end of the line did not come within the size allowed.");
                call.log.logDataLong("maxSize", static_cast<int64_t>(maxSize));
                return false;
            case LineBuffer::Take::NoMemory:
                call.log.logError("Out of memory while receiving.");
                return false;
        }
        if (!state->receiveMore(call, maxIdleMs)) return false;
    }
}

bool Socket2::hasBufferedInput() const {
    return !state_->received.empty();
}

void Socket2::setTcpNoDelay(LogBase& log, bool on) {
    state_->tcpNoDelay = on;
    if (isConnected()) state_->tcp.setTcpNoDelay(log, on);
}

void Socket2::setConnectTimeoutMs(uint32_t ms) {
    state_->connectTimeoutMs = ms;
}

void Socket2::setPreferIpv6(bool on) {
    state_->preferIpv6 = on;
}

const tls::Negotiated* Socket2::negotiated() const {
    return isTls() ? &state_->tls->engine()->negotiated() : nullptr;
}

TlsChannelSettings& Socket2::tlsSettings() {
    return state_->tlsSettings;
}

void Socket2::setSendBufSize(LogBase& log, uint32_t bytes) {
    state_->tcp.setSendBufSize(log, bytes);
}

void Socket2::setRecvBufSize(LogBase& log, uint32_t bytes) {
    state_->tcp.setRecvBufSize(log, bytes);
}

bool Socket2::startSessionLog(std::string_view utf8Path) {
    state_->sessionLog = std::make_unique<LoggedSocket2>();
    return utf8Path.empty() || state_->sessionLog->openFile(utf8Path);
}

const LoggedSocket2* Socket2::sessionLog() const {
    return state_->sessionLog.get();
}

void Socket2::close(CallContext& call, bool abrupt, uint32_t maxIdleMs) {
    const auto state = state_;
    if (state->tls && !abrupt) state->tls->closeNotify(call, maxIdleMs);
    state->closeTcp(call);
}

const std::string& Socket2::host() const {
    return state_->host;
}

int Socket2::port() const {
    return state_->port;
}

const std::string& Socket2::remoteIp() const {
    return state_->tcp.remoteIp();
}

}  // namespace tv
