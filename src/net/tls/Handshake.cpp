// What both flows do alike with the record layer.
#include "net/tls/Handshake.h"

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

Cause applyRecordSizeLimit(RecordLayer& records, uint16_t limit) {
    constexpr uint16_t kSmallest = 64;  // RFC 8449, 4
    if (limit < kSmallest) return Cause::TlsIllegalParameter;
    records.setPeerLimit(limit);
    return Cause::None;
}

}  // namespace tv::tls
