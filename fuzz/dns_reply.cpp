// The reply decoder on anything that may come from a name server: what it calls an answer carries
// the question's id, its addresses are within their limit, each there once.
#include "Target.h"
#include "net/dns/DnsMessage.h"

void tv::take(Input input) {
    using namespace dns;
    std::vector<uint8_t> query;
    require(encodeQuery(0x1234, "mail.example.test", plat::AddressFamily::IPv4, query));
    // Once behind a good header and question, with the input's count of answers.
    std::vector<uint8_t> framed = query;
    framed[2] = 0x81;
    framed[7] = input.empty() ? 0 : input[0];
    framed.insert(framed.end(), input.begin(), input.end());
    for (const Input message : {input, Input(framed)}) {
        const Reply reply = decodeReply(message, query);
        require(reply.addresses.size() <= kMaxAddresses);
        require(reply.addresses.empty() == (reply.kind != ReplyKind::Addresses));
        require(!reply.isAnswer() || (message[0] == 0x12 && message[1] == 0x34));
        for (const auto& address : reply.addresses) {
            require(std::ranges::count(reply.addresses, address) == 1);
        }
    }
}
