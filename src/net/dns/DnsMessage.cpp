// One question to bytes, and the bytes of a reply to what it tells: the addresses at the end of the
// chain of aliases, or why there are none.
#include "net/dns/DnsMessage.h"

#include <algorithm>

#include "base/ByteReader.h"
#include "base/ByteWriter.h"
#include "net/dns/DnsName.h"

namespace tv::dns {
namespace {

// RFC 1035 sections 3.2.2, 3.2.4 and 4.1.1, RFC 3596 section 2.1.
constexpr uint16_t kTypeA = 1;
constexpr uint16_t kTypeCname = 5;
constexpr uint16_t kTypeAaaa = 28;
constexpr uint16_t kClassInternet = 1;
constexpr uint16_t kRecursionDesired = 0x0100;
constexpr uint16_t kIsReply = 0x8000;
constexpr uint16_t kOpcode = 0x7800;
constexpr uint16_t kTruncated = 0x0200;
constexpr uint16_t kResponseCode = 0x000F;
constexpr int kNoSuchName = 3;
// Honest chains have a few; a longer one may be a circle.
constexpr int kMaxAliases = 16;

struct Question {
    WireName name;
    uint16_t type = 0;
    uint16_t klass = 0;
    bool operator==(const Question& other) const = default;
};

struct Header {
    uint16_t id = 0;
    uint16_t flags = 0;
    uint16_t questions = 0;
    uint16_t answers = 0;
};

struct Record {
    WireName owner;
    uint16_t type = 0;
    uint32_t ttl = 0;
    WireName alias;           // CNAME
    plat::IpAddress address;  // A, AAAA
};

Header readHeader(ByteReader& in) {
    Header header;
    header.id = in.u16();
    header.flags = in.u16();
    header.questions = in.u16();
    header.answers = in.u16();
    in.skip(4);  // the counts of the other sections
    return header;
}

Question readQuestion(ByteReader& in, std::span<const uint8_t> message) {
    Question question;
    readName(in, message, question.name);
    question.type = in.u16();
    question.klass = in.u16();
    return question;
}

// RFC 2181 section 8: a value with the highest bit set counts as 0.
uint32_t sensibleTtl(uint32_t ttl) {
    return ttl > 0x7FFFFFFF ? 0 : ttl;
}

// Records of other types than the one asked for and aliases, and of other classes, are read over.
// False: malformed.
bool readRecord(ByteReader& in, std::span<const uint8_t> message, uint16_t asked,
                std::vector<Record>& records) {
    Record record;
    readName(in, message, record.owner);
    record.type = in.u16();
    const uint16_t klass = in.u16();
    record.ttl = sensibleTtl(in.u32());
    const size_t size = in.u16();
    const size_t end = in.position() + size;
    if (klass == kClassInternet && record.type == asked) {
        const bool isIpv4 = asked == kTypeA;
        record.address.family = isIpv4 ? plat::AddressFamily::IPv4 : plat::AddressFamily::IPv6;
        if (size != (isIpv4 ? 4 : 16)) return false;
        const std::span<const uint8_t> bytes = in.bytes(size);
        std::copy(bytes.begin(), bytes.end(), record.address.bytes.begin());
        records.push_back(std::move(record));
    } else if (klass == kClassInternet && record.type == kTypeCname) {
        if (!readName(in, message, record.alias) || in.position() != end) return false;
        records.push_back(std::move(record));
    } else {
        in.skip(size);
    }
    return in.ok();
}

void useTtl(const Record& record, Reply& reply) {
    reply.ttlSeconds = std::min(reply.ttlSeconds.value_or(UINT32_MAX), record.ttl);
}

// The addresses of one name; false where it has none.
bool collectAddresses(const WireName& owner, const std::vector<Record>& records, Reply& reply) {
    auto& addresses = reply.addresses;
    for (const Record& record : records) {
        if (record.type == kTypeCname || record.owner != owner) continue;
        useTtl(record, reply);
        const bool isNew =
            std::find(addresses.begin(), addresses.end(), record.address) == addresses.end();
        if (isNew && addresses.size() < kMaxAddresses) addresses.push_back(record.address);
    }
    return !addresses.empty();
}

bool followAliases(const WireName& asked, const std::vector<Record>& records, Reply& reply) {
    WireName owner = asked;
    for (int i = 0; i <= kMaxAliases; ++i) {
        if (collectAddresses(owner, records, reply)) return true;
        const auto alias = std::find_if(records.begin(), records.end(), [&](const Record& record) {
            return record.type == kTypeCname && record.owner == owner;
        });
        if (alias == records.end()) return false;
        useTtl(*alias, reply);
        owner = alias->alias;
    }
    return false;
}

}  // namespace

bool encodeQuery(uint16_t id, std::string_view host, plat::AddressFamily family,
                 std::vector<uint8_t>& out) {
    WireName name;
    if (!encodeName(host, name)) return false;
    ByteWriter writer;
    writer.u16(id);
    writer.u16(kRecursionDesired);
    writer.u16(1);    // one question
    writer.zeros(6);  // nothing in the other sections
    writer.append(name);
    writer.u16(family == plat::AddressFamily::IPv4 ? kTypeA : kTypeAaaa);
    writer.u16(kClassInternet);
    out = writer.take();
    return true;
}

Reply decodeReply(std::span<const uint8_t> message, std::span<const uint8_t> query) {
    Reply reply;
    ByteReader asked(query);
    const uint16_t id = readHeader(asked).id;
    const Question question = readQuestion(asked, query);
    ByteReader in(message);
    const Header header = readHeader(in);
    if (!in.ok() || (header.flags & kIsReply) == 0 || (header.flags & kOpcode) != 0) return reply;
    if (header.id != id) {
        reply.kind = ReplyKind::WrongId;
        return reply;
    }
    if (header.questions != 1 || readQuestion(in, message) != question) {
        reply.kind = ReplyKind::WrongQuestion;
        return reply;
    }
    reply.responseCode = header.flags & kResponseCode;
    if (header.flags & kTruncated) {
        reply.kind = ReplyKind::Truncated;
        return reply;
    }
    std::vector<Record> records;
    for (size_t i = 0; i < header.answers; ++i) {
        if (!readRecord(in, message, question.type, records)) return reply;
    }
    if (reply.responseCode == kNoSuchName) {
        reply.kind = ReplyKind::NoSuchName;
    } else if (reply.responseCode != 0) {
        reply.kind = ReplyKind::Refused;
    } else {
        const bool found = followAliases(question.name, records, reply);
        reply.kind = found ? ReplyKind::Addresses : ReplyKind::NoAddress;
    }
    return reply;
}

}  // namespace tv::dns
