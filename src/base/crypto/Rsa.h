// RSA with a public key (RFC 8017): signatures are verified, a secret is encrypted. No private
// keys.
#pragma once

#include <cstdint>
#include <span>

#include "base/crypto/Hash.h"
#include "base/crypto/Montgomery.h"
#include "base/crypto/RandomSource.h"

namespace tv::crypto {

class RsaPublicKey {
public:
    // Big-endian numbers, leading zeros allowed. False unless the modulus is odd and of 512 to 8192
    // bits and the exponent is odd and in 3 .. 2^32. The key is then as before.
    bool set(std::span<const uint8_t> modulus, std::span<const uint8_t> exponent);

    size_t bits() const { return montgomery_.modulus().bits(); }
    // Length of a signature and of an encrypted message.
    size_t bytes() const { return (bits() + 7) / 8; }

    // All take the digest of the signed message. A digest of another length than the hash's and a
    // signature of the wrong length or out of range make a wrong signature.
    // PKCS #1 v1.5: the whole padded message is rebuilt and compared, nothing of it is parsed.
    bool verifyPkcs1(HashId hash, std::span<const uint8_t> digest,
                     std::span<const uint8_t> signature) const;
    // The same without the name of a hash: MD5 and SHA-1 digest in a row, as TLS 1.0 and 1.1 sign
    // (RFC 4346 7.4.3).
    bool verifyPkcs1Md5Sha1(std::span<const uint8_t> digests,
                            std::span<const uint8_t> signature) const;
    // PSS with MGF1 of the same hash and a salt of saltSize bytes (in TLS that of the digest,
    // RFC 8446 4.2.3).
    bool verifyPss(HashId hash, std::span<const uint8_t> digest, size_t saltSize,
                   std::span<const uint8_t> signature) const;

    // PKCS #1 v1.5 encryption. out has bytes() bytes. False if the message is longer than
    // bytes() - 11 or random failed.
    bool encryptPkcs1(std::span<const uint8_t> message, const RandomSource& random,
                      std::span<uint8_t> out) const;

private:
    bool verifyPadded(std::span<const uint8_t> name, std::span<const uint8_t> digest,
                      std::span<const uint8_t> signature) const;
    // signature ^ exponent as bytes() bytes.
    bool open(std::span<const uint8_t> signature, std::span<uint8_t> out) const;

    Montgomery montgomery_;
    uint64_t exponent_ = 0;
};

}  // namespace tv::crypto
