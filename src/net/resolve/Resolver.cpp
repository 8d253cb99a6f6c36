// The order of all sources: literal address, hosts file, cache, name servers, the system's
// resolver.
#include "net/resolve/Resolver.h"

#include <algorithm>
#include <string>

#include "base/Ascii.h"
#include "log/LogContextExitor.h"
#include "net/resolve/DnsClient.h"
#include "net/resolve/HostName.h"
#include "net/resolve/NameServers.h"
#include "net/resolve/ResolverState.h"
#include "net/stream/SocketError.h"
#include "net/stream/SocketLibrary.h"
#include "platform/SysSocket.h"

namespace tv {
namespace {

using plat::AddressFamily;
using plat::NetCode;

// The system's resolver cannot be stopped: with less time left it is not asked.
constexpr uint64_t kLeastTimeMs = 1000;
// What is kept back for it from the name servers: a quarter of the time, but no more than this.
constexpr uint64_t kMostForSystemMs = 5000;

// The form under which a name is remembered: "host.tld." and "host.tld" are the same.
std::string_view withoutDot(std::string_view name) {
    return name.substr(0, name.size() - (name.back() == '.' ? 1 : 0));
}

plat::NetError askSystem(LogBase& log, const std::string& name, AddressFamily family,
                         std::vector<plat::IpAddress>& addresses) {
    if (!ensureSocketLibrary(log)) return {NetCode::NotInitialised, 0};
    log.logData("systemResolver", family == AddressFamily::IPv4 ? "asking for IPv4 addresses"
                                                                : "asking for IPv6 addresses");
    const uint64_t startMs = plat::sysClock().tickMs();
    plat::NetError error = plat::sysNet().lookupHost(name, family, addresses);
    if (error.is(NetCode::NotInitialised) && startupWSA(log)) {
        error = plat::sysNet().lookupHost(name, family, addresses);
    }
    log.logElapsed("systemResolver", startMs);
    return error;
}

// The name exists but has no address of that family.
bool isJustMissing(const plat::NetError& error) {
    return error.is(NetCode::NoData) || error.is(NetCode::HostNotFound);
}

// The last resort, unless the application wants others kept out of it.
Failure askSystemInstead(CallContext& call, const std::string& name, const Deadline& deadline,
                         std::vector<plat::IpAddress>& addresses) {
    const ResolverState& state = resolverState();
    call.log.logDataLong("num_app_defined_ns", static_cast<int64_t>(state.ownNameServers.size()));
    if (!state.ownNameServers.empty()) return Failure(Cause::DnsFailed);
    if (state.requireTls) {
        call.log.logInfo("The system's resolver is not asked: it may not use TLS.");
        return Failure(Cause::DnsFailed);
    }
    return getAddressInfo(call, name, false, deadline, addresses);
}

// Whom to ask; empty where only the system's resolver may be.
std::vector<plat::IpAddress> serversFor(LogBase& log, const std::string& name) {
    ResolverState& state = resolverState();
    std::vector<plat::IpAddress> servers = state.ownNameServers;
    if (servers.empty()) {
        NameServers system = systemNameServers(log);
        servers = std::move(system.addresses);
        if (servers.empty() && system.hasOthers) {
            log.logError("No DNS nameservers have been defined.");
        } else if (servers.empty() && system.isInside(name)) {
            log.logInfo("Names of the local network are left to the system's resolver.");
        } else if (servers.empty()) {
            servers = publicNameServers();
            log.logInfo("The system lists no nameservers: using 8.8.8.8 and 1.1.1.1.");
        }
    }
    if (servers.size() > NameServers::kMost) servers.resize(NameServers::kMost);
    state.order(servers, plat::sysClock().tickMs());
    return servers;
}

// Silent servers must not use up the time of the system's resolver, which may reach others.
Deadline withoutLastResort(const Deadline& deadline, const ResolverState& state) {
    const uint64_t left = deadline.leftMs();
    const uint64_t kept = std::min(left / 4, kMostForSystemMs);
    const bool isAlone = state.requireTls || !state.ownNameServers.empty();
    if (isAlone || !deadline.isLimited() || kept < kLeastTimeMs) return deadline;
    return Deadline(left - kept);
}

// Asks name servers and remembers what they said, and which of them did not.
Failure queryServers(CallContext& call, const std::string& name,
                     const std::vector<plat::IpAddress>& servers, const Deadline& deadline,
                     DnsOutcome& outcome) {
    ResolverState& state = resolverState();
    Failure failure = doDnsQuery(call, name, servers, state.requireTls,
                                 withoutLastResort(deadline, state), outcome);
    const uint64_t nowMs = plat::sysClock().tickMs();
    for (const plat::IpAddress& server : outcome.silent) {
        state.noteServer(server, false, nowMs);
    }
    if (outcome.server) state.noteServer(*outcome.server, true, nowMs);
    return failure;
}

Failure resolveByQuery(CallContext& call, const std::string& name, const Deadline& deadline,
                       std::vector<plat::IpAddress>& addresses) {
    const std::vector<plat::IpAddress> servers = serversFor(call.log, name);
    DnsOutcome outcome;
    const Failure unanswered = servers.empty()
                                   ? Failure(Cause::DnsFailed)
                                   : queryServers(call, name, servers, deadline, outcome);
    if (call.wasStopped()) return Failure(Cause::Aborted);
    if (!unanswered && outcome.reply.kind == dns::ReplyKind::Addresses) {
        resolverState().keep(withoutDot(name), outcome.reply, plat::sysClock().tickMs());
        addresses = outcome.reply.addresses;
        return {};
    }
    const bool nothingUsable = !unanswered && outcome.reply.kind == dns::ReplyKind::NoAddress;
    if (nothingUsable) call.log.logInfo("retry");
    const Failure system = askSystemInstead(call, name, deadline, addresses);
    if (!system) return {};
    if (call.wasStopped()) return Failure(Cause::Aborted);
    call.log.logError(nothingUsable ? "No valid DNS answer.." : "DNS resolution failed.");
    const bool timedOut = unanswered.is(Cause::DnsTimeout) || system.is(Cause::DnsTimeout);
    return Failure(timedOut ? Cause::DnsTimeout : Cause::DnsFailed);
}

Failure tvDnsResolveDomainIPv4_n(CallContext& call, std::string_view domain,
                                 const Deadline& deadline,
                                 std::vector<plat::IpAddress>& addresses) {
    std::string name;
    if (!normalizeDomain(domain, name)) {
        call.log.logError("Invalid domain for resolving domain to IP address.");
        return Failure(Cause::DnsFailed);
    }
    ResolverState& state = resolverState();
    if (state.findInHosts(withoutDot(name), addresses)) {
        call.log.logData("ip_from_hosts_file", plat::toText(addresses.front()));
        return {};
    }
    if (name.find('.') == std::string::npos) {
        if (Failure failure = getAddressInfo(call, name, false, deadline, addresses)) {
            return failure;
        }
        call.log.logData("sbIp_gethostbyname", plat::toText(addresses.front()));
        return {};
    }
    if (state.findInCache(withoutDot(name), plat::sysClock().tickMs(), addresses)) {
        call.log.logData("ip_from_dns_cache", plat::toText(addresses.front()));
        return {};
    }
    return resolveByQuery(call, name, deadline, addresses);
}

}  // namespace

Failure dnsLookup(CallContext& call, std::string_view domain, const Deadline& deadline,
                  std::vector<plat::IpAddress>& addresses) {
    const LogContextExitor context(call.log, "dnsLookup");
    addresses.clear();
    const std::string_view name = trimmed(domain);
    call.log.logData("domain", name);
    if (name.empty()) {
        call.log.logError("DNS lookup failed; domain name is empty");
        return Failure(Cause::DnsFailed);
    }
    const auto numeric =
        plat::parseIp(equalsIgnoreCase(name, "localhost") ? std::string_view("127.0.0.1") : name);
    if (numeric) {
        call.log.logInfo("IP address passed to DNS lookup");
        addresses.push_back(*numeric);
        return {};
    }
    Failure failure = tvDnsResolveDomainIPv4_n(call, name, deadline, addresses);
    if (failure) {
        call.log.logError("DNS lookup failed");
        call.log.logData("domain", name);
    }
    return failure;
}

Failure getAddressInfo(CallContext& call, std::string_view hostOrIpAddr, bool preferIpv6,
                       const Deadline& deadline, std::vector<plat::IpAddress>& addresses) {
    const LogContextExitor context(call.log, "getAddressInfo");
    call.log.logData("hostOrIpAddr", hostOrIpAddr);
    if (preferIpv6) {
        call.log.logInfo(
            "The application prefers IPv6 over IPv4. Looking for IPv6 addresses first...");
    }
    const std::string name(hostOrIpAddr);
    plat::NetError error;
    for (int attempt = 0; attempt < 2; ++attempt) {
        const bool wantsIpv6 = preferIpv6 == (attempt == 0);
        if (attempt == 1 && !preferIpv6) {
            call.log.logInfo("No IPv4 address found, checking for IPv6...");
        }
        if (call.mustStop()) return Failure(Cause::Aborted);
        if (deadline.leftMs() < kLeastTimeMs) {
            call.log.logError(
                "Less than a second is left of the time to connect: the system's resolver is not "
                "asked.");
            return Failure(Cause::DnsTimeout);
        }
        error = askSystem(call.log, name, wantsIpv6 ? AddressFamily::IPv6 : AddressFamily::IPv4,
                          addresses);
        if (error.ok()) return {};
        if (!isJustMissing(error)) break;
    }
    addresses.clear();
    if (isJustMissing(error)) call.log.logError("No IPv4 or IPv6 addresses found.");
    call.log.logError("getAddressInfo failed.");
    logSocketError(call.log, error);
    return Failure(deadline.hasPassed() ? Cause::DnsTimeout : Cause::DnsFailed);
}

}  // namespace tv
