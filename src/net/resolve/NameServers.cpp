// What resolv.conf or the system lists, which names belong to the house, and who was silent lately.
#include "net/resolve/NameServers.h"

#include <algorithm>

#include "base/Ascii.h"
#include "platform/SysFile.h"
#include "platform/SysNameServers.h"

namespace tv {
namespace {

// Honest settings have some lines: these keep a broken or hostile file from filling memory.
constexpr size_t kMaxSettings = 65536;
constexpr size_t kMaxSuffixes = 32;
constexpr size_t kMaxRemembered = 64;
// Long enough that the messages of one run do not all wait for the same dead server, short enough
// that one which is back is asked first again soon.
constexpr uint64_t kRecentMs = 300000;
constexpr std::string_view kBlanks = " \t\r\f\v";

std::string_view takeWord(std::string_view& line) {
    line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
    const std::string_view word = line.substr(0, line.find_first_of(kBlanks));
    line.remove_prefix(word.size());
    return word;
}

bool isUnder(std::string_view name, std::string_view domain) {
    if (name == domain) return true;
    return name.size() > domain.size() && name.ends_with(domain) &&
           name[name.size() - domain.size() - 1] == '.';
}

}  // namespace

void NameServers::add(std::string_view server) {
    if (server.empty()) return;
    const auto address = plat::parseIp(server);
    if (!address) {
        hasOthers = true;
    } else if (addresses.size() < kMostNameServers && *address != plat::IpAddress{} &&
               std::find(addresses.begin(), addresses.end(), *address) == addresses.end()) {
        addresses.push_back(*address);
    }
}

void NameServers::addSuffix(std::string_view domain) {
    while (!domain.empty() && domain.front() == '.') {
        domain.remove_prefix(1);
    }
    while (!domain.empty() && domain.back() == '.') {
        domain.remove_suffix(1);
    }
    if (!domain.empty() && suffixes.size() < kMaxSuffixes) {
        suffixes.push_back(asciiLower(domain));
    }
}

bool NameServers::isInside(std::string_view name) const {
    if (!name.empty() && name.back() == '.') name.remove_suffix(1);
    // RFC 6762 section 3, the domain reserved for private use, and what many routers give out.
    for (const std::string_view domain : {"local", "internal", "lan"}) {
        if (isUnder(name, domain)) return true;
    }
    return std::any_of(suffixes.begin(), suffixes.end(),
                       [&](const std::string& suffix) { return isUnder(name, suffix); });
}

void parseResolvConf(std::string_view text, NameServers& out) {
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        const std::string_view keyword = takeWord(line);
        if (keyword == "nameserver") {
            out.add(takeWord(line));
        } else if (keyword == "domain" || keyword == "search") {
            for (std::string_view word = takeWord(line); !word.empty(); word = takeWord(line)) {
                out.addSuffix(word);
            }
        }
    }
}

NameServers systemNameServers(LogBase& log) {
    NameServers found;
    std::vector<std::string> servers;
    std::string domain, error;
    if (!plat::sysNameServers().list(servers, domain, error)) log.logError(error);
    found.addSuffix(domain);
    for (const std::string& server : servers) {
        found.add(server);
    }
    const std::string path = plat::sysNameServers().settingsPath();
    if (!path.empty()) {
        std::string text;
        if (!plat::readFileStart(path, kMaxSettings, text)) log.logData("failedToRead", path);
        parseResolvConf(text, found);
    }
    if (found.addresses.empty()) log.logError("Check/cache nameservers failed.");
    return found;
}

const std::vector<plat::IpAddress>& publicNameServers() {
    static const auto& servers =
        *new std::vector<plat::IpAddress>{*plat::parseIpv4("8.8.8.8"), *plat::parseIpv4("1.1.1.1")};
    return servers;
}

bool SilentServers::isSilent(const NameServer& server, uint64_t nowMs) const {
    const auto entry = failedAtMs_.find(toText(server));
    return entry != failedAtMs_.end() && nowMs >= entry->second &&
           nowMs - entry->second < kRecentMs;
}

void SilentServers::note(const NameServer& server, bool answered, uint64_t nowMs) {
    const std::string key = toText(server);
    if (answered) {
        failedAtMs_.erase(key);
        return;
    }
    if (failedAtMs_.size() >= kMaxRemembered) failedAtMs_.clear();
    failedAtMs_[key] = nowMs;
}

void SilentServers::order(std::vector<NameServer>& servers, uint64_t nowMs) const {
    std::stable_partition(servers.begin(), servers.end(),
                          [&](const NameServer& server) { return !isSilent(server, nowMs); });
}

}  // namespace tv
