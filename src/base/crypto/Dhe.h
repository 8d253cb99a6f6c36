// Ephemeral finite-field Diffie-Hellman, the client's side (RFC 5246 7.4.3, 8.1.2).
#pragma once

#include <cstdint>
#include <span>

#include "base/SecureBuffer.h"
#include "base/crypto/Montgomery.h"
#include "base/crypto/RandomSource.h"

namespace tv::crypto {

class Dhe {
public:
    static constexpr size_t kMinBits = 768;    // below: refused, as the groups of export suites
    static constexpr size_t kSafeBits = 2048;  // below: the caller should warn

    enum class Check { Ok, GroupTooSmall, GroupTooLarge, BadGroup, BadPeerKey };

    // The server's group and public value, big-endian as they came. Anything but Ok leaves an
    // object that may only be set again. BadGroup: p even, or g outside 2 .. p-2. BadPeerKey: Ys
    // outside 2 .. p-2.
    Check setServerParams(std::span<const uint8_t> p, std::span<const uint8_t> g,
                          std::span<const uint8_t> ys);
    size_t bits() const { return group_.modulus().bits(); }
    size_t bytes() const { return (bits() + 7) / 8; }

    // A fresh private exponent and its public value, which has bytes() bytes.
    bool generate(const RandomSource& random);
    std::span<const uint8_t> publicValue() const { return public_.bytes(); }

    // The secret shared with the server, after generate: all bytes() of it, and in the form that
    // TLS before 1.3 feeds to its PRF, without leading zero bytes (RFC 5246 8.1.2). False for the
    // secret 1, which a value of low order brings about, and for 0.
    bool derive(SecureBuffer& padded) const;
    bool deriveStripped(SecureBuffer& stripped) const;

private:
    Montgomery group_;
    BigNum generator_, peer_;
    SecureBuffer private_, public_;
};

}  // namespace tv::crypto
