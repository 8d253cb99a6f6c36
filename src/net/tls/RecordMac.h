// The MAC of stream and CBC records (RFC 5246, 6.2.3.1), and its check where the length of the data
// is itself a secret.
#pragma once

#include <cstdint>
#include <span>

#include "base/SecureBuffer.h"
#include "base/crypto/Hmac.h"
#include "net/tls/RecordCipher.h"

namespace tv::tls {

class RecordMac {
public:
    RecordMac(crypto::HashId hash, std::span<const uint8_t> key);

    size_t size() const { return crypto::digestSize(hash_); }
    // The MAC of one record.
    crypto::DigestBytes of(uint64_t sequence, const RecordHeader& header,
                           std::span<const uint8_t> data);
    // A decrypted CBC body: data, MAC, padding, where only the padding tells the length of the
    // data. Checks padding and MAC together in a time that depends on nothing but the body's size.
    // On success size is the length of the data. body holds at least a MAC and one byte.
    bool checkPadded(uint64_t sequence, const RecordHeader& header, std::span<const uint8_t> body,
                     size_t& size);

private:
    crypto::HashId hash_;
    crypto::Hmac mac_;
    crypto::Hash inner_;  // has seen the key block
    crypto::Hash outer_;
};

}  // namespace tv::tls
