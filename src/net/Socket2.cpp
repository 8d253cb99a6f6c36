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
    bool receiveMore(uint32_t maxIdleMs, LogBase& log, SocketParams& params) {
        if (tls) {
            SecureBuffer text;
            return tls->receiveApplicationData(text, maxIdleMs, log, params) && alive == kAlive &&
                   keep(text.bytes());
        }
        size_t size = 0;
        return tcp.receiveBytes(segment, size, maxIdleMs, log, params) && alive == kAlive &&
               keep({segment.data(), size});
    }

    // What has arrived, without waiting.
    bool receiveReady() {
        LogNull log;
        if (tls) {
            SocketParams params;
            SecureBuffer text;
            return tls->receiveReady(text, log, params) && keep(text.bytes());
        }
        size_t size = 0;
        return tcp.receiveReady(segment, size) && keep({segment.data(), size});
    }

    bool connectionFailed(LogBase& log, SocketParams& params) {
        logConnectFailReason(params, log);
        return false;
    }

    // A handshake over the open TCP connection. A failure closes it.
    bool secure(int road, uint32_t maxIdleMs, LogBase& log, SocketParams& params) {
        tls = std::make_unique<SChannelTolvane>(tcp);
        if (tls->handshake(serverName(host), port, tlsSettings, road, maxIdleMs, log, params) &&
            alive == kAlive) {
            type = ConnectionType::Tls;
            return true;
        }
        closeTcp(log, params);
        return false;
    }

    void closeTcp(LogBase& log, SocketParams& params) {
        tcp.terminateConnection(CloseForm::AtOnce, 0, log, params);
        type = ConnectionType::None;
        tls.reset();
        received.clear();
    }
};

Socket2::Socket2() : state_(std::make_shared<State>()) {}

Socket2::~Socket2() {
    LogNull log;
    SocketParams params;
    state_->alive = 0;
    state_->tcp.terminateConnection(CloseForm::AtOnce, 0, log, params);
}

bool Socket2::mayRetryWithoutTls13(const LogBase& log, const SocketParams& params) const {
    const TlsChannelSettings& settings = state_->tlsSettings;
    const bool unread = params.connectFailReason == ConnectFailReason::TlsNoServerHello ||
                        params.connectFailReason == ConnectFailReason::TlsServerHelloUnreadable;
    const tls::VersionRange range = tls::versionRange(settings.tlsProtocol);
    return unread && !settings.withoutTls13 && !tls::tlsOptions(log).disableTls13 &&
           range.contains(tls::Version::Tls13) && range.contains(tls::Version::Tls12);
}

// A server that falls silent or hangs up at a hello with TLS 1.3 is asked once more without it.
bool Socket2::connectTls(LogBase& log, SocketParams& params) {
    const auto state = state_;
    if (!connectTcp(log, params)) {
        log.logError("pmConnect failed.");
        return false;
    }
    if (state->secure(kImplicitRoad, state->connectTimeoutMs, log, params)) return true;
    if (!mayRetryWithoutTls13(log, params)) return false;
    log.logInfo("Failed to read the TLS server hello.  Retry without TLS 1.3");
    state->tlsSettings.withoutTls13 = true;
    params.timedOut = false;
    params.connectFailReason = ConnectFailReason::None;
    params.cause.clear();
    const bool success = connectTcp(log, params) &&
                         state->secure(kImplicitRoad, state->connectTimeoutMs, log, params);
    state->tlsSettings.withoutTls13 = false;
    return success;
}

bool Socket2::connectTcp(LogBase& log, SocketParams& params) {
    const auto state = state_;
    const ConnectTarget target{state->host, static_cast<uint16_t>(state->port),
                               state->connectTimeoutMs, state->preferIpv6};
    if (!connectSocket_v2(state->tcp, target, log, params) || state->alive != kAlive) {
        return false;
    }
    state->type = ConnectionType::Plain;
    if (state->tcpNoDelay) state->tcp.setTcpNoDelay(true, log);
    return true;
}

bool Socket2::connect2(std::string_view hostname, int port, bool ssl, LogBase& log,
                       SocketParams& params) {
    const LogContextExitor context(log, "connect2");
    const auto state = state_;
    log.logData("hostname", hostname);
    log.logDataLong("port", port);
    log.logDataBool("ssl", ssl);
    params.timedOut = false;
    params.connectFailReason = ConnectFailReason::None;
    params.cause.clear();
    state->closeTcp(log, params);
    state->host = hostname;
    state->port = port;
    if (port < 1 || port > 65535) {
        log.logError("Cannot connect, the port is not a number from 1 to 65535.");
        params.connectFailReason = ConnectFailReason::InternalError;
        params.cause = "The port is not a number from 1 to 65535";
        return state->connectionFailed(log, params);
    }
    if (!ensureSocketLibrary(log)) {
        params.connectFailReason = ConnectFailReason::InternalError;
        params.cause = "The system's socket library did not start";
        return state->connectionFailed(log, params);
    }
    const bool success = ssl ? connectTls(log, params) : connectTcp(log, params);
    return success || state->connectionFailed(log, params);
}

bool Socket2::convertToTls(std::string_view hostname, uint32_t maxIdleMs, LogBase& log,
                           SocketParams& params) {
    const LogContextExitor context(log, "convertToTls");
    const auto state = state_;
    log.logData("hostname", hostname);
    if (!state->isUsable(log) || state->type != ConnectionType::Plain) return false;
    state->host = hostname;
    return state->secure(kConversionRoad, maxIdleMs, log, params) ||
           state->connectionFailed(log, params);
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

bool Socket2::sendBytes(std::span<const uint8_t> bytes, uint32_t maxIdleMs, LogBase& log,
                        SocketParams& params) {
    const auto state = state_;
    params.anySent = false;
    if (!state->isUsable(log)) return false;
    if (params.checkAbort()) {
        log.logError("Socket SendBytes aborted by application.");
        return false;
    }
    size_t sent = 0;
    const bool success = state->tls
                             ? state->tls->sendApplicationData(bytes, sent, maxIdleMs, log, params)
                             : state->tcp.sendBytes(bytes, sent, maxIdleMs, log, params);
    params.anySent = sent > 0 || state->tls;  // TLS counts whole records alone
    if (state->sessionLog && sent > 0) state->sessionLog->sent(bytes.first(sent));
    if (success && state->alive == kAlive) return true;
    if (params.aborted) log.logError("Socket SendBytes2 aborted by application.");
    log.logError("Did not send all of the bytes.");
    log.logDataLong("numBytesToSend", static_cast<int64_t>(bytes.size()));
    log.logDataLong("numBytesSent", static_cast<int64_t>(sent));
    return false;
}

bool Socket2::receiveBytes(DataBuffer& buffer, uint32_t maxIdleMs, LogBase& log,
                           SocketParams& params) {
    const auto state = state_;
    if (state->received.empty() &&
        (!state->isUsable(log) || !state->receiveMore(maxIdleMs, log, params))) {
        return false;
    }
    if (state->received.takeAll(buffer)) return true;
    log.logError("Out of memory while receiving.");
    return false;
}

bool Socket2::receiveUntilMatch(DataBuffer& buffer, std::string_view match, size_t maxSize,
                                uint32_t maxIdleMs, LogBase& log, SocketParams& params) {
    const auto state = state_;
    if (!state->isUsable(log)) return false;
    for (;;) {  // every round adds at least one byte, and maxSize bounds them
        switch (state->received.takeUntil(match, maxSize, buffer)) {
            case LineBuffer::Take::Found:
                return true;
            case LineBuffer::Take::NeedMore:
                break;
            case LineBuffer::Take::TooLong:
                log.logError("The end of the line did not come within the size allowed.");
                log.logDataLong("maxSize", static_cast<int64_t>(maxSize));
                return false;
            case LineBuffer::Take::NoMemory:
                log.logError("Out of memory while receiving.");
                return false;
        }
        if (!state->receiveMore(maxIdleMs, log, params)) return false;
    }
}

bool Socket2::hasBufferedInput() const {
    return !state_->received.empty();
}

void Socket2::setTcpNoDelay(bool on, LogBase& log) {
    state_->tcpNoDelay = on;
    if (isConnected()) state_->tcp.setTcpNoDelay(on, log);
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

void Socket2::setSendBufSize(uint32_t bytes, LogBase& log) {
    state_->tcp.setSendBufSize(bytes, log);
}

void Socket2::setRecvBufSize(uint32_t bytes, LogBase& log) {
    state_->tcp.setRecvBufSize(bytes, log);
}

bool Socket2::startSessionLog(std::string_view utf8Path) {
    state_->sessionLog = std::make_unique<LoggedSocket2>();
    return utf8Path.empty() || state_->sessionLog->openFile(utf8Path);
}

const LoggedSocket2* Socket2::sessionLog() const {
    return state_->sessionLog.get();
}

void Socket2::close(bool abrupt, uint32_t maxIdleMs, LogBase& log, SocketParams& params) {
    const auto state = state_;
    if (state->tls && !abrupt) state->tls->closeNotify(maxIdleMs, log, params);
    state->closeTcp(log, params);
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
