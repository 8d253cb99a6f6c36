// One limit for all of it: the name, each of its addresses in turn with its share of the time, and
// the text for whatever ends the attempt.
#include "net/ConnectHost.h"

#include <algorithm>
#include <string>
#include <vector>

#include "log/LogContextExitor.h"
#include "net/resolve/HostName.h"
#include "net/resolve/Resolver.h"

namespace tv {
namespace {

constexpr uint64_t kLeastShareMs = 4000;
constexpr uint64_t kUnlimitedShareMs = 21000;  // as long as Windows itself tries

struct Attempt {
    const ConnectTarget& target;
    TolvaneSocket& socket;
    Deadline deadline;
    CallContext& call;
};

bool fail(Attempt& attempt, const char* text, ConnectFailReason reason) {
    attempt.call.log.logError(text);
    attempt.call.connectFailReason = reason;
    if (reason == ConnectFailReason::Timeout) attempt.call.timedOut = true;
    attempt.call.cause =
        reason == ConnectFailReason::InternalError ? "The system gave no socket" : "";
    return false;
}

// A fresh socket of the address's family, connected within limitMs (0: no limit).
bool connectAddress(Attempt& attempt, const plat::IpAddress& address, uint64_t limitMs) {
    attempt.call.cause.clear();
    const bool made = address.isIpv4() ? attempt.socket.createSocket_ipv4(attempt.call.log)
                                       : attempt.socket.createSocket_ipv6(attempt.call.log);
    if (!made) {
        return fail(attempt,
                    address.isIpv4() ? "Cannot connect, invalid IPv4 socket"
                                     : "Cannot connect, invalid IPv6 socket",
                    ConnectFailReason::InternalError);
    }
    return attempt.socket.connect(attempt.call, address, attempt.target.port,
                                  static_cast<uint32_t>(limitMs));
}

// What one address may cost while others wait for their turn; never 0, which would be no limit.
uint64_t shareOf(const Attempt& attempt, size_t addressesLeft) {
    if (attempt.target.connectTimeoutMs == 0) return kUnlimitedShareMs;
    const uint64_t left = attempt.deadline.leftMs();
    const uint64_t share = std::min(left, std::max(kLeastShareMs, left / addressesLeft));
    return std::max<uint64_t>(share, 1);
}

bool connectAddresses(Attempt& attempt, const std::vector<plat::IpAddress>& addresses) {
    LogBase& log = attempt.call.log;
    const Deadline watch(attempt.target.connectTimeoutMs);
    for (size_t i = 0; i < addresses.size(); ++i) {
        const plat::IpAddress& address = addresses[i];
        log.logData(address.isIpv4() ? "ipv4_address" : "ipv6_address", plat::toText(address));
        if (address.isIpv4()) log.logInfo("This is an IPV4 numeric address.");
        attempt.call.timedOut = false;
        if (connectAddress(attempt, address, shareOf(attempt, addresses.size() - i))) return true;
        if (attempt.call.aborted) {
            return fail(attempt, "Aborted by application.", ConnectFailReason::Aborted);
        }
        if (watch.clockWentBack()) {
            return fail(attempt, "Connect timeout.", ConnectFailReason::Timeout);
        }
        if (attempt.target.connectTimeoutMs != 0 && attempt.deadline.hasPassed()) {
            log.logDataLong("connectTimeoutMs", attempt.target.connectTimeoutMs);
            return fail(
                attempt,
                "Failed to make TCP connection before applications max wait time to connect.",
                ConnectFailReason::Timeout);
        }
    }
    log.logDataLong("addressesTried", static_cast<int64_t>(addresses.size()));
    log.logError("Failed.");
    return false;
}

// The first IPv6 address of the name, if it has one. False also where IPv4 is to be tried next.
bool connectPreferringIpv6(Attempt& attempt, std::string_view host) {
    std::vector<plat::IpAddress> addresses;
    if (!getAddressInfo(attempt.call, host, true, attempt.deadline, addresses)) {
        return false;
    }
    const plat::IpAddress& address = addresses.front();
    if (address.isIpv4()) return false;
    attempt.call.log.logData("ipv6_address", plat::toText(address));
    return connectAddress(attempt, address, shareOf(attempt, 2));
}

bool connect_domain(Attempt& attempt, std::string_view host) {
    const LogContextExitor context(attempt.call.log, "connect_domain");
    if (attempt.target.preferIpv6) {
        if (connectPreferringIpv6(attempt, host)) return true;
        if (attempt.call.aborted || attempt.call.timedOut) return false;
    }
    std::vector<plat::IpAddress> addresses;
    if (!dnsLookup(attempt.call, host, attempt.deadline, addresses)) return false;
    return connectAddresses(attempt, addresses);
}

bool connectHost(Attempt& attempt, const std::string& host) {
    if (const auto address = plat::parseIp(host)) {
        return connectAddress(attempt, *address, attempt.target.connectTimeoutMs);
    }
    return connect_domain(attempt, host);
}

}  // namespace

bool connectSocket_v2(CallContext& call, TolvaneSocket& socket, const ConnectTarget& target) {
    const LogContextExitor context(call.log, "connectSocket_v2");
    call.log.logData("domainOrIpAddress", target.host);
    call.log.logDataLong("port", target.port);
    call.log.logDataLong("connectTimeoutMs", target.connectTimeoutMs);
    Attempt attempt{target, socket,
                    target.connectTimeoutMs == 0
                        ? Deadline::unlimited(TolvaneSocket::kEndlessConnectMs)
                        : Deadline(target.connectTimeoutMs),
                    call};
    const std::string host = normalizeHost(target.host);
    if (host.empty()) {
        return fail(attempt, "Cannot connect, hostname is zero length",
                    ConnectFailReason::EmptyHostname);
    }
    const std::string place = host + ":" + std::to_string(target.port);
    if (call.monitor) call.monitor->textEvent("SocketConnect", place);
    if (!connectHost(attempt, host)) return false;
    call.connectFailReason = ConnectFailReason::None;
    if (call.monitor) call.monitor->textEvent("SocketConnected", place);
    return true;
}

}  // namespace tv
