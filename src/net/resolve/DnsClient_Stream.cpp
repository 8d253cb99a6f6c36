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
    explicit Stream(DnsExchange& exchange) : exchange_(exchange) {
        params_.monitor = exchange.params.monitor;
        params_.heartbeatMs = exchange.params.heartbeatMs;
        params_.fineSlices = exchange.params.fineSlices;
        params_.whole = exchange.deadline;
        socket_.useSystemBufSizes(true);
    }
    ~Stream() { socket_.terminateConnection(CloseForm::AtOnce, 0, exchange_.log, params_); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    bool connect(uint16_t port) {
        const bool made = exchange_.server.isIpv4() ? socket_.createSocket_ipv4(exchange_.log)
                                                    : socket_.createSocket_ipv6(exchange_.log);
        return made && socket_.connect(exchange_.server, port, leftMs(), exchange_.log, params_);
    }

    // The server is known by its address alone, so there is no name for its certificate to prove.
    bool secure() {
        channel_ = std::make_unique<SChannelTolvane>(socket_);
        return channel_->handshake(plat::toText(exchange_.server), kTlsPort, {}, kImplicitTls,
                                   leftMs(), exchange_.log, params_);
    }

    bool send(std::span<const uint8_t> bytes) {
        size_t sent = 0;
        return channel_
                   ? channel_->sendApplicationData(bytes, sent, leftMs(), exchange_.log, params_)
                   : socket_.sendBytes(bytes, sent, leftMs(), exchange_.log, params_);
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

    bool wasAborted() const { return params_.aborted; }
    bool ranOut() const { return params_.timedOut; }

private:
    // Never 0, which would be no limit.
    uint32_t leftMs() const {
        return static_cast<uint32_t>(std::max<uint64_t>(exchange_.deadline.leftMs(), 1));
    }

    bool receiveSome(SecureBuffer& in) {
        if (channel_) {
            return channel_->receiveApplicationData(in, leftMs(), exchange_.log, params_);
        }
        std::array<uint8_t, 4096> segment;
        size_t size = 0;
        if (!socket_.receiveBytes(segment, size, leftMs(), exchange_.log, params_)) return false;
        in.append({segment.data(), size});
        return true;
    }

    DnsExchange& exchange_;
    SocketParams params_;
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
    params.aborted = stream.wasAborted();
    if (params.aborted) return End::Aborted;
    if (!received) return stream.ranOut() ? End::TimedOut : End::NoReply;
    reply = dns::decodeReply(message, query);
    if (reply.isAnswer() && reply.kind != dns::ReplyKind::Truncated) return End::Replied;
    log.logError(reply.kind == dns::ReplyKind::WrongId
                     ? "Response ID not equal to request ID."
                     : "The nameserver's reply over TCP cannot be used.");
    return End::NoReply;
}

}  // namespace tv
