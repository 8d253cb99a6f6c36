#include "net/tls/Handshake.h"

#include <algorithm>

namespace tv::tls {

bool Handshake::send(std::span<const uint8_t> message) {
    transcript.add(message);
    return records.send(ContentType::Handshake, message);
}

bool Handshake::sendCompatibilityCcs() {
    if (sentCcs || hello.sessionId.empty()) return true;
    sentCcs = true;
    static constexpr uint8_t kBody[] = {1};
    return records.send(ContentType::ChangeCipherSpec, kBody);
}

TlsFailure applyRecordSizeLimit(RecordLayer& records, Version version, uint16_t limit) {
    constexpr uint16_t kSmallest = 64;
    if (limit < kSmallest) return TlsFailure::IllegalParameter;
    // In TLS 1.3 the limit counts the content type, too.
    const size_t largest = version >= Version::Tls13 ? kMaxPlaintext + 1 : kMaxPlaintext;
    records.setPeerLimit(std::min<size_t>(limit, largest));
    return TlsFailure::None;
}

}  // namespace tv::tls
