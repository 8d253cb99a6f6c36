// A question over TCP, with or without TLS (RFC 1035 section 4.2.2, RFC 7858).
#include <algorithm>
#include <array>
#include <memory>

#include "base/ByteReader.h"
#include "base/ByteWriter.h"
#include "base/SecureBuffer.h"
#include "net/resolve/DnsClient.h"
#include "net/stream/SChannelTolvane.h"
#include "net/stream/TolvaneSocket.h"

namespace tv {
namespace {

constexpr uint16_t kDnsPort = 53;
constexpr uint16_t kTlsPort = 853;
constexpr int kImplicitTls = 3;  // ends the texts of a failed handshake

}  // namespace

class DnsExchange::Stream {
public:
    explicit Stream(DnsExchange& exchange)
        : exchange_(exchange), call_(exchange.call.aside(exchange.call.log)) {
        call_.whole = exchange.deadline;
        socket_.useSystemBufSizes(true);
    }
    ~Stream() { socket_.terminateConnection(call_, CloseForm::AtOnce, 0); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    bool connect(uint16_t port) {
        const bool made = exchange_.server.isIpv4() ? socket_.createSocket_ipv4(exchange_.call.log)
                                                    : socket_.createSocket_ipv6(exchange_.call.log);
        return made && socket_.connect(call_, exchange_.server, port, leftMs());
    }

    // The server is known by its address alone, so there is no name for its certificate to prove.
    bool secure() {
        channel_ = std::make_unique<SChannelTolvane>(socket_);
        return channel_->handshake(call_, plat::toText(exchange_.server), kTlsPort, {},
                                   kImplicitTls, leftMs());
    }

    bool send(std::span<const uint8_t> bytes) {
        size_t sent = 0;
        return channel_ ? channel_->sendApplicationData(call_, bytes, sent, leftMs())
                        : socket_.sendBytes(call_, bytes, sent, leftMs());
    }

    // A whole message, without the length that stands before it.
    bool receive(SecureBuffer& in, std::span<const uint8_t>& message) {
        for (;;) {
            ByteReader reader(in.bytes());
            message = reader.vector16();
            if (reader.ok()) return true;
            if (!receiveSome(in)) return false;
        }
    }

    bool wasAborted() const { return call_.aborted; }
    bool ranOut() const { return call_.timedOut; }

private:
    // Never 0, which would be no limit.
    uint32_t leftMs() const {
        return static_cast<uint32_t>(std::max<uint64_t>(exchange_.deadline.leftMs(), 1));
    }

    bool receiveSome(SecureBuffer& in) {
        if (channel_) {
            return channel_->receiveApplicationData(call_, in, leftMs());
        }
        std::array<uint8_t, 4096> segment;
        size_t size = 0;
        if (!socket_.receiveBytes(call_, segment, size, leftMs())) return false;
        in.append({segment.data(), size});
        return true;
    }

    DnsExchange& exchange_;
    CallContext call_;
    TolvaneSocket socket_;
    std::unique_ptr<SChannelTolvane> channel_;
};

DnsExchange::End DnsExchange::overTcp() {
    return overStream(false);
}

DnsExchange::End DnsExchange::overTls() {
    return overStream(true);
}

DnsExchange::End DnsExchange::overStream(bool tls) {
    Stream stream(*this);
    ByteWriter framed;
    framed.vector16(query);
    connected = stream.connect(tls ? kTlsPort : kDnsPort);
    handshakeFailed = connected && tls && !stream.secure();
    SecureBuffer in;
    std::span<const uint8_t> message;
    const bool received =
        connected && !handshakeFailed && stream.send(framed.bytes()) && stream.receive(in, message);
    call.aborted = stream.wasAborted();
    if (call.aborted) return End::Aborted;
    if (!received) return stream.ranOut() ? End::TimedOut : End::NoReply;
    reply = dns::decodeReply(message, query);
    if (reply.isAnswer() && reply.kind != dns::ReplyKind::Truncated) return End::Replied;
    call.log.logError(reply.kind == dns::ReplyKind::WrongId
                          ? "Response ID not equal to request ID."
                          : "The nameserver's reply over TCP cannot be used.");
    return End::NoReply;
}

}  // namespace tv
