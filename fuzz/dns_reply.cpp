// The reply decoder on anything that may come from a name server: what it calls an answer carries
// the question's id, its addresses are within their limit, each there once, and letters of the
// question may be of either case.
#include <algorithm>
#include <cstdlib>

#include "net/dns/DnsMessage.h"
#include "net/dns/DnsName.h"

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

void checkName(std::span<const uint8_t> message) {
    tv::ByteReader in(message);
    tv::dns::WireName name;
    if (!tv::dns::readName(in, message, name)) return;
    require(name.size() <= 255 && !name.empty() && name.back() == '\0');
    // Read again from its own bytes it is the same.
    const std::span<const uint8_t> own(reinterpret_cast<const uint8_t*>(name.data()), name.size());
    tv::ByteReader again(own);
    tv::dns::WireName same;
    require(tv::dns::readName(again, own, same) && again.complete() && same == name);
}

}  // namespace

// The first two bytes choose how the message starts, so that most of it is not lost on the header.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<uint8_t> query;
    require(tv::dns::encodeQuery(0x1234, "mail.example.test", query));
    std::vector<uint8_t> message(data, data + size);
    checkName(message);
    for (const bool framed : {false, true}) {
        if (framed) {  // a good header and question before it; the count of answers is the input's
            message = query;
            message[2] = 0x81;
            message[7] = size ? data[0] : 0;
            message.insert(message.end(), data, data + size);
        }
        const tv::dns::Reply reply = tv::dns::decodeReply(message, query);
        require(reply.addresses.size() <= tv::dns::kMaxAddresses);
        require(reply.addresses.empty() == (reply.kind != tv::dns::ReplyKind::Addresses));
        if (!reply.isAnswer()) continue;
        require(message.size() >= query.size() && message[0] == 0x12 && message[1] == 0x34);
        for (const auto& address : reply.addresses) {
            require(std::count(reply.addresses.begin(), reply.addresses.end(), address) == 1);
        }
    }
    return 0;
}
