// A question over TCP, with or without TLS (RFC 1035 section 4.2.2, RFC 7858).
#include <algorithm>
#include <array>
#include <memory>

#include "base/ByteReader.h"
#include "base/ByteWriter.h"
#include "base/SecureBuffer.h"
#include "net/resolve/DnsClient.h"
#include "net/resolve/NameSource.h"
#include "net/stream/SChannelTolvane.h"
#include "net/stream/TolvaneSocket.h"
#include "net/stream/TotalTimeout.h"

namespace tv {
namespace {

constexpr uint16_t kDnsPort = 53;
constexpr uint16_t kTlsPort = 853;  // RFC 7858 section 3.1

}  // namespace

class DnsExchange::Stream {
public:
    explicit Stream(DnsExchange& exchange)
        : exchange_(exchange), call_(exchange.call), limit_(call_, exchange.deadline.leftMs()) {
        socket_.useSystemBufSizes(true);
    }
    ~Stream() { socket_.terminateConnection(call_, CloseForm::AtOnce, 0); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    Failure connect(uint16_t port) {
        const bool made = exchange_.server.address.isIpv4() ? socket_.createSocket_ipv4(call_.log)
                                                            : socket_.createSocket_ipv6(call_.log);
        if (!made) return Failure(Cause::Internal);
        return socket_.connect(call_, exchange_.server.address, port, leftMs());
    }

    // A server that is known by its address alone has no name for its certificate to prove. With
    // one, the certificate is verified or nothing is asked: the strict profile of RFC 8310
    // section 5.
    Failure secure() {
        const NameServer& peer = exchange_.server;
        TlsChannelSettings settings;
        // RFC 9325, which counts for DNS over TLS (RFC 7858 section 3.2), sections 3.1.1 and 4.1.
        settings.tlsProtocol = "TLS 1.2 or higher";
        settings.oldSuites = false;
        settings.requireSslCertVerify = !peer.name.empty();
        if (call_.names) {
            settings.trustAnchorsFile = call_.names->trustAnchorsFile;
            settings.furtherAnchorsFile = call_.names->furtherAnchorsFile;
        }
        const std::string host = peer.name.empty() ? plat::toText(peer.address) : peer.name;
        channel_ = std::make_unique<SChannelTolvane>(socket_);
        return channel_->handshake(call_, host, kTlsPort, settings, TlsStart::Implicit, leftMs());
    }

    // The question there and a whole message back, without the length that stands before it.
    Failure ask(std::span<const uint8_t> bytes, SecureBuffer& in,
                std::span<const uint8_t>& message) {
        if (Failure failure = send(bytes)) return failure;
        for (;;) {
            ByteReader reader(in.bytes());
            message = reader.vector16();
            if (reader.ok()) return {};
            if (Failure failure = receiveSome(in)) return failure;
        }
    }

private:
    // Never 0, which would be no limit.
    uint32_t leftMs() const {
        return static_cast<uint32_t>(std::max<uint64_t>(exchange_.deadline.leftMs(), 1));
    }

    Failure send(std::span<const uint8_t> bytes) {
        size_t sent = 0;
        return channel_ ? channel_->sendApplicationData(call_, bytes, sent, leftMs())
                        : socket_.sendBytes(call_, bytes, sent, leftMs());
    }

    Failure receiveSome(SecureBuffer& in) {
        if (channel_) {
            Failure failure = channel_->receiveApplicationData(call_, leftMs());
            in.append(channel_->input().bytes());
            channel_->input().clear();
            return failure;
        }
        std::array<uint8_t, 4096> segment;
        size_t size = 0;
        if (Failure failure = socket_.receiveBytes(call_, segment, size, leftMs())) return failure;
        in.append({segment.data(), size});
        return {};
    }

    DnsExchange& exchange_;
    CallContext& call_;
    const TotalTimeout limit_;
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
    Failure failure = stream.connect(tls ? kTlsPort : kDnsPort);
    connected = !failure;
    if (connected && tls) {
        failure = stream.secure();
        handshakeFailed = static_cast<bool>(failure);
    }
    SecureBuffer in;
    std::span<const uint8_t> message;
    if (!failure) failure = stream.ask(framed.bytes(), in, message);
    if (failure.is(Cause::Aborted)) return End::Aborted;
    if (failure) return deadline.hasPassed() ? End::TimedOut : End::NoReply;
    reply = dns::decodeReply(message, query);
    if (reply.isAnswer() && reply.kind != dns::ReplyKind::Truncated) return End::Replied;
    call.log.logError(reply.kind == dns::ReplyKind::WrongId
                          ? "Response ID not equal to request ID."
                          : "The nameserver's reply over TCP cannot be used.");
    return End::NoReply;
}

}  // namespace tv
