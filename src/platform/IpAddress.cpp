// Addresses to text and back without the system's functions, so that every system takes and writes
// the same forms.
#include "platform/IpAddress.h"

#include "platform/HexNumber.h"

namespace tv::plat {
namespace {

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// One to maxDigits decimal digits up to maxValue; the text is advanced behind them.
std::optional<uint32_t> takeDecimal(std::string_view& text, size_t maxDigits, uint32_t maxValue) {
    uint32_t value = 0;
    size_t digits = 0;
    while (digits < text.size() && text[digits] >= '0' && text[digits] <= '9') {
        if (++digits > maxDigits) return std::nullopt;
        value = value * 10 + static_cast<uint32_t>(text[digits - 1] - '0');
    }
    if (digits == 0 || value > maxValue) return std::nullopt;
    text.remove_prefix(digits);
    return value;
}

// One to four hexadecimal digits.
std::optional<uint16_t> parseGroup(std::string_view text) {
    if (text.empty() || text.size() > 4) return std::nullopt;
    uint32_t value = 0;
    for (const char c : text) {
        const int digit = hexDigit(c);
        if (digit < 0) return std::nullopt;
        value = value * 16 + static_cast<uint32_t>(digit);
    }
    return static_cast<uint16_t>(value);
}

// Groups parted by single colons, the last perhaps a dotted IPv4 address; empty text is no group.
// Returns how many 16-bit groups were written, or nothing where the text is none of that.
std::optional<size_t> parseGroups(std::string_view text, std::array<uint16_t, 8>& groups) {
    size_t count = 0;
    while (!text.empty()) {
        const size_t colon = text.find(':');
        const std::string_view part = text.substr(0, colon);
        const bool isLast = colon == std::string_view::npos;
        const bool isDotted = isLast && part.find('.') != std::string_view::npos;
        if (count + (isDotted ? 2 : 1) > groups.size()) return std::nullopt;
        if (isDotted) {
            const auto ipv4 = parseIpv4(part);
            if (!ipv4) return std::nullopt;
            groups[count++] = static_cast<uint16_t>(ipv4->bytes[0] << 8 | ipv4->bytes[1]);
            groups[count++] = static_cast<uint16_t>(ipv4->bytes[2] << 8 | ipv4->bytes[3]);
        } else {
            const auto group = parseGroup(part);
            if (!group) return std::nullopt;
            groups[count++] = *group;
        }
        if (isLast) break;
        text.remove_prefix(colon + 1);
        if (text.empty()) return std::nullopt;
    }
    return count;
}

std::string ipv4Text(const uint8_t* bytes) {
    std::string text = std::to_string(bytes[0]);
    for (size_t i = 1; i < 4; ++i)
        text += "." + std::to_string(bytes[i]);
    return text;
}

struct ZeroRun {
    size_t start = 8;
    size_t length = 0;
};

// The longest run of at least two zero groups, the first of equals (RFC 5952 section 4.2).
ZeroRun longestZeroRun(const std::array<uint16_t, 8>& groups) {
    ZeroRun best;
    for (size_t i = 0; i < groups.size(); ++i) {
        size_t end = i;
        while (end < groups.size() && groups[end] == 0)
            ++end;
        if (end - i >= 2 && end - i > best.length) best = {i, end - i};
        i = end;
    }
    return best;
}

}  // namespace

std::optional<IpAddress> parseIpv4(std::string_view text) {
    IpAddress address;
    for (size_t i = 0; i < 4; ++i) {
        if (i > 0) {
            if (text.empty() || text.front() != '.') return std::nullopt;
            text.remove_prefix(1);
        }
        const auto number = takeDecimal(text, 3, 255);
        if (!number) return std::nullopt;
        address.bytes[i] = static_cast<uint8_t>(*number);
    }
    if (!text.empty()) return std::nullopt;
    return address;
}

std::optional<IpAddress> parseIpv6(std::string_view text) {
    IpAddress address;
    address.family = AddressFamily::IPv6;
    if (const size_t percent = text.find('%'); percent != std::string_view::npos) {
        std::string_view zone = text.substr(percent + 1);
        // Nine digits, which fit 32 bits whatever they are.
        const auto scope = takeDecimal(zone, 9, 999999999);
        if (!scope || !zone.empty()) return std::nullopt;
        address.scope = *scope;
        text = text.substr(0, percent);
    }
    std::array<uint16_t, 8> head{}, tail{};
    const size_t gap = text.find("::");
    const bool hasGap = gap != std::string_view::npos;
    const auto headCount = parseGroups(text.substr(0, gap), head);
    const auto tailCount =
        hasGap ? parseGroups(text.substr(gap + 2), tail) : std::optional<size_t>(0);
    if (!headCount || !tailCount) return std::nullopt;
    const size_t count = *headCount + *tailCount;
    if (hasGap ? count > 7 : count != 8) return std::nullopt;  // "::" stands for one group at least
    // A dotted part may only stand at the very end.
    if (hasGap && text.substr(0, gap).find('.') != std::string_view::npos) return std::nullopt;
    for (size_t i = 0; i < *tailCount; ++i)
        head[8 - *tailCount + i] = tail[i];
    for (size_t i = 0; i < 8; ++i) {
        address.bytes[2 * i] = static_cast<uint8_t>(head[i] >> 8);
        address.bytes[2 * i + 1] = static_cast<uint8_t>(head[i] & 0xFF);
    }
    return address;
}

std::optional<IpAddress> parseIp(std::string_view text) {
    if (auto ipv4 = parseIpv4(text)) return ipv4;
    return parseIpv6(text);
}

std::string toText(const IpAddress& address) {
    if (address.isIpv4()) return ipv4Text(address.bytes.data());
    std::array<uint16_t, 8> groups{};
    for (size_t i = 0; i < 8; ++i) {
        groups[i] = static_cast<uint16_t>(address.bytes[2 * i] << 8 | address.bytes[2 * i + 1]);
    }
    const ZeroRun run = longestZeroRun(groups);
    // RFC 5952 section 5: an address mapped from IPv4 shows its last part dotted.
    const bool isMapped = run.start == 0 && run.length == 5 && groups[5] == 0xFFFF;
    std::string text;
    for (size_t i = 0; i < (isMapped ? 6 : 8); ++i) {
        if (i == run.start) {
            text += "::";
            i += run.length - 1;
            continue;
        }
        if (!text.empty() && text.back() != ':') text += ':';
        text += hexNumber(groups[i]);
    }
    if (isMapped) text += ":" + ipv4Text(address.bytes.data() + 12);
    if (address.scope != 0) text += "%" + std::to_string(address.scope);
    return text;
}

}  // namespace tv::plat
