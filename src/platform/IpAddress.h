// A numeric network address and its text form.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tv::plat {

// The numbers are the Windows values of AF_INET and AF_INET6; they appear in logs.
enum class AddressFamily : int { IPv4 = 2, IPv6 = 23 };

struct IpAddress {
    AddressFamily family = AddressFamily::IPv4;
    std::array<uint8_t, 16> bytes{};  // network order; IPv4 uses the first four
    uint32_t scope = 0;               // IPv6 zone index, 0: none

    bool isIpv4() const { return family == AddressFamily::IPv4; }
    bool operator==(const IpAddress& other) const = default;
};

struct Endpoint {
    IpAddress address;
    uint16_t port = 0;
};

// Four decimal numbers of 0 to 255 with dots between and nothing else.
std::optional<IpAddress> parseIpv4(std::string_view text);
// The forms of RFC 4291 section 2.2, with an optional numeric zone ("%3"); no brackets.
std::optional<IpAddress> parseIpv6(std::string_view text);
// Either of them.
std::optional<IpAddress> parseIp(std::string_view text);

// IPv6 in the form of RFC 5952.
std::string toText(const IpAddress& address);

}  // namespace tv::plat
