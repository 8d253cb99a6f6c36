// Making a socket with its options, and the ways to close one. Connecting, waiting and moving
// bytes stand in the sources beside this one.
#include "net/stream/TolvaneSocket.h"

#include <algorithm>
#include <utility>

#include "log/LogContextExitor.h"
#include "log/LogNull.h"
#include "net/stream/SocketError.h"
#include "net/stream/SocketLibrary.h"

namespace tv {
namespace {

// The log of each connection tells both. They bound what may be under way in one round trip
// (RFC 7323, 1.1); the systems' own are small for long ways.
constexpr uint32_t kSendBufSize = 262144;
constexpr uint32_t kRecvBufSize = 4194304;
// Just below two minutes and half a minute, round times after which gateways forget a connection
// that is silent. They are asked to keep it for two hours (RFC 5382, 5), and many do not.
constexpr uint32_t kKeepAliveIdleMs = 119000;
constexpr uint32_t kKeepAliveIntervalMs = 29000;

std::atomic<uint32_t> socketsMade{0};

}  // namespace

TolvaneSocket::TolvaneSocket() : serialNumber_(++socketsMade) {}

TolvaneSocket::~TolvaneSocket() {
    alive_ = 0;
    LogNull log;
    closeHandle(log);
}

bool TolvaneSocket::createSocket_ipv4(LogBase& log) {
    const LogContextExitor context(log, "createSocket_ipv4");
    return createSocket(log, plat::AddressFamily::IPv4);
}

bool TolvaneSocket::createSocket_ipv6(LogBase& log) {
    const LogContextExitor context(log, "createSocket_ipv6");
    return createSocket(log, plat::AddressFamily::IPv6);
}

bool TolvaneSocket::createSocket(LogBase& log, plat::AddressFamily family) {
    const bool isIpv6 = family == plat::AddressFamily::IPv6;
    if (closing_) {
        log.logError("Another thread is closing this socket.");
        return false;
    }
    closeHandle(log);
    family_ = family;
    plat::NetError error = openSocket(log, family);
    // The host may have ended Winsock once more often than it started it.
    if (error.is(plat::NetCode::NotInitialised)) {
        if (!startupWSA(log)) {
            log.logError(isIpv6 ? "startupWSA failed (D)" : "startupWSA failed (B)");
            return false;
        }
        error = openSocket(log, family);
    }
    if (!error.ok()) {
        logSocketError(log, error);
        log.logError(isIpv6 ? "Failed to create TCP socket (AF_INET6 / SOCK_STREAM)"
                            : "Failed to create TCP socket (AF_INET / SOCK_STREAM)");
        return false;
    }
    if (isIpv6) {
        log.logInfo("Enabling dual-stack support...");
        if (!plat::sysNet().setOption(handle_, plat::SocketOption::V6Only, 0).ok()) {
            log.logInfo("Failed to set the socket option for IPv6/IPv4 dual-stack support.");
        }
    }
    if (!systemBufSizes_) setBufferSizes(log);
    keepAlive(log);
    return doClientBind(log);
}

plat::NetError TolvaneSocket::openSocket(LogBase& log, plat::AddressFamily family) {
    plat::SocketHandle opened = plat::kNoSocket;
    plat::NetError error = plat::sysNet().openTcp(family, false, opened);
    // Filters that hook into Winsock need not know protocol 0.
    if (error.is(plat::NetCode::Invalid)) {
        log.logInfo("Retry with IPPROTO_TCP explicitly specified...");
        error = plat::sysNet().openTcp(family, true, opened);
    }
    if (error.ok()) handle_ = opened;
    return error;
}

void TolvaneSocket::setBufferSizes(LogBase& log) {
    setSize(log, plat::SocketOption::SendBuffer, kSendBufSize);
    setSize(log, plat::SocketOption::ReceiveBuffer, kRecvBufSize);
}

void TolvaneSocket::setSize(LogBase& log, plat::SocketOption option, uint32_t bytes) {
    const bool isSend = option == plat::SocketOption::SendBuffer;
    log.logInfo(isSend ? "Setting SO_SNDBUF size" : "Setting SO_RCVBUF size");
    log.logDataLong(isSend ? "sendBufSize" : "recvBufSize", bytes);
    const plat::NetError error = plat::sysNet().setOption(handle_, option, bytes);
    if (!error.ok()) logSocketError(log, error);
}

// Failures do no harm: the connection works without.
void TolvaneSocket::keepAlive(LogBase& log) {
    plat::NetError error = plat::sysNet().setOption(handle_, plat::SocketOption::KeepAlive, 1);
    if (error.ok()) {
        error = plat::sysNet().setKeepAliveTimes(handle_, kKeepAliveIdleMs, kKeepAliveIntervalMs);
    }
    if (!error.ok()) logSocketError(log, error);
}

bool TolvaneSocket::doClientBind(LogBase& log) {
    if (bindIpAddress_.empty() && bindPort_ == 0) return true;
    const bool isIpv6 = family_ == plat::AddressFamily::IPv6;
    log.logData(isIpv6 ? "bindIpAddr2" : "bindIpAddr1", bindIpAddress_);
    log.logDataLong("bindPort", bindPort_);
    plat::Endpoint local;
    local.address.family = family_;
    local.port = bindPort_;
    if (!bindIpAddress_.empty()) {
        const auto address = plat::parseIp(bindIpAddress_);
        if (!address || address->family != family_) {
            log.logError("Failed to bind to local IP address");
            closeHandle(log);
            return false;
        }
        local.address = *address;
    }
    const plat::NetError error = plat::sysNet().bind(handle_, local);
    if (error.ok()) return true;
    logSocketError(log, error);
    log.logError("Failed to bind to local IP address");
    closeHandle(log);
    return false;
}

void TolvaneSocket::setClientBind(std::string_view ipAddress, uint16_t port) {
    bindIpAddress_ = ipAddress;
    bindPort_ = port;
}

bool TolvaneSocket::setTcpNoDelay(LogBase& log, bool on) {
    if (handle_ == plat::kNoSocket) return false;
    log.logInfo(on ? "Turning on TCP_NODELAY." : "Turning off TCP_NODELAY.");
    const plat::NetError error =
        plat::sysNet().setOption(handle_, plat::SocketOption::TcpNoDelay, on ? 1 : 0);
    if (!error.ok()) logSocketError(log, error);
    return error.ok();
}

void TolvaneSocket::terminateConnection(CallContext& call, CloseForm form, uint32_t maxWaitMs) {
    if (handle_ == plat::kNoSocket) return;
    const LogContextExitor context(call.log, "terminateConnection");
    closing_ = true;
    if (users_ > 0) return;  // the operation under way closes it
    if (form == CloseForm::Abortive) {
        call.log.logInfo("AbortiveClose");
        plat::sysNet().setZeroLinger(handle_);
    } else if (isConnected_ && !plat::sysNet().shutdownSend(handle_).ok()) {
        // Expected where the peer has reset the connection.
        call.log.logInfo("error on socket shutdown.");
    } else if (form == CloseForm::Graceful && isConnected_) {
        readUntilFin(call, maxWaitMs);
    }
    const bool clean = form == CloseForm::Graceful && !isConnected_;
    closeHandle(call.log);
    closing_ = false;
    call.log.logInfo(clean ? "Cleanly terminated TCP connection." : "Terminated TCP connection.");
}

// Throws away what still comes, within a time and a size.
void TolvaneSocket::readUntilFin(CallContext& call, uint32_t maxWaitMs) {
    constexpr size_t kMostBytes = size_t{16} * 1024 * 1024;
    uint8_t bytes[4096];
    const Deadline deadline(maxWaitMs == 0 ? kEndlessReadMs : maxWaitMs);
    for (size_t total = 0; total < kMostBytes;) {
        if (wait(call, plat::WaitFor::Readable, deadline)) return;
        size_t received = 0;
        const plat::NetError error = plat::sysNet().receive(handle_, bytes, received);
        if (error.is(plat::NetCode::WouldBlock)) continue;
        if (!error.ok()) return;
        if (received == 0) {
            call.log.logInfo("TCP connection cleanly closed by peer.");
            isConnected_ = false;
            return;
        }
        total += received;
    }
}

void TolvaneSocket::closeHandle(LogBase& log) {
    const plat::SocketHandle handle = handle_.exchange(plat::kNoSocket);
    isConnected_ = false;
    if (handle == plat::kNoSocket) return;
    if (!plat::sysNet().close(handle).ok()) log.logInfo("error on closesocket.");
}

void TolvaneSocket::finishClose() {
    LogNull log;
    closeHandle(log);
    closing_ = false;
}

}  // namespace tv
