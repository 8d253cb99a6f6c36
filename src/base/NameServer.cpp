// The text of a name server taken apart, and put together again.
#include "base/NameServer.h"

#include "base/Ascii.h"

namespace tv {
namespace {

constexpr std::string_view kTls = "tls://";

// RFC 1035 section 2.3.4; labels are not empty. One of digits alone may be an address, which a
// certificate can prove as well.
bool isServerName(std::string_view name) {
    constexpr size_t kLongest = 253;
    char before = '.';
    for (const char c : name) {
        if (c == '.' ? before == '.' : !(isAsciiAlnum(c) || c == '-' || c == '_')) return false;
        before = c;
    }
    return before != '.' && name.size() <= kLongest;
}

}  // namespace

std::optional<NameServer> parseNameServer(std::string_view text) {
    NameServer server;
    server.tls = startsWithIgnoreCase(text, kTls);
    if (server.tls) {
        text.remove_prefix(kTls.size());
        const size_t mark = text.find('#');
        if (mark != std::string_view::npos) {
            if (!isServerName(text.substr(mark + 1))) return std::nullopt;
            server.name = asciiLower(text.substr(mark + 1));
            text = text.substr(0, mark);
        }
    }
    const auto address = plat::parseIp(text);
    // All zeros is no address that anybody has.
    if (!address || address->bytes == plat::IpAddress{}.bytes) return std::nullopt;
    server.address = *address;
    return server;
}

std::string toText(const NameServer& server) {
    return (server.tls ? std::string(kTls) : std::string()) + plat::toText(server.address) +
           (server.name.empty() ? "" : '#' + server.name);
}

}  // namespace tv
