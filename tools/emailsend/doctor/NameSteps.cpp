// From the server's name to its addresses: each name server by itself, then all of them as a send
// asks.
#include <algorithm>
#include <chrono>

#include "emailsend/ExitCodes.h"
#include "emailsend/Process.h"
#include "emailsend/Watched.h"
#include "emailsend/doctor/Walk.h"
#include "log/LogNull.h"
#include "net/resolve/DnsClient.h"
#include "net/resolve/HostName.h"
#include "net/resolve/NameServers.h"
#include "net/resolve/NameSource.h"
#include "net/resolve/Resolver.h"
#include "net/resolve/ResolverState.h"

namespace emailsend::doctor {
namespace {

using tv::plat::AddressFamily;
using tv::plat::IpAddress;

constexpr size_t kMostServers = 8;  // nobody lists more, and each may cost its time
constexpr uint32_t kServerLimitMs = 5000;
// What the system's resolver, which nothing can end, is given beyond the limit.
constexpr uint32_t kGraceMs = 2000;

std::string listOf(const std::vector<IpAddress>& addresses) {
    std::string all;
    for (const IpAddress& address : addresses) {
        all += (all.empty() ? "" : ", ") + tv::plat::toText(address);
    }
    return all;
}

std::vector<tv::NameServer> serversOf(const Walk& walk) {
    if (walk.names() && !walk.names()->servers.empty()) return walk.names()->servers;
    tv::LogNull quiet;
    std::vector<tv::NameServer> servers;
    for (const IpAddress& address : tv::systemNameServers(quiet).addresses) {
        servers.push_back({address, false, {}});
    }
    return servers;
}

std::string answerOf(const tv::dns::Reply& reply) {
    switch (reply.kind) {
        case tv::dns::ReplyKind::Addresses:
            return " says " + listOf(reply.addresses);
        case tv::dns::ReplyKind::NoSuchName:
            return " knows no such name";
        default:
            return " knows the name, but no address of that kind";
    }
}

// Of one server nothing follows yet: others may know more. True where it answered, if only that it
// will not tell.
bool askServer(Walk& walk, const std::string& name, const tv::NameServer& server) {
    const Stopwatch watch;
    Observer observer(std::min(walk.limitMs(), kServerLimitMs));
    tv::CallContext call = walk.call(observer);
    const AddressFamily family = walk.settings.onlyFamily.value_or(AddressFamily::IPv4);
    tv::DnsOutcome outcome;
    const tv::Failure failure =
        tv::doDnsQuery(call, {name, family}, {&server, 1},
                       tv::Deadline(std::min(walk.limitMs(), kServerLimitMs)), outcome);
    Step step{"name server", 0, watch.ms(), toText(server), {}};
    if (failure) {
        step.found += failure.is(tv::Cause::DnsTimeout) || !outcome.silent.empty()
                          ? " does not answer"
                          : " refuses to answer";
        step.change = "Take it out of the list of name servers, or mend it.";
    } else {
        step.found += answerOf(outcome.reply);
    }
    if (failure || outcome.reply.kind == tv::dns::ReplyKind::NoSuchName) {
        step.state = State::Warning;
    }
    walk.report.add(std::move(step));
    return outcome.reply.isAnswer();
}

bool standsInHosts(const Walk& walk, const std::string& name) {
    std::vector<IpAddress> found;
    const std::string path = walk.names() ? walk.names()->hostsPath : std::string();
    return tv::resolverState().findInHosts(path, name, AddressFamily::IPv4, found) ||
           tv::resolverState().findInHosts(path, name, AddressFamily::IPv6, found);
}

// True where there were any to be asked, and none of them answered.
bool allAreSilent(Walk& walk, const std::string& host) {
    std::string name;
    const bool hasOwn = walk.names() && !walk.names()->servers.empty();
    if (!tv::normalizeDomain(host, name) || standsInHosts(walk, name)) return false;
    // Names without a domain are left to the system's resolver.
    if (!hasOwn && name.find('.') == std::string::npos) return false;
    std::vector<tv::NameServer> servers = serversOf(walk);
    servers.resize(std::min(servers.size(), kMostServers));
    bool any = servers.empty();
    for (const tv::NameServer& server : servers) {
        any |= askServer(walk, name, server);
    }
    return !any;
}

// As a connection looks them up.
tv::Failure lookUp(tv::CallContext& call, const std::string& host,
                   std::optional<AddressFamily> only, const tv::Deadline& deadline,
                   std::vector<IpAddress>& addresses) {
    tv::Failure failure = only == AddressFamily::IPv6
                              ? tv::lookUpPreferringIpv6(call, host, deadline, addresses)
                              : tv::dnsLookup(call, host, deadline, addresses);
    if (only) std::erase_if(addresses, [&](const auto& one) { return one.family != *only; });
    if (failure || !addresses.empty()) return failure;
    return tv::Failure(tv::Cause::DnsFailed, "It has none of the family that may be used");
}

// What outlives the wait where the system's resolver does.
struct LookUp {
    Observer observer;
    std::vector<IpAddress> addresses;
    tv::Failure failure;
};

}  // namespace

bool findAddresses(Walk& walk) {
    const std::string host = tv::normalizeHost(walk.settings.smtpHost.utf8());
    const bool isNumeric = tv::plat::parseIp(host).has_value();
    const bool silent = !isNumeric && allAreSilent(walk, host);
    const Stopwatch watch;
    const uint32_t limitMs = walk.limitMs();
    const auto look = std::make_shared<LookUp>(LookUp{Observer(limitMs + kGraceMs), {}, {}});
    const auto step = [look, call = walk.call(look->observer), host, limitMs,
                       family = walk.settings.onlyFamily]() mutable {
        look->failure = lookUp(call, host, family, tv::Deadline(limitMs), look->addresses);
    };
    const bool ended = runWatched("emailsend: looking up " + host, step,
                                  std::chrono::milliseconds(limitMs + kGraceMs));
    tv::Failure failure = ended ? std::move(look->failure) : tv::Failure(tv::Cause::DnsTimeout);
    if (failure && silent) {
        failure = tv::Failure(tv::Cause::DnsTimeout, "none of the name servers answers");
    }
    walk.abandoned = !ended;
    if (interrupted()) endStopped();
    if (failure) {
        Step lost = failed("addresses", 0, watch.ms(), failure);
        lost.found = host + " has no address that could be found: " + lost.found;
        walk.report.add(std::move(lost));
        return false;
    }
    walk.addresses = std::move(look->addresses);
    walk.report.add({"addresses",
                     0,
                     watch.ms(),
                     isNumeric ? host : host + " is " + listOf(walk.addresses),
                     {}});
    return true;
}

}  // namespace emailsend::doctor
