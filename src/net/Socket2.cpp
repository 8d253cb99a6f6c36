// The connection under the SMTP session: which socket the bytes go through, and the buffer of
// what has come and was not asked for yet.
#include "net/Socket2.h"

#include <array>
#include <atomic>

#include "log/LogContextExitor.h"
#include "log/LogNull.h"
#include "net/AgainWithoutTls13.h"
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

constexpr size_t kReceiveSize = 16384;  // of clear text at once; the log's maxToReceive
constexpr uint32_t kDefaultConnectTimeoutMs = 30000;

enum class ConnectionType { None = 0, Plain = 1, Tls = 2 };

}  // namespace

struct Socket2::State {
    std::atomic<bool> alive{true};  // false: the Socket2 is gone, an operation is still under way
    TolvaneSocket tcp;
    ConnectionType type = ConnectionType::None;
    bool tcpNoDelay = false;
    bool preferIpv6 = false;
    std::optional<plat::AddressFamily> onlyFamily;
    uint32_t connectTimeoutMs = kDefaultConnectTimeoutMs;
    std::string host;
    int port = 0;
    TlsChannelSettings tlsSettings;
    std::unique_ptr<SChannelTolvane> tls;  // present while the connection is, or is made, secure
    LineBuffer received;                   // arrived, and not yet asked for
    std::array<uint8_t, kReceiveSize> segment;
    std::unique_ptr<LoggedSocket2> sessionLog;

    Failure whyUnusable(LogBase& log) {
        if (alive && type != ConnectionType::None) return {};
        if (sessionLog) sessionLog->notConnected();
        log.logError("This socket is not connected");
        return Failure(Cause::ConnectionLost);
    }

    // What has come: text of the TLS channel, or size bytes of the segment.
    void keep(size_t size) {
        const std::span<const uint8_t> bytes =
            tls ? tls->input().bytes() : std::span(segment).first(size);
        if (sessionLog) sessionLog->received(bytes);
        if (tls) {
            received.takeFrom(tls->input());
        } else {
            received.append(bytes);
        }
    }

    // A socket that another thread destroyed meanwhile has no success.
    Failure ifAlive(Failure failure) const {
        if (failure || alive) return failure;
        return Failure(Cause::ConnectionLost);
    }

    // One segment from the network, or one record's text, into the buffer.
    Failure receiveMore(CallContext& call, uint32_t idleTimeoutMs) {
        size_t size = 0;
        Failure failure = ifAlive(tls ? tls->receiveApplicationData(call, idleTimeoutMs)
                                      : tcp.receiveBytes(call, segment, size, idleTimeoutMs));
        if (!failure) keep(size);
        return failure;
    }

    // What has arrived, without waiting.
    bool receiveReady() {
        size_t size = 0;
        LogNull quiet;
        CallContext call(quiet);
        const bool any = tls ? tls->receiveReady(call) : tcp.receiveReady(segment, size);
        if (any) keep(size);
        return any;
    }

    // A handshake over the open TCP connection. A failure closes it.
    Failure secure(CallContext& call, TlsStart start, uint32_t idleTimeoutMs) {
        tls = std::make_unique<SChannelTolvane>(tcp);
        Failure failure = ifAlive(
            tls->handshake(call, serverName(host), port, tlsSettings, start, idleTimeoutMs));
        if (failure) {
            closeTcp(call);
        } else {
            type = ConnectionType::Tls;
        }
        return failure;
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
    state_->alive = false;
    state_->tcp.terminateConnection(call, CloseForm::AtOnce, 0);
}

Failure Socket2::connectTls(CallContext& call) {
    const auto state = state_;
    if (Failure failure = connectTcp(call)) {
        call.log.logError("pmConnect failed.");
        return failure;
    }
    const auto secure = [&] {
        return state->secure(call, TlsStart::Implicit, state->connectTimeoutMs);
    };
    TlsChannelSettings& tls = state->tlsSettings;
    return againWithoutTls13(call.log, tls.tlsProtocol, tls.withoutTls13, secure(), [&] {
        Failure failure = connectTcp(call);
        return failure ? std::move(failure) : secure();
    });
}

Failure Socket2::connectTcp(CallContext& call) {
    const auto state = state_;
    const ConnectTarget target{state->host, static_cast<uint16_t>(state->port),
                               state->connectTimeoutMs, state->preferIpv6, state->onlyFamily};
    Failure failure = state->ifAlive(connectSocket_v2(call, state->tcp, target));
    if (failure) return failure;
    state->type = ConnectionType::Plain;
    if (state->tcpNoDelay) state->tcp.setTcpNoDelay(call.log, true);
    return {};
}

Failure Socket2::connect2(CallContext& call, std::string_view hostname, int port, bool ssl) {
    const LogContextExitor context(call.log, "connect2");
    const auto state = state_;
    call.log.logData("hostname", hostname);
    call.log.logDataLong("port", port);
    call.log.logDataBool("ssl", ssl);
    state->closeTcp(call);
    state->host = hostname;
    state->port = port;
    Failure failure;
    if (port < 1 || port > 65535) {
        call.log.logError("Cannot connect, the port is not a number from 1 to 65535.");
        failure = Failure(Cause::Internal, "The port is not a number from 1 to 65535");
    } else if (!ensureSocketLibrary(call.log)) {
        failure = Failure(Cause::Internal, "The system's socket library did not start");
    } else {
        failure = ssl ? connectTls(call) : connectTcp(call);
    }
    if (failure) logConnectFailReason(call.log, failure);
    return failure;
}

Failure Socket2::convertToTls(CallContext& call, std::string_view hostname,
                              uint32_t idleTimeoutMs) {
    const LogContextExitor context(call.log, "convertToTls");
    const auto state = state_;
    call.log.logData("hostname", hostname);
    if (Failure failure = state->whyUnusable(call.log)) return failure;
    if (state->type != ConnectionType::Plain) return Failure(Cause::Internal);
    state->host = hostname;
    Failure failure = state->secure(call, TlsStart::StartTls, idleTimeoutMs);
    if (failure) logConnectFailReason(call.log, failure);
    return failure;
}

bool Socket2::isTls() const {
    return state_->type == ConnectionType::Tls;
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

Failure Socket2::sendBytes(CallContext& call, std::span<const uint8_t> bytes,
                           uint32_t idleTimeoutMs) {
    const auto state = state_;
    if (Failure failure = state->whyUnusable(call.log)) return failure;
    if (call.mustStop()) {
        call.log.logError("Socket SendBytes aborted by application.");
        return Failure(Cause::Aborted);
    }
    size_t sent = 0;
    Failure failure = state->ifAlive(
        state->tls ? state->tls->sendApplicationData(call, bytes, sent, idleTimeoutMs)
                   : state->tcp.sendBytes(call, bytes, sent, idleTimeoutMs));
    if (state->sessionLog && sent > 0) state->sessionLog->sent(bytes.first(sent));
    if (!failure) return {};
    if (failure.is(Cause::Aborted)) call.log.logError("Socket SendBytes2 aborted by application.");
    call.log.logError("Did not send all of the bytes.");
    call.log.logDataLong("numBytesToSend", static_cast<int64_t>(bytes.size()));
    call.log.logDataLong("numBytesSent", static_cast<int64_t>(sent));
    return std::move(failure).withAnySent(sent > 0 ||
                                          state->tls);  // TLS counts whole records alone
}

Failure Socket2::receiveBytes(CallContext& call, DataBuffer& buffer, uint32_t idleTimeoutMs) {
    const auto state = state_;
    if (state->received.empty()) {
        if (Failure failure = state->whyUnusable(call.log)) return failure;
        if (Failure failure = state->receiveMore(call, idleTimeoutMs)) return failure;
    }
    if (state->received.takeAll(buffer)) return {};
    call.log.logError("Out of memory while receiving.");
    return Failure(Cause::OutOfMemory);
}

Failure Socket2::receiveUntilMatch(CallContext& call, DataBuffer& buffer, std::string_view match,
                                   size_t maxSize, uint32_t idleTimeoutMs) {
    const auto state = state_;
    if (Failure failure = state->whyUnusable(call.log)) return failure;
    for (;;) {  // every round adds at least one byte, and maxSize bounds them
        switch (state->received.takeUntil(match, maxSize, buffer)) {
            case LineBuffer::Take::Found:
                return {};
            case LineBuffer::Take::NeedMore:
                break;
            case LineBuffer::Take::TooLong:
                call.log.logError("The end of the line did not come within the size allowed.");
                call.log.logDataLong("maxSize", static_cast<int64_t>(maxSize));
                return Failure(Cause::LineTooLong);
            case LineBuffer::Take::NoMemory:
                call.log.logError("Out of memory while receiving.");
                return Failure(Cause::OutOfMemory);
        }
        if (Failure failure = state->receiveMore(call, idleTimeoutMs)) return failure;
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

void Socket2::setOnlyFamily(std::optional<plat::AddressFamily> family) {
    state_->onlyFamily = family;
}

void Socket2::setLocalAddress(std::string_view address) {
    state_->tcp.setClientBind(address, 0);
}

const tls::Negotiated* Socket2::negotiated() const {
    return isTls() ? &state_->tls->engine()->negotiated() : nullptr;
}

TlsChannelSettings& Socket2::tlsSettings() {
    return state_->tlsSettings;
}

bool Socket2::startSessionLog(std::string_view utf8Path) {
    state_->sessionLog = std::make_unique<LoggedSocket2>();
    return utf8Path.empty() || state_->sessionLog->openFile(utf8Path);
}

const LoggedSocket2* Socket2::sessionLog() const {
    return state_->sessionLog.get();
}

void Socket2::close(CallContext& call, bool abrupt, uint32_t idleTimeoutMs) {
    const auto state = state_;
    if (state->tls && !abrupt) state->tls->closeNotify(call, idleTimeoutMs);
    state->closeTcp(call);
}

const std::string& Socket2::remoteIp() const {
    return state_->tcp.remoteIp();
}

const std::optional<plat::IpAddress>& Socket2::localAddress() const {
    return state_->tcp.localAddress();
}

}  // namespace tv
