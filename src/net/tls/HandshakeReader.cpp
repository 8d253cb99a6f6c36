// Handshake messages put together from the fragments that records carry.
#include "net/tls/HandshakeReader.h"

#include <utility>

#include "base/ByteReader.h"

namespace tv::tls {
namespace {

// Their lengths may reach 16 MB by the protocol. Chains of certificates are the longest messages
// there are, and no honest one comes near these.
constexpr size_t kMaxCertificateMessage = size_t{128} * 1024;
constexpr size_t kMaxMessage = size_t{64} * 1024;

size_t limitOf(HandshakeType type) {
    return type == HandshakeType::Certificate ? kMaxCertificateMessage : kMaxMessage;
}

}  // namespace

HandshakeReader::Result HandshakeReader::next(HandshakeMessage& out) {
    pending_.removeFront(std::exchange(taken_, 0));
    ByteReader r(pending_.bytes());
    out.type = static_cast<HandshakeType>(r.u8());
    const size_t length = r.u24();
    if (!r.ok()) return Result::NeedMore;
    if (length > limitOf(out.type)) return Result::TooLong;
    out.body = r.bytes(length);
    if (!r.ok()) return Result::NeedMore;
    taken_ = kHandshakeHeaderSize + length;
    out.whole = pending_.bytes().first(taken_);
    return Result::Message;
}

}  // namespace tv::tls
