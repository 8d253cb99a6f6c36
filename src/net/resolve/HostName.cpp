// What a host wrote as its server made into names: to connect to, to resolve, to announce in TLS.
#include "net/resolve/HostName.h"

#include <algorithm>

#include "base/Ascii.h"
#include "base/Punycode.h"

namespace tv {
namespace {

// Every occurrence, whatever its case, in one pass.
std::string without(std::string_view text, std::string_view unwanted) {
    std::string rest;
    while (!text.empty()) {
        const size_t at = std::min(findIgnoreCase(text, unwanted), text.size());
        rest += text.substr(0, at);
        text.remove_prefix(std::min(at + unwanted.size(), text.size()));
    }
    return rest;
}

void cutAt(std::string& text, char stop) {
    text.resize(std::min(text.find(stop), text.size()));
}

// Without a user part, scheme, path, white space and the brackets of an IPv6 literal.
std::string bareHost(std::string_view host) {
    std::string text(host.substr(host.find('@') + 1));  // npos + 1 is 0
    for (const std::string_view scheme : {"ftp://", "http://", "https://"}) {
        text = without(text, scheme);
    }
    cutAt(text, '/');
    text = trimmed(text);
    const bool isBracketed = !text.empty() && text.front() == '[' &&
                             text.find(':') != std::string::npos &&
                             text.find('.') == std::string::npos;
    if (isBracketed) {
        cutAt(text, ']');  // a port behind it is not part of the address
        text.erase(0, 1);
    }
    return text;
}

}  // namespace

std::string normalizeHost(std::string_view host,
                          const std::optional<plat::AddressFamily> onlyFamily) {
    std::string text = bareHost(host);
    if (!equalsIgnoreCase(text, "localhost")) return text;
    return onlyFamily == plat::AddressFamily::IPv6 ? "::1" : "127.0.0.1";
}

std::string serverName(std::string_view host) {
    std::string text = bareHost(host);
    if (std::count(text.begin(), text.end(), ':') == 1) cutAt(text, ':');
    std::string ascii;
    if (domainToAscii(text, ascii)) text = ascii;
    // One dot: what ends in two is no name, and must not become one here or further down.
    if (text.ends_with('.') && !text.ends_with("..")) text.pop_back();
    return text;
}

bool normalizeDomain(std::string_view domain, std::string& out) {
    std::string text = asciiLower(domain);
    for (const std::string_view scheme : {"http://", "https://"}) {
        text = without(text, scheme);
    }
    for (const char stop : {'/', ':', '<'}) {
        cutAt(text, stop);
    }
    text = trimmed(text);
    for (const char c : text) {
        if (static_cast<unsigned char>(c) <= ' ' || c == '\x7F') return false;
    }
    // RFC 1035 section 2.3.4, one dot at the end not counted.
    constexpr size_t kLongestName = 253;
    return domainToAscii(text, out) && !out.empty() && out != "." &&
           out.size() - (out.back() == '.' ? 1 : 0) <= kLongestName;
}

}  // namespace tv
