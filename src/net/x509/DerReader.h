// A strict reader of DER (X.690): definite minimal lengths, low tag numbers, minimal integers.
// Like ByteReader it turns bad for good at the first fault and yields empty views from then on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace tv::x509 {

using Bytes = std::span<const uint8_t>;

namespace der {
// Tags of X.680, 8.4, as X.690, 8.1.2 encodes them: 20 marks what is constructed.
constexpr uint8_t kBoolean = 0x01;
constexpr uint8_t kInteger = 0x02;
constexpr uint8_t kBitString = 0x03;
constexpr uint8_t kOctetString = 0x04;
constexpr uint8_t kNull = 0x05;
constexpr uint8_t kOid = 0x06;
constexpr uint8_t kUtf8String = 0x0C;
constexpr uint8_t kPrintableString = 0x13;
constexpr uint8_t kT61String = 0x14;
constexpr uint8_t kIa5String = 0x16;
constexpr uint8_t kUtcTime = 0x17;
constexpr uint8_t kGeneralizedTime = 0x18;
constexpr uint8_t kBmpString = 0x1E;
constexpr uint8_t kSequence = 0x30;
constexpr uint8_t kSet = 0x31;
// Context-specific [n], primitive and constructed.
constexpr uint8_t context(uint8_t n) {
    return static_cast<uint8_t>(0x80 | n);
}
constexpr uint8_t contextConstructed(uint8_t n) {
    return static_cast<uint8_t>(0xA0 | n);
}
}  // namespace der

struct DerItem {
    uint8_t tag = 0;
    Bytes content;
    Bytes whole;  // with tag and length
};

class DerReader {
public:
    explicit DerReader(Bytes bytes) : rest_(bytes) {}

    bool ok() const { return ok_; }
    bool atEnd() const { return rest_.empty(); }
    bool complete() const { return ok_ && rest_.empty(); }
    void fail();

    DerItem any();
    // The content of an item that must have this tag.
    Bytes content(uint8_t tag) { return item(tag).content; }
    DerItem item(uint8_t tag);
    // The next item if it has this tag; otherwise nothing is taken.
    std::optional<Bytes> optional(uint8_t tag);
    DerReader into(uint8_t tag) { return DerReader(content(tag)); }
    DerReader sequence() { return into(der::kSequence); }

    // The bytes of a minimal INTEGER, big-endian two's complement.
    Bytes integer();
    // A non-negative INTEGER without its leading zero byte; fails for a negative one.
    Bytes unsignedInteger();
    // A non-negative INTEGER that fits 32 bits.
    uint32_t smallInteger();
    // TRUE is 0xFF and FALSE 0x00, nothing else (X.690, 11.1).
    bool boolean();
    // A BIT STRING of whole bytes.
    Bytes bitString();

private:
    Bytes rest_;
    bool ok_ = true;
};

bool sameBytes(Bytes a, Bytes b);

}  // namespace tv::x509
