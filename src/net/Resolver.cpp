#include "net/Resolver.h"

#include <string>

#include "base/Ascii.h"
#include "log/LogContextExitor.h"
#include "net/HostName.h"
#include "net/SocketError.h"
#include "net/SocketLibrary.h"
#include "platform/SysSocket.h"

namespace tv {
namespace {

using plat::AddressFamily;
using plat::NetCode;

constexpr uint64_t kLeastTimeMs = 1000;

bool failLookup(ConnectFailReason reason, SocketParams& params) {
    params.connectFailReason = reason;
    if (reason == ConnectFailReason::DnsTimeout) params.timedOut = true;
    return false;
}

plat::NetError askSystem(const std::string& name, AddressFamily family,
                         std::vector<plat::IpAddress>& addresses, LogBase& log) {
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

bool resolveByName(std::string_view domain, const Deadline& deadline,
                   std::vector<plat::IpAddress>& addresses, LogBase& log, SocketParams& params) {
    std::string name;
    if (!normalizeDomain(domain, name)) {
        log.logError("Invalid domain for resolving domain to IP address.");
        return failLookup(ConnectFailReason::DnsFailed, params);
    }
    if (!getAddressInfo(name, false, deadline, addresses, log, params)) return false;
    if (name.find('.') == std::string::npos) {
        log.logData("sbIp_gethostbyname", plat::toText(addresses.front()));
    }
    return true;
}

}  // namespace

bool dnsLookup(std::string_view domain, const Deadline& deadline,
               std::vector<plat::IpAddress>& addresses, LogBase& log, SocketParams& params) {
    const LogContextExitor context(log, "dnsLookup");
    addresses.clear();
    const std::string_view name = trimmed(domain);
    log.logData("domain", name);
    if (name.empty()) {
        log.logError("DNS lookup failed; domain name is empty");
        return failLookup(ConnectFailReason::DnsFailed, params);
    }
    const auto numeric =
        plat::parseIp(equalsIgnoreCase(name, "localhost") ? std::string_view("127.0.0.1") : name);
    if (numeric) {
        log.logInfo("IP address passed to DNS lookup");
        addresses.push_back(*numeric);
        return true;
    }
    if (resolveByName(name, deadline, addresses, log, params)) return true;
    log.logError("DNS lookup failed");
    log.logData("domain", name);
    return false;
}

bool getAddressInfo(std::string_view hostOrIpAddr, bool preferIpv6, const Deadline& deadline,
                    std::vector<plat::IpAddress>& addresses, LogBase& log, SocketParams& params) {
    const LogContextExitor context(log, "getAddressInfo");
    log.logData("hostOrIpAddr", hostOrIpAddr);
    if (preferIpv6) {
        log.logInfo("The application prefers IPv6 over IPv4. Looking for IPv6 addresses first...");
    }
    const std::string name(hostOrIpAddr);
    plat::NetError error;
    for (int attempt = 0; attempt < 2; ++attempt) {
        const bool wantsIpv6 = preferIpv6 == (attempt == 0);
        if (attempt == 1 && !preferIpv6) {
            log.logInfo("No IPv4 address found, checking for IPv6...");
        }
        if (params.checkAbort()) return failLookup(ConnectFailReason::Aborted, params);
        if (deadline.leftMs() < kLeastTimeMs) {
            log.logError(
                "Less than a second is left of the time to connect: the system's resolver is not "
                "asked.");
            return failLookup(ConnectFailReason::DnsTimeout, params);
        }
        error =
            askSystem(name, wantsIpv6 ? AddressFamily::IPv6 : AddressFamily::IPv4, addresses, log);
        if (error.ok()) return true;
        if (!isJustMissing(error)) break;
    }
    addresses.clear();
    if (isJustMissing(error)) log.logError("No IPv4 or IPv6 addresses found.");
    log.logError("getAddressInfo failed.");
    logSocketError(error, log);
    return failLookup(
        deadline.hasPassed() ? ConnectFailReason::DnsTimeout : ConnectFailReason::DnsFailed,
        params);
}

}  // namespace tv
