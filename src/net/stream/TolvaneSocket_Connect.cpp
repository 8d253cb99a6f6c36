// The non-blocking connect of one socket to one address.
#include "log/LogContextExitor.h"
#include "net/stream/SocketError.h"
#include "net/stream/TolvaneSocket.h"

namespace tv {
namespace {

using plat::NetCode;

void logFirewallHint(LogBase& log) {
    log.logInfo(
        "Check to make sure the connection is not blocked by a firewall or anti-virus port "
        "filtering.");
}

void logTwentyOneSeconds(uint64_t waitedMs, LogBase& log) {
    if (waitedMs < 20000 || waitedMs > 23000) return;
    log.logInfo(
        "The Windows TCP/IP stack has a system wide retry delay and retry count for the initial "
        "connection.");
    log.logInfo("The default settings result in an overall 21 second timeout.");
}

}  // namespace

bool TolvaneSocket::connect(const plat::IpAddress& address, uint16_t port,
                            uint32_t connectTimeoutMs, LogBase& log, SocketParams& params) {
    const LogContextExitor context(log, "connect");
    const InUse use(*this);
    if (handle_ == plat::kNoSocket) {
        log.logError("Cannot connect, invalid socket");
        params.connectFailReason = ConnectFailReason::InternalError;
        return false;
    }
    remoteIp_ = plat::toText(address);
    plat::NetError error = plat::sysNet().setNonBlocking(handle_);
    if (!error.ok()) {
        logSocketError(error, log);
        params.cause = "The system could not make a socket that does not block";
        return connectFailed(ConnectFailReason::InternalError, log, params);
    }
    error = plat::sysNet().connect(handle_, {address, port});
    if (error.is(NetCode::WouldBlock)) {
        const uint32_t timeoutMs = connectTimeoutMs == 0 ? kEndlessConnectMs : connectTimeoutMs;
        if (!awaitConnect(timeoutMs, log, params)) return false;
    } else if (!error.ok()) {
        explainConnectError(error, 0, log);
        return connectFailed(ConnectFailReason::Rejected, log, params);
    }
    connected(log);
    return true;
}

bool TolvaneSocket::awaitConnect(uint32_t timeoutMs, LogBase& log, SocketParams& params) {
    log.logInfo("Waiting for the connect to complete...");
    log.logDataLong("connectTimeoutMs", timeoutMs);
    const Deadline watch(timeoutMs);
    const Waited waited = wait(plat::WaitFor::Writable, watch, log, params);
    if (waited != Waited::Ready) {
        log.logError("failedWaitToConnect");
        if (waited == Waited::TimedOut) {
            logFirewallHint(log);
            logTwentyOneSeconds(watch.elapsedMs(), log);
        }
        return connectFailed(waited == Waited::Aborted    ? ConnectFailReason::Aborted
                             : waited == Waited::TimedOut ? ConnectFailReason::Timeout
                                                          : ConnectFailReason::Rejected,
                             log, params);
    }
    plat::NetError pending;
    if (!plat::sysNet().pendingError(handle_, pending).ok()) {
        log.logInfo("Failed to get SO_ERROR on socket.");
    } else if (!pending.ok()) {
        log.logError("getsockopt indicates an error.");
        explainConnectError(pending, watch.elapsedMs(), log);
        return connectFailed(ConnectFailReason::Rejected, log, params);
    }
    return true;
}

void TolvaneSocket::explainConnectError(const plat::NetError& error, uint64_t waitedMs,
                                        LogBase& log) {
    logSocketError(error, log);
    if (!error.is(NetCode::ConnectionRefused) && !error.is(NetCode::TimedOut)) return;
    logFirewallHint(log);
    if (error.is(NetCode::TimedOut)) logTwentyOneSeconds(waitedMs, log);
}

bool TolvaneSocket::connectFailed(ConnectFailReason reason, LogBase& log, SocketParams& params) {
    params.connectFailReason = reason;
    closeHandle(log);
    return false;
}

void TolvaneSocket::connected(LogBase& log) {
    isConnected_ = true;
    sentFin_ = false;
    plat::Endpoint local;
    if (plat::sysNet().localEndpoint(handle_, local).ok()) {
        log.logData("myIP", plat::toText(local.address));
        log.logDataLong("myPort", local.port);
    }
    log.logInfo("socket connect successful.");
}

}  // namespace tv
