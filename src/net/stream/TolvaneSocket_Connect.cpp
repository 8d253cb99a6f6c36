// The non-blocking connect of one socket to one address.
#include <utility>

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

// Windows repeats the SYN after 3 and 9 s and gives up after 21 s, as seen from here a little
// sooner or later.
void logTwentyOneSeconds(LogBase& log, uint64_t waitedMs) {
    if (waitedMs < 20000 || waitedMs > 23000) return;
    log.logInfo(
        "The Windows TCP/IP stack has a system wide retry delay and retry count for the initial "
        "connection.");
    log.logInfo("The default settings result in an overall 21 second timeout.");
}

}  // namespace

Failure TolvaneSocket::connect(CallContext& call, const plat::IpAddress& address, uint16_t port,
                               uint32_t connectTimeoutMs) {
    const LogContextExitor context(call.log, "connect");
    const InUse use(*this);
    if (handle_ == plat::kNoSocket) {
        call.log.logError("Cannot connect, invalid socket");
        return Failure(Cause::Internal);
    }
    remoteIp_ = plat::toText(address);
    plat::NetError error = plat::sysNet().setNonBlocking(handle_);
    if (!error.ok()) {
        logSocketError(call.log, error);
        return connectFailed(call.log, Cause::Internal,
                             "The system could not make a socket that does not block");
    }
    error = plat::sysNet().connect(handle_, {address, port});
    if (error.is(NetCode::WouldBlock)) {
        const uint32_t timeoutMs = connectTimeoutMs == 0 ? kEndlessConnectMs : connectTimeoutMs;
        if (Failure failure = awaitConnect(call, timeoutMs)) return failure;
    } else if (!error.ok()) {
        explainConnectError(call.log, error, 0);
        return connectFailed(call.log, Cause::Rejected);
    }
    connected(call.log);
    return {};
}

Failure TolvaneSocket::awaitConnect(CallContext& call, uint32_t timeoutMs) {
    call.log.logInfo("Waiting for the connect to complete...");
    call.log.logDataLong("connectTimeoutMs", timeoutMs);
    const Deadline watch(timeoutMs);
    if (const Failure failure = wait(call, plat::WaitFor::Writable, watch)) {
        call.log.logError("failedWaitToConnect");
        if (failure.is(Cause::Timeout)) {
            logFirewallHint(call.log);
            logTwentyOneSeconds(call.log, watch.elapsedMs());
            return connectFailed(call.log, Cause::ConnectTimeout);
        }
        return connectFailed(call.log,
                             failure.is(Cause::Aborted) ? Cause::Aborted : Cause::Rejected);
    }
    plat::NetError pending;
    if (!plat::sysNet().pendingError(handle_, pending).ok()) {
        call.log.logInfo("Failed to get SO_ERROR on socket.");
    } else if (!pending.ok()) {
        call.log.logError("getsockopt indicates an error.");
        explainConnectError(call.log, pending, watch.elapsedMs());
        return connectFailed(call.log, Cause::Rejected);
    }
    return {};
}

void TolvaneSocket::explainConnectError(LogBase& log, const plat::NetError& error,
                                        uint64_t waitedMs) {
    logSocketError(log, error);
    if (!error.is(NetCode::ConnectionRefused) && !error.is(NetCode::TimedOut)) return;
    logFirewallHint(log);
    if (error.is(NetCode::TimedOut)) logTwentyOneSeconds(log, waitedMs);
}

Failure TolvaneSocket::connectFailed(LogBase& log, Cause cause, std::string text) {
    closeHandle(log);
    return Failure(cause, std::move(text));
}

void TolvaneSocket::connected(LogBase& log) {
    isConnected_ = true;
    localAddress_.reset();
    plat::Endpoint local;
    if (plat::sysNet().localEndpoint(handle_, local).ok()) {
        localAddress_ = local.address;
        log.logData("myIP", plat::toText(local.address));
        log.logDataLong("myPort", local.port);
    }
    log.logInfo("socket connect successful.");
}

}  // namespace tv
