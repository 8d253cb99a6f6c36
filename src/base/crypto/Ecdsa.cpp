// The reader of a signature's DER, in front of the curve's verification.
#include "base/crypto/Ecdsa.h"

#include <algorithm>

#include "base/ByteReader.h"

namespace tv::crypto {

namespace {

constexpr size_t kMaxNumber = 66;                     // bytes, of secp521r1
constexpr uint8_t kInteger = 0x02, kSequence = 0x30;  // tags of X.690

// DER: the length in its shortest form. None of our signatures reaches 256 bytes.
std::span<const uint8_t> readElement(ByteReader& in, uint8_t tag) {
    if (in.u8() != tag) in.fail();
    size_t length = in.u8();
    // 81: the length follows in one byte, which is then 128 at least (X.690, 10.1).
    if (length == 0x81) {
        length = in.u8();
        if (length < 0x80) in.fail();
    } else if (length >= 0x80) {
        in.fail();
    }
    return in.bytes(length);
}

// A positive INTEGER in its shortest form, at most size bytes of it, to a number of that size.
bool readNumber(ByteReader& in, std::span<uint8_t> out) {
    std::span<const uint8_t> content = readElement(in, kInteger);
    if (content.empty() || content[0] >= 0x80) return false;
    if (content[0] == 0) {
        // A leading zero only keeps a number from looking negative (X.690, 8.3.2).
        if (content.size() == 1 || content[1] < 0x80) return false;
        content = content.subspan(1);
    }
    if (content.size() > out.size()) return false;
    const auto start = std::fill_n(out.begin(), out.size() - content.size(), uint8_t{0});
    std::copy(content.begin(), content.end(), start);
    return true;
}

}  // namespace

bool ecdsaVerify(EcCurveId curve, std::span<const uint8_t> point, std::span<const uint8_t> digest,
                 std::span<const uint8_t> signature) {
    const EcCurve& group = ecCurve(curve);
    uint8_t numbers[2 * kMaxNumber];
    const std::span<uint8_t> r(numbers, group.fieldBytes());
    const std::span<uint8_t> s(numbers + kMaxNumber, group.fieldBytes());
    ByteReader outer(signature);
    ByteReader inner(readElement(outer, kSequence));
    if (!outer.complete() || !readNumber(inner, r) || !readNumber(inner, s) || !inner.complete())
        return false;
    return group.verify(r, s, digest, point);
}

}  // namespace tv::crypto
