// One item after the other, each checked for the one form that DER allows.
#include "net/x509/DerReader.h"

#include <algorithm>

#include "base/ByteReader.h"

namespace tv::x509 {
namespace {

// Definite and minimal (X.690, 10.1); more than four bytes of length never fit a certificate.
bool readLength(ByteReader& r, size_t& length) {
    const uint8_t first = r.u8();
    if (first < 0x80) {
        length = first;
        return r.ok();
    }
    const size_t count = first & 0x7F;
    if (count == 0 || count > 4) return false;
    length = 0;
    for (size_t i = 0; i < count; ++i) {
        length = (length << 8) | r.u8();
    }
    const size_t lowest = count == 1 ? 0x80 : size_t{1} << (8 * (count - 1));
    return r.ok() && length >= lowest;
}

}  // namespace

void DerReader::fail() {
    ok_ = false;
    rest_ = {};
}

DerItem DerReader::any() {
    ByteReader r(rest_);
    DerItem item;
    item.tag = r.u8();
    size_t length = 0;
    const bool multiByteTag = (item.tag & 0x1F) == 0x1F;  // numbers above 30: X.690, 8.1.2.4
    if (!r.ok() || multiByteTag || !readLength(r, length)) {
        fail();
        return {};
    }
    item.content = r.bytes(length);
    if (!r.ok()) {
        fail();
        return {};
    }
    item.whole = rest_.first(rest_.size() - r.left());
    rest_ = r.rest();
    return item;
}

DerItem DerReader::item(uint8_t tag) {
    const DerItem found = any();
    if (found.tag == tag) return found;
    fail();
    return {};
}

std::optional<Bytes> DerReader::optional(uint8_t tag) {
    if (rest_.empty() || rest_.front() != tag) return std::nullopt;
    return content(tag);
}

Bytes DerReader::integer() {
    const Bytes value = content(der::kInteger);
    // X.690, 8.3.2: the first nine bits are neither all zero nor all one.
    const bool redundant = value.size() > 1 && ((value[0] == 0x00 && (value[1] & 0x80) == 0) ||
                                                (value[0] == 0xFF && (value[1] & 0x80) != 0));
    if (value.empty() || redundant) {
        fail();
        return {};
    }
    return value;
}

Bytes DerReader::unsignedInteger() {
    Bytes value = integer();
    if (value.empty()) return {};
    if ((value[0] & 0x80) != 0) {
        fail();
        return {};
    }
    return value.size() > 1 && value[0] == 0 ? value.subspan(1) : value;
}

uint32_t DerReader::smallInteger() {
    const Bytes value = unsignedInteger();
    if (value.size() > 4) fail();
    uint32_t number = 0;
    for (const uint8_t byte : ok_ ? value : Bytes{}) {
        number = (number << 8) | byte;
    }
    return number;
}

bool DerReader::boolean() {
    const Bytes value = content(der::kBoolean);
    if (value.size() != 1 || (value[0] != 0x00 && value[0] != 0xFF)) {
        fail();
        return false;
    }
    return value[0] != 0;
}

Bytes DerReader::bitString() {
    const Bytes value = content(der::kBitString);
    // X.690, 8.6.2.2: the first byte counts the unused bits of the last one.
    if (value.empty() || value[0] != 0) {
        fail();
        return {};
    }
    return value.subspan(1);
}

bool sameBytes(Bytes a, Bytes b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

}  // namespace tv::x509
