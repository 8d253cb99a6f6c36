// The public operation, and around it the paddings of signatures and of a secret (RFC 8017).
#include "base/crypto/Rsa.h"

#include <algorithm>

#include "base/crypto/WipeStack.h"

namespace tv::crypto {

namespace {

constexpr size_t kMaxBytes = BigNum::kMaxBits / 8;
// Whether a key is strong enough is judged above; what is shorter is none.
constexpr size_t kMinBits = 512;
constexpr size_t kPaddingOverhead = 11;  // 00, type, at least eight bytes, 00

// What stands before the digest in a PKCS #1 v1.5 signature (RFC 8017 9.2, note 1), by HashId:
// SEQUENCE { SEQUENCE { OBJECT IDENTIFIER, NULL }, OCTET STRING }
constexpr uint8_t kMd5Name[] = {0x30, 0x20, 0x30, 0x0c, 0x06, 0x08, 0x2a, 0x86, 0x48,
                                0x86, 0xf7, 0x0d, 0x02, 0x05, 0x05, 0x00, 0x04, 0x10};
constexpr uint8_t kSha1Name[] = {0x30, 0x21, 0x30, 0x09, 0x06, 0x05, 0x2b, 0x0e,
                                 0x03, 0x02, 0x1a, 0x05, 0x00, 0x04, 0x14};
constexpr uint8_t kSha256Name[] = {0x30, 0x31, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01,
                                   0x65, 0x03, 0x04, 0x02, 0x01, 0x05, 0x00, 0x04, 0x20};
constexpr uint8_t kSha384Name[] = {0x30, 0x41, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01,
                                   0x65, 0x03, 0x04, 0x02, 0x02, 0x05, 0x00, 0x04, 0x30};
constexpr uint8_t kSha512Name[] = {0x30, 0x51, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01,
                                   0x65, 0x03, 0x04, 0x02, 0x03, 0x05, 0x00, 0x04, 0x40};

std::span<const uint8_t> hashName(HashId hash) {
    switch (hash) {
        case HashId::kMd5:
            return kMd5Name;
        case HashId::kSha1:
            return kSha1Name;
        case HashId::kSha256:
            return kSha256Name;
        case HashId::kSha384:
            return kSha384Name;
        case HashId::kSha512:
            return kSha512Name;
    }
    return {};
}

// Replaces zero bytes by fresh random ones. A good source needs a handful of rounds; a source that
// gives nothing but zeros has failed.
bool fillNonZero(const RandomSource& random, std::span<uint8_t> out) {
    constexpr int kMaxRounds = 64;
    if (!random(out)) return false;
    for (int round = 0; round < kMaxRounds; ++round) {
        const auto zeros = std::count(out.begin(), out.end(), uint8_t{0});
        if (zeros == 0) return true;
        uint8_t fresh[kMaxBytes];
        const std::span<uint8_t> more(fresh, static_cast<size_t>(zeros));
        if (!random(more)) return false;
        size_t next = 0;
        for (uint8_t& byte : out) {
            if (byte == 0) byte = more[next++];
        }
    }
    return false;
}

}  // namespace

bool RsaPublicKey::set(std::span<const uint8_t> modulus, std::span<const uint8_t> exponent) {
    BigNum n, e;
    if (!n.fromBytes(modulus) || n.bits() < kMinBits || !e.fromBytes(exponent)) return false;
    if (!e.isOdd() || e.bits() < 2 || e.bits() > 32) return false;  // 2^32 itself is even
    Montgomery montgomery;
    if (!montgomery.setModulus(n)) return false;
    montgomery_ = montgomery;
    uint8_t bytes[8];
    e.toBytes(bytes);
    exponent_ = 0;
    for (uint8_t byte : bytes) {
        exponent_ = exponent_ << 8 | byte;
    }
    return true;
}

bool RsaPublicKey::open(std::span<const uint8_t> signature, std::span<uint8_t> out) const {
    if (exponent_ == 0 || signature.size() != bytes()) return false;
    BigNum value;
    if (!value.fromBytes(signature) || !value.isLessThan(montgomery_.modulus())) return false;
    montgomery_.powPublic(value, value, exponent_);
    return value.toBytes(out);
}

bool RsaPublicKey::verifyPkcs1(HashId hash, std::span<const uint8_t> digest,
                               std::span<const uint8_t> signature) const {
    return digest.size() == digestSize(hash) && verifyPadded(hashName(hash), digest, signature);
}

bool RsaPublicKey::verifyPkcs1Md5Sha1(std::span<const uint8_t> digests,
                                      std::span<const uint8_t> signature) const {
    return digests.size() == Md5::kDigestSize + Sha1::kDigestSize &&
           verifyPadded({}, digests, signature);
}

bool RsaPublicKey::verifyPadded(std::span<const uint8_t> name, std::span<const uint8_t> digest,
                                std::span<const uint8_t> signature) const {
    const size_t size = bytes();
    if (size < name.size() + digest.size() + kPaddingOverhead) return false;
    uint8_t actual[kMaxBytes], expected[kMaxBytes];
    if (!open(signature, {actual, size})) return false;
    // RFC 8017 8.2.2: 00 01 FF .. FF 00, then the name of the hash and the digest.
    std::fill(expected, expected + size, uint8_t{0xff});
    expected[0] = 0x00;
    expected[1] = 0x01;
    uint8_t* tail = expected + size - name.size() - digest.size();
    tail[-1] = 0x00;
    tail = std::copy(name.begin(), name.end(), tail);
    std::copy(digest.begin(), digest.end(), tail);
    return std::equal(expected, expected + size, actual);
}

bool RsaPublicKey::encryptPkcs1(std::span<const uint8_t> message, const RandomSource& random,
                                std::span<uint8_t> out) const {
    const size_t size = bytes();
    if (exponent_ == 0 || out.size() != size || message.size() + kPaddingOverhead > size)
        return false;
    // RFC 8017 7.2.1: 00 02, random bytes other than zero, 00, message.
    uint8_t block[kMaxBytes];
    const std::span<uint8_t> padding(block + 2, size - 3 - message.size());
    block[0] = 0x00;
    block[1] = 0x02;
    const bool ok = fillNonZero(random, padding);
    block[2 + padding.size()] = 0x00;
    std::copy(message.begin(), message.end(), block + size - message.size());
    // The block starts with a zero byte and so is below the modulus.
    if (ok) montgomery_.powSecretBase(out, {block, size}, exponent_);
    wipeStack<Montgomery::kStackTaken>();
    plat::wipe(block, sizeof block);
    return ok;
}

}  // namespace tv::crypto
