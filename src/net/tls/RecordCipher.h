// The protection of records in one direction: one class per kind of cipher, one object per set of
// keys. The sequence number lives inside and starts at zero.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "base/DataBuffer.h"
#include "base/SecureBuffer.h"
#include "base/crypto/RandomSource.h"
#include "net/tls/CipherSuites.h"
#include "net/tls/TlsTypes.h"

namespace tv::tls {

struct RecordHeader {
    ContentType type;
    Version version;
};

class RecordCipher {
public:
    virtual ~RecordCipher() = default;
    // Appends one whole record, header included. False where memory or randomness fails: then
    // nothing was appended.
    virtual bool seal(const RecordHeader& header, std::span<const uint8_t> plaintext,
                      DataBuffer& out) = 0;
    // Opens the body of a record in place. plaintext becomes a view into body and header.type the
    // type that was protected. False for every record that is not genuine; no timing tells why.
    virtual bool open(RecordHeader& header, std::span<uint8_t> body,
                      std::span<const uint8_t>& plaintext) = 0;
    // TLS 1.0 CBC: the first byte of application data goes in a record of its own, so that the
    // chaining value of the rest cannot be known before (RFC 4346, F.3, the usual remedy).
    virtual bool splitsFirstByte() const { return false; }
    // Bytes inside the protection beside the data itself: what record_size_limit counts, too.
    virtual size_t innerOverhead() const { return 0; }
};

// Keys of one direction as the key schedule cuts them.
struct RecordKeys {
    SecureBuffer macKey;
    SecureBuffer key;
    SecureBuffer iv;
};

// The cipher of a suite under a version; random makes the initialisation vectors of CBC records.
// nullptr where the keys do not have the suite's sizes.
std::unique_ptr<RecordCipher> makeRecordCipher(const CipherSuite& suite, Version version,
                                               const RecordKeys& keys,
                                               const crypto::RandomSource& random);

}  // namespace tv::tls
