// Records in and out under the keys of the moment.
#include "net/tls/RecordLayer.h"

#include <algorithm>
#include <cstring>

#include "base/ByteReader.h"
#include "platform/SysWipe.h"

namespace tv::tls {
namespace {

bool isKnownType(ContentType type) {
    return type == ContentType::ChangeCipherSpec || type == ContentType::Alert ||
           type == ContentType::Handshake || type == ContentType::ApplicationData;
}

}  // namespace

void RecordLayer::setVersion(Version version) {
    isTls13_ = version >= Version::Tls13;
    headerVersion_ = isTls13_ ? Version::Tls12 : version;  // RFC 8446, 5.1
    maxBody_ = isTls13_ ? kMaxCiphertext13 : kMaxCiphertext12;
}

std::span<uint8_t> RecordLayer::room() {
    return inbox_.bytes().subspan(end_, std::min(kReceiveSize, inbox_.size() - end_));
}

// Wipes the first size bytes of what has come and moves the rest to the front.
void RecordLayer::discard(size_t size) {
    if (size == 0) return;
    end_ -= size;
    taken_ = 0;
    std::memmove(inbox_.data(), inbox_.data() + size, end_);
    plat::wipe(inbox_.data() + end_, size);
}

Cause RecordLayer::next(std::optional<Record>& out) {
    out.reset();
    ByteReader r(inbox_.bytes().subspan(taken_, end_ - taken_));
    RecordHeader header{static_cast<ContentType>(r.u8()), static_cast<Version>(r.u16())};
    const size_t length = r.u16();
    if (!r.ok()) return needMore();
    if (!isKnownType(header.type)) return Cause::TlsRecordType;
    if (static_cast<uint16_t>(header.version) >> 8 != 3) return Cause::TlsRecordVersion;
    const bool opens = reader_ && !(isTls13_ && header.type == ContentType::ChangeCipherSpec);
    if (length > (opens ? maxBody_ : kMaxPlaintext)) return Cause::TlsRecordOverflow;
    if (opens && isTls13_ && header.type != ContentType::ApplicationData) {
        return Cause::TlsUnprotectedRecord;
    }
    if (r.left() < length) return needMore();

    const std::span<uint8_t> body = inbox_.bytes().subspan(taken_ + kRecordHeaderSize, length);
    taken_ += kRecordHeaderSize + length;
    std::span<const uint8_t> plaintext = body;
    if (opens && !reader_->open(header, body, plaintext)) return Cause::TlsBadRecordMac;
    if (plaintext.size() > kMaxPlaintext) return Cause::TlsRecordOverflow;
    if (!isKnownType(header.type)) return Cause::TlsRecordType;
    if (opens && isTls13_ && header.type == ContentType::ChangeCipherSpec) {
        return Cause::TlsUnexpectedCcs;  // RFC 8446, 5: never protected
    }
    out = Record{header.type, plaintext};
    return Cause::None;
}

Cause RecordLayer::needMore() {
    discard(taken_);
    return Cause::None;
}

size_t RecordLayer::largestPlaintext() const {
    if (peerLimit_ == 0) return kMaxPlaintext;
    // Unprotected records keep to it, too: there are servers that measure them.
    return std::min(kMaxPlaintext, peerLimit_ - (writer_ ? writer_->innerOverhead() : 0));
}

bool RecordLayer::sendOne(ContentType type, std::span<const uint8_t> fragment) {
    const bool seals = writer_ && !(isTls13_ && type == ContentType::ChangeCipherSpec);
    if (seals) return writer_->seal({type, headerVersion_}, fragment, outbox_);
    const uint16_t version = static_cast<uint16_t>(headerVersion_);
    const uint8_t header[kRecordHeaderSize] = {
        static_cast<uint8_t>(type), static_cast<uint8_t>(version >> 8),
        static_cast<uint8_t>(version), static_cast<uint8_t>(fragment.size() >> 8),
        static_cast<uint8_t>(fragment.size())};
    return outbox_.append(header) && outbox_.append(fragment);
}

bool RecordLayer::send(ContentType type, std::span<const uint8_t> bytes) {
    if (writingEnded_) return true;
    const bool split = writer_ && writer_->splitsFirstByte() && bytes.size() > 1 &&
                       type == ContentType::ApplicationData;
    size_t limit = split ? 1 : largestPlaintext();
    while (!bytes.empty()) {
        const size_t size = std::min(limit, bytes.size());
        if (!sendOne(type, bytes.first(size))) return false;
        bytes = bytes.subspan(size);
        limit = largestPlaintext();
    }
    return true;
}

}  // namespace tv::tls
