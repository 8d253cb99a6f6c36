// Host names and addresses held against those of a certificate; the texts come from outside and
// are taken as bytes.
#include "net/x509/HostMatch.h"

#include <algorithm>
#include <optional>

#include "base/Ascii.h"
#include "net/x509/X509Name.h"
#include "platform/HexNumber.h"

namespace tv::x509 {
namespace {

std::string_view textOf(Bytes bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::vector<uint8_t> ipv4Bytes(std::string_view text) {
    std::vector<uint8_t> out;
    while (true) {
        const size_t dot = text.find('.');
        const std::string_view part = text.substr(0, dot);
        unsigned value = 0;
        for (const char c : part) {
            if (!isAsciiDigit(c)) return {};
            value = value * 10 + static_cast<unsigned>(c - '0');
        }
        if (part.empty() || part.size() > 3 || value > 255) return {};
        out.push_back(static_cast<uint8_t>(value));
        if (dot == std::string_view::npos) break;
        text.remove_prefix(dot + 1);
    }
    return out.size() == 4 ? out : std::vector<uint8_t>{};
}

std::optional<uint16_t> hexGroup(std::string_view text) {
    if (text.empty() || text.size() > 4) return std::nullopt;
    unsigned value = 0;
    for (char c : text) {
        c = asciiLower(c);
        const bool letter = c >= 'a' && c <= 'f';
        if (!letter && !isAsciiDigit(c)) return std::nullopt;
        value = value * 16 + static_cast<unsigned>(letter ? c - 'a' + 10 : c - '0');
    }
    return static_cast<uint16_t>(value);
}

// Groups of an address or of one side of its "::"; an IPv4 tail gives two.
bool readGroups(std::string_view text, std::vector<uint8_t>& out) {
    while (!text.empty()) {
        const size_t colon = text.find(':');
        const std::string_view part = text.substr(0, colon);
        if (part.find('.') != std::string_view::npos && colon == std::string_view::npos) {
            const std::vector<uint8_t> tail = ipv4Bytes(part);
            out.insert(out.end(), tail.begin(), tail.end());
            return tail.size() == 4;
        }
        const auto group = hexGroup(part);
        if (!group) return false;
        out.push_back(static_cast<uint8_t>(*group >> 8));
        out.push_back(static_cast<uint8_t>(*group));
        if (colon == std::string_view::npos) return true;
        text.remove_prefix(colon + 1);
        if (text.empty()) return false;
    }
    return true;
}

std::vector<uint8_t> ipv6Bytes(std::string_view text) {
    const size_t gap = text.find("::");
    std::vector<uint8_t> front;
    std::vector<uint8_t> back;
    if (!readGroups(text.substr(0, gap), front)) return {};
    if (gap != std::string_view::npos && !readGroups(text.substr(gap + 2), back)) return {};
    const size_t have = front.size() + back.size();
    const bool whole = gap == std::string_view::npos ? have == 16 : have < 16;
    if (!whole) return {};
    front.resize(16 - back.size());
    front.insert(front.end(), back.begin(), back.end());
    return front;
}

}  // namespace

std::vector<uint8_t> addressBytes(std::string_view text) {
    return text.find(':') == std::string_view::npos ? ipv4Bytes(text) : ipv6Bytes(text);
}

std::string addressText(Bytes address) {
    if (address.size() != 4 && address.size() != 16) return {};
    const bool isV4 = address.size() == 4;
    std::string text;
    for (size_t i = 0; i < address.size(); i += isV4 ? 1 : 2) {
        const unsigned part = isV4 ? address[i] : unsigned{address[i]} << 8 | address[i + 1];
        if (i != 0) text += isV4 ? '.' : ':';
        text += isV4 ? std::to_string(part) : plat::hexNumber(part);
    }
    return text;
}

bool matchesDnsPattern(std::string_view pattern, std::string_view host) {
    host = withoutFinalDot(host);
    if (!isDnsName(host)) return false;
    constexpr std::string_view kWildcard = "*.";
    // With a dot at its end it is no name of a host (RFC 5280, 4.2.1.6), and equals none here.
    if (pattern.substr(0, kWildcard.size()) != kWildcard) return equalsIgnoreCase(pattern, host);
    const std::string_view parent = pattern.substr(kWildcard.size());
    const size_t dot = host.find('.');
    if (!isDnsName(parent) || parent.find('.') == std::string_view::npos) return false;
    return dot != std::string_view::npos && equalsIgnoreCase(parent, host.substr(dot + 1));
}

bool matchesHost(const Certificate& certificate, std::string_view host) {
    const std::vector<uint8_t> address = addressBytes(host);
    const GeneralName::Kind wanted =
        address.empty() ? GeneralName::Kind::Dns : GeneralName::Kind::Ip;
    for (const GeneralName& name : certificate.altNames) {
        if (name.kind != wanted) continue;
        const bool matches = wanted == GeneralName::Kind::Ip
                                 ? sameBytes(name.value, address)
                                 : matchesDnsPattern(textOf(name.value), host);
        if (matches) return true;
    }
    // An address never matches a common name (RFC 6125, 1.7.2), and beside alternative names of
    // whatever kind a common name is no host: the constraints of the issuer do not see it then.
    if (certificate.hasAltNames || wanted == GeneralName::Kind::Ip) return false;
    return matchesDnsPattern(textOf(commonName(certificate.subject)), host);
}

std::string_view withoutFinalDot(std::string_view name) {
    if (!name.empty() && name.back() == '.') name.remove_suffix(1);
    return name;
}

bool isDnsName(std::string_view name) {
    char before = '.';
    for (const char c : name) {
        if (c == '.' ? before == '.' : !(isAsciiAlnum(c) || c == '-' || c == '_')) return false;
        before = c;
    }
    return !name.empty() && before != '.';
}

}  // namespace tv::x509
