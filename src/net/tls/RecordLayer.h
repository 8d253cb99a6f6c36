// Records on the wire: cuts what is sent, puts together what arrives, and holds the protection of
// both directions (RFC 5246, 6.2; RFC 8446, 5).
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "base/Cause.h"
#include "base/DataBuffer.h"
#include "base/SecureBuffer.h"
#include "net/tls/RecordCipher.h"
#include "net/tls/TlsTypes.h"

namespace tv::tls {

struct Record {
    ContentType type;
    std::span<const uint8_t> plaintext;  // valid until the layer is touched again
};

class RecordLayer {
public:
    // What is asked of the socket at once: a full record with its header and protection fits. The
    // log of a connection that ended tells the number (maxToReceive).
    static constexpr size_t kReceiveSize = kMaxPlaintext + 512;

    // Where bytes from the peer are put: kReceiveSize of them, once next has said NeedMore.
    std::span<uint8_t> room();
    // The first size bytes of the room have come.
    void arrived(size_t size) { end_ += size; }
    // Wipes all that has come.
    void discardArrived() { discard(end_); }
    // The next whole record, opened; none where more has to come, and those before it are wiped
    // then.
    Cause next(std::optional<Record>& out);

    // Cuts the bytes into records and appends them to the outbox. An empty span sends nothing.
    bool send(ContentType type, std::span<const uint8_t> bytes);
    // From here on send drops what it is given.
    void endWriting() { writingEnded_ = true; }
    DataBuffer& outbox() { return outbox_; }

    // The version of the handshake: from now on in every header, and the limit of what arrives.
    void setVersion(Version version);
    void protectReading(std::unique_ptr<RecordCipher> cipher) { reader_ = std::move(cipher); }
    void protectWriting(std::unique_ptr<RecordCipher> cipher) { writer_ = std::move(cipher); }
    bool isWritingProtected() const { return writer_ != nullptr; }
    // What the peer said in record_size_limit (RFC 8449), counted as that extension counts; 0:
    // none.
    void setPeerLimit(size_t limit) { peerLimit_ = limit; }

private:
    void discard(size_t size);
    Cause needMore();
    size_t largestPlaintext() const;
    bool sendOne(ContentType type, std::span<const uint8_t> fragment);

    // The longest record that is not whole yet, and the next read. Records are opened in place.
    SecureBuffer inbox_{kRecordHeaderSize + kMaxCiphertext12 + kReceiveSize};
    size_t taken_ = 0;  // bytes at its front that were handed out already
    size_t end_ = 0;    // of what has come
    DataBuffer outbox_;
    std::unique_ptr<RecordCipher> reader_;
    std::unique_ptr<RecordCipher> writer_;
    Version headerVersion_ = Version::Tls10;  // what a first ClientHello carries
    size_t maxBody_ = kMaxCiphertext12;
    size_t peerLimit_ = 0;
    bool isTls13_ = false;
    bool writingEnded_ = false;
};

}  // namespace tv::tls
