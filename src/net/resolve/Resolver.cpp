// The order of all sources: literal address, hosts file, cache, name servers, the system's
// resolver. Where settings name the servers, they are the last.
#include "net/resolve/Resolver.h"

#include <algorithm>
#include <string>

#include "base/Ascii.h"
#include "log/LogContextExitor.h"
#include "net/resolve/DnsClient.h"
#include "net/resolve/HostName.h"
#include "net/resolve/NameServers.h"
#include "net/resolve/NameSource.h"
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

// Servers that the settings name: then nobody else is asked.
const std::vector<NameServer>* ownServers(const CallContext& call) {
    return call.names && !call.names->servers.empty() ? &call.names->servers : nullptr;
}

// Of the file that counts. The system's is read for IPv4 addresses alone: its resolver reads it,
// too.
bool findInHosts(const CallContext& call, std::string_view name, AddressFamily family,
                 std::vector<plat::IpAddress>& addresses) {
    const std::string path = call.names ? call.names->hostsPath : std::string();
    if (path.empty() && family == AddressFamily::IPv6) return false;
    if (!resolverState().findInHosts(path, withoutDot(name), family, addresses)) return false;
    call.log.logData("ip_from_hosts_file", plat::toText(addresses.front()));
    return true;
}

// Whom to ask; empty where only the system's resolver may be.
std::vector<NameServer> serversFor(const CallContext& call, const std::string& name) {
    std::vector<NameServer> servers;
    if (const auto* own = ownServers(call)) {
        servers = *own;
    } else {
        NameServers system = systemNameServers(call.log);
        if (system.addresses.empty() && system.hasOthers) {
            call.log.logError("No DNS nameservers have been defined.");
        } else if (system.addresses.empty() && system.isInside(name)) {
            call.log.logInfo("Names of the local network are left to the system's resolver.");
        } else if (system.addresses.empty()) {
            system.addresses = publicNameServers();
            call.log.logInfo("The system lists no nameservers: using 8.8.8.8 and 1.1.1.1.");
        }
        for (const plat::IpAddress& address : system.addresses) {
            servers.push_back({address, false, {}});
        }
    }
    resolverState().order(servers, plat::sysClock().tickMs());
    return servers;
}

// Silent servers must not use up the time of the system's resolver, which may reach others.
Deadline withoutLastResort(const CallContext& call, const Deadline& deadline) {
    const uint64_t left = deadline.leftMs();
    const uint64_t kept = std::min(left / 4, kMostForSystemMs);
    if (ownServers(call) || !deadline.isLimited() || kept < kLeastTimeMs) return deadline;
    return Deadline(left - kept);
}

// Under what an answer is remembered. No name has a blank in it.
std::string cacheKey(const CallContext& call, std::string_view name, AddressFamily family) {
    return (call.names ? call.names->word() : std::string()) +
           (family == AddressFamily::IPv6 ? "AAAA " : "") + std::string(withoutDot(name));
}

bool findInCache(const CallContext& call, std::string_view name, AddressFamily family,
                 std::vector<plat::IpAddress>& addresses) {
    const std::string key = cacheKey(call, name, family);
    if (!resolverState().findInCache(key, plat::sysClock().tickMs(), addresses)) return false;
    call.log.logData("ip_from_dns_cache", plat::toText(addresses.front()));
    return true;
}

// Asks name servers and remembers what they said, and which of them did not.
Failure queryServers(CallContext& call, const std::string& name, AddressFamily family,
                     const Deadline& deadline, dns::Reply& reply) {
    const std::vector<NameServer> servers = serversFor(call, name);
    if (servers.empty()) return Failure(Cause::DnsFailed);
    DnsOutcome outcome;
    Failure failure =
        doDnsQuery(call, {name, family}, servers, withoutLastResort(call, deadline), outcome);
    ResolverState& state = resolverState();
    const uint64_t nowMs = plat::sysClock().tickMs();
    for (const NameServer& server : outcome.silent) {
        state.noteServer(server, false, nowMs);
    }
    if (outcome.server) state.noteServer(*outcome.server, true, nowMs);
    reply = std::move(outcome.reply);
    const bool known = !failure && reply.kind == dns::ReplyKind::Addresses;
    if (known) state.keep(cacheKey(call, name, family), reply, nowMs);
    return failure;
}

// A server that would not tell of one family may tell of the other.
bool mayKnowTheOther(const dns::Reply& reply) {
    return reply.kind == dns::ReplyKind::NoAddress || reply.kind == dns::ReplyKind::Refused;
}

// Addresses of one family, of the other where there are none, from the servers of the settings.
Failure askOwnServers(CallContext& call, const std::string& name, AddressFamily first,
                      const Deadline& deadline, std::vector<plat::IpAddress>& addresses) {
    call.log.logDataLong("num_app_defined_ns", static_cast<int64_t>(ownServers(call)->size()));
    const AddressFamily second =
        first == AddressFamily::IPv4 ? AddressFamily::IPv6 : AddressFamily::IPv4;
    Failure unanswered;
    for (const AddressFamily family : {first, second}) {
        if (findInCache(call, name, family, addresses)) return {};
        dns::Reply reply;
        Failure failure = queryServers(call, name, family, deadline, reply);
        if (failure && call.wasStopped()) return Failure(Cause::Aborted);
        addresses = std::move(reply.addresses);
        if (!failure && !addresses.empty()) return {};
        if (failure && !unanswered) unanswered = std::move(failure);
        if (!mayKnowTheOther(reply)) break;
    }
    call.log.logError(unanswered ? "DNS resolution failed." : "No valid DNS answer..");
    return unanswered ? std::move(unanswered) : Failure(Cause::DnsFailed);
}

// The servers that the system lists, and its own resolver as the last resort.
Failure resolveByQuery(CallContext& call, const std::string& name, const Deadline& deadline,
                       std::vector<plat::IpAddress>& addresses) {
    dns::Reply reply;
    Failure unanswered = queryServers(call, name, AddressFamily::IPv4, deadline, reply);
    if (call.wasStopped()) return Failure(Cause::Aborted);
    if (!unanswered && reply.kind == dns::ReplyKind::Addresses) {
        addresses = std::move(reply.addresses);
        return {};
    }
    const bool nothingUsable = !unanswered && reply.kind == dns::ReplyKind::NoAddress;
    if (nothingUsable) call.log.logInfo("retry");
    call.log.logDataLong("num_app_defined_ns", 0);
    const Failure system = getAddressInfo(call, name, false, deadline, addresses);
    if (!system) return {};
    // The system's resolver may give up at the first family that is not told.
    const bool untold = !call.wasStopped() && reply.kind == dns::ReplyKind::Refused;
    if (untold && !queryServers(call, name, AddressFamily::IPv6, deadline, reply)) {
        addresses = std::move(reply.addresses);
        if (!addresses.empty()) return {};
    }
    if (call.wasStopped()) return Failure(Cause::Aborted);
    call.log.logError(nothingUsable ? "No valid DNS answer.." : "DNS resolution failed.");
    if (unanswered.is(Cause::DnsTimeout) || system.is(Cause::DnsTimeout)) {
        return Failure(Cause::DnsTimeout);
    }
    return unanswered ? std::move(unanswered) : Failure(Cause::DnsFailed);
}

Failure nameToLookUp(LogBase& log, std::string_view domain, std::string& name) {
    if (normalizeDomain(domain, name)) return {};
    log.logError("Invalid domain for resolving domain to IP address.");
    return Failure(Cause::DnsFailed);
}

Failure tvDnsResolveDomainIPv4_n(CallContext& call, std::string_view domain,
                                 const Deadline& deadline,
                                 std::vector<plat::IpAddress>& addresses) {
    std::string name;
    if (Failure failure = nameToLookUp(call.log, domain, name)) return failure;
    for (const AddressFamily family : {AddressFamily::IPv4, AddressFamily::IPv6}) {
        if (findInHosts(call, name, family, addresses)) return {};
    }
    if (ownServers(call)) {
        return askOwnServers(call, name, AddressFamily::IPv4, deadline, addresses);
    }
    if (name.find('.') == std::string::npos) {
        if (Failure failure = getAddressInfo(call, name, false, deadline, addresses)) {
            return failure;
        }
        call.log.logData("sbIp_gethostbyname", plat::toText(addresses.front()));
        return {};
    }
    if (findInCache(call, name, AddressFamily::IPv4, addresses)) return {};
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

Failure lookUpPreferringIpv6(CallContext& call, std::string_view domain, const Deadline& deadline,
                             std::vector<plat::IpAddress>& addresses) {
    if (!call.names) return getAddressInfo(call, domain, true, deadline, addresses);
    std::string name;
    if (Failure failure = nameToLookUp(call.log, domain, name)) return failure;
    if (findInHosts(call, name, AddressFamily::IPv6, addresses)) return {};
    return ownServers(call) ? askOwnServers(call, name, AddressFamily::IPv6, deadline, addresses)
                            : getAddressInfo(call, domain, true, deadline, addresses);
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
