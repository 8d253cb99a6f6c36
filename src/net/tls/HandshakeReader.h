// Puts handshake messages together from the records that carry them.
#pragma once

#include <cstdint>
#include <span>

#include "base/SecureBuffer.h"
#include "net/tls/TlsTypes.h"

namespace tv::tls {

struct HandshakeMessage {
    HandshakeType type;
    std::span<const uint8_t> body;
    std::span<const uint8_t> whole;  // with the header, as the transcript takes it
};

class HandshakeReader {
public:
    enum class Result : uint8_t { NeedMore, Message, TooLong };

    // Adds the plaintext of a handshake record.
    void append(std::span<const uint8_t> fragment) { pending_.append(fragment); }
    // The next whole message; its views hold until the reader is touched again. A header that
    // announces more than is accepted is refused before its body is waited for.
    Result next(HandshakeMessage& out);
    // True between messages: nothing of the next one has arrived.
    bool atBoundary() const { return pending_.size() == taken_; }

private:
    SecureBuffer pending_;
    size_t taken_ = 0;  // bytes at the front that belong to the message handed out last
};

}  // namespace tv::tls
