// One limit for all of it: the name, each of its addresses in turn with its share of the time, and
// the text for whatever ends the attempt.
#include "net/ConnectHost.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "log/LogContextExitor.h"
#include "net/resolve/HostName.h"
#include "net/resolve/Resolver.h"

namespace tv {
namespace {

constexpr uint64_t kLeastShareMs = 4000;       // a SYN may be lost: Windows repeats it after 3 s
constexpr uint64_t kUnlimitedShareMs = 21000;  // as long as Windows itself tries

struct Attempt {
    const ConnectTarget& target;
    TolvaneSocket& socket;
    Deadline deadline;
    CallContext& call;
};

Failure fail(Attempt& attempt, const char* text, Cause cause) {
    attempt.call.log.logError(text);
    return Failure(cause, cause == Cause::Internal ? "The system gave no socket" : "");
}

// A fresh socket of the address's family, connected within limitMs (0: no limit).
Failure connectAddress(Attempt& attempt, const plat::IpAddress& address, uint64_t limitMs) {
    const bool made = address.isIpv4() ? attempt.socket.createSocket_ipv4(attempt.call.log)
                                       : attempt.socket.createSocket_ipv6(attempt.call.log);
    if (!made) {
        return fail(attempt,
                    address.isIpv4() ? "Cannot connect, invalid IPv4 socket"
                                     : "Cannot connect, invalid IPv6 socket",
                    Cause::Internal);
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

Failure connectAddresses(Attempt& attempt, const std::vector<plat::IpAddress>& addresses) {
    LogBase& log = attempt.call.log;
    const Deadline watch(attempt.target.connectTimeoutMs);
    Failure last;
    for (size_t i = 0; i < addresses.size(); ++i) {
        const plat::IpAddress& address = addresses[i];
        log.logData(address.isIpv4() ? "ipv4_address" : "ipv6_address", plat::toText(address));
        if (address.isIpv4()) log.logInfo("This is an IPV4 numeric address.");
        last = connectAddress(attempt, address, shareOf(attempt, addresses.size() - i));
        if (!last) return {};
        if (last.is(Cause::Aborted)) {
            return fail(attempt, "Aborted by application.", Cause::Aborted);
        }
        if (watch.clockWentBack()) {
            return fail(attempt, "Connect timeout.", Cause::ConnectTimeout);
        }
        if (attempt.target.connectTimeoutMs != 0 && attempt.deadline.hasPassed()) {
            log.logDataLong("connectTimeoutMs", attempt.target.connectTimeoutMs);
            return fail(
                attempt,
                "Failed to make TCP connection before applications max wait time to connect.",
                Cause::ConnectTimeout);
        }
    }
    log.logDataLong("addressesTried", static_cast<int64_t>(addresses.size()));
    log.logError("Failed.");
    return last;
}

// The first IPv6 address of the name, if it has one. IPv4 may be tried next where it has none, or
// where that could not be reached.
Failure connectPreferringIpv6(Attempt& attempt, std::string_view host) {
    std::vector<plat::IpAddress> addresses;
    if (Failure failure = lookUpPreferringIpv6(attempt.call, host, attempt.deadline, addresses)) {
        return failure;
    }
    const plat::IpAddress& address = addresses.front();
    if (address.isIpv4()) return Failure(Cause::DnsFailed);
    attempt.call.log.logData("ipv6_address", plat::toText(address));
    return connectAddress(attempt, address, shareOf(attempt, 2));  // IPv4 is the second
}

// Leaves those that may be tried.
Failure keepFamily(const ConnectTarget& target, std::vector<plat::IpAddress>& addresses) {
    const auto only = target.onlyFamily;
    if (!only) return {};
    std::erase_if(addresses, [&](const auto& address) { return address.family != *only; });
    if (!addresses.empty()) return {};
    return Failure(Cause::DnsFailed, std::string("The host has no ") +
                                         (*only == plat::AddressFamily::IPv4 ? "IPv4" : "IPv6") +
                                         " address, and no other may be used");
}

// The addresses that may be tried.
Failure lookUp(Attempt& attempt, std::string_view host, std::vector<plat::IpAddress>& addresses) {
    Failure failure = attempt.target.onlyFamily == plat::AddressFamily::IPv6
                          ? lookUpPreferringIpv6(attempt.call, host, attempt.deadline, addresses)
                          : dnsLookup(attempt.call, host, attempt.deadline, addresses);
    return failure ? std::move(failure) : keepFamily(attempt.target, addresses);
}

Failure connect_domain(Attempt& attempt, std::string_view host) {
    const LogContextExitor context(attempt.call.log, "connect_domain");
    if (attempt.target.preferIpv6) {
        Failure failure = connectPreferringIpv6(attempt, host);
        const bool final = !failure || failure.is(Cause::Aborted) ||
                           failure.is(Cause::ConnectTimeout) || failure.is(Cause::DnsTimeout);
        if (final) return failure;
    }
    std::vector<plat::IpAddress> addresses;
    if (Failure failure = lookUp(attempt, host, addresses)) return failure;
    return connectAddresses(attempt, addresses);
}

// A total time-out of the call may leave less than the connect time-out.
Deadline deadlineOf(const CallContext& call, const ConnectTarget& target) {
    const uint64_t limitMs = target.connectTimeoutMs;
    const bool shortened = call.total && (limitMs == 0 || call.total->leftMs() < limitMs);
    if (shortened) return Deadline(std::max<uint64_t>(call.total->leftMs(), 1));
    return limitMs == 0 ? Deadline::unlimited(TolvaneSocket::kEndlessConnectMs) : Deadline(limitMs);
}

Failure connectHost(Attempt& attempt, const std::string& host) {
    if (const auto address = plat::parseIp(host)) {
        std::vector<plat::IpAddress> addresses = {*address};
        if (Failure failure = keepFamily(attempt.target, addresses)) return failure;
        return connectAddress(attempt, *address, attempt.target.connectTimeoutMs);
    }
    return connect_domain(attempt, host);
}

}  // namespace

Failure connectSocket_v2(CallContext& call, TolvaneSocket& socket, const ConnectTarget& target) {
    const LogContextExitor context(call.log, "connectSocket_v2");
    call.log.logData("domainOrIpAddress", target.host);
    call.log.logDataLong("port", target.port);
    call.log.logDataLong("connectTimeoutMs", target.connectTimeoutMs);
    Attempt attempt{target, socket, deadlineOf(call, target), call};
    const std::string host = normalizeHost(target.host, target.onlyFamily);
    if (host.empty()) {
        return fail(attempt, "Cannot connect, hostname is zero length", Cause::EmptyHostname);
    }
    const std::string place = host + ":" + std::to_string(target.port);
    if (call.monitor) call.monitor->textEvent("SocketConnect", place);
    if (Failure failure = connectHost(attempt, host)) return failure;
    if (call.monitor) call.monitor->textEvent("SocketConnected", place);
    return {};
}

}  // namespace tv
