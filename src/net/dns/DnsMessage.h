// Questions for the addresses of a name and the replies to them (RFC 1035 section 4).
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "platform/IpAddress.h"

namespace tv::dns {

inline constexpr size_t kMaxUdpRequest = 512;  // RFC 1035 section 2.3.4
inline constexpr size_t kMaxAddresses = 64;    // kept of one reply

// False where host is no name that a question could hold.
bool encodeQuery(uint16_t id, std::string_view host, plat::AddressFamily family,
                 std::vector<uint8_t>& out);

enum class ReplyKind : uint8_t {
    // No reply to this question: whoever sent it, the true one may still come.
    Malformed,
    WrongId,
    WrongQuestion,
    // Replies.
    Truncated,  // to be asked again over a stream
    Refused,    // the server cannot or will not tell; responseCode says why
    NoSuchName,
    NoAddress,  // the name exists, but at the end of its aliases no address of that family
    Addresses,
};

struct Reply {
    ReplyKind kind = ReplyKind::Malformed;
    int responseCode = 0;
    // Of the name asked for or of what its CNAME chain leads to, each once, in the server's order.
    std::vector<plat::IpAddress> addresses;
    std::optional<uint32_t> ttlSeconds;  // the smallest of the records used

    bool isAnswer() const { return kind >= ReplyKind::Truncated; }
};

// query: the bytes that were sent, made by encodeQuery. What stands behind the answers is not read.
Reply decodeReply(std::span<const uint8_t> message, std::span<const uint8_t> query);

}  // namespace tv::dns
