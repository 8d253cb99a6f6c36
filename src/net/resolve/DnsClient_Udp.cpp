// A question in a datagram, repeated while no reply comes.
#include <algorithm>
#include <array>

#include "base/Random.h"
#include "net/resolve/DnsClient.h"
#include "net/stream/SocketError.h"
#include "platform/SysSocket.h"

namespace tv {
namespace {

using dns::ReplyKind;
using plat::NetCode;
using plat::NetError;

constexpr uint16_t kDnsPort = 53;
// A port that nobody can guess (RFC 5452 section 9.2), drawn anew where another program has it.
constexpr uint16_t kFirstPort = 49152;  // of 16384, the dynamic ports of RFC 6335
constexpr uint16_t kPortMask = 0x3FFF;
constexpr int kPortAttempts = 32;
constexpr int kMaxIgnored = 64;  // datagrams that are no reply, of one server
// Without EDNS a reply has 512 bytes at most (RFC 1035 section 4.2.1); some servers forget that.
constexpr size_t kMaxDatagram = 4096;

// When to send again; the last waits as long as there is time. A step is left out unless more than
// onlyAboveMs are left.
struct Step {
    const char* ordinal;
    uint64_t waitMs;
    uint64_t onlyAboveMs;
};
constexpr Step kLadder[] = {
    {"1st", 1500, 0}, {"2nd", 2000, 2000}, {"3rd", 1000, 1000}, {"4th", UINT64_MAX, 0}};

const char* whyIgnored(ReplyKind kind) {
    switch (kind) {
        case ReplyKind::WrongId:
            return "Response ID not equal to request ID.";
        case ReplyKind::WrongQuestion:
            return "A DNS reply to another question was ignored.";
        default:
            return "A malformed DNS reply was ignored.";
    }
}

}  // namespace

// A socket of its own for each exchange: a late reply to an earlier one finds nobody.
class DnsExchange::DatagramSocket {
public:
    DatagramSocket() = default;
    ~DatagramSocket() {
        if (handle != plat::kNoSocket) plat::sysNet().close(handle);
    }
    DatagramSocket(const DatagramSocket&) = delete;
    DatagramSocket& operator=(const DatagramSocket&) = delete;

    // Connected, so that the system itself drops what comes from elsewhere.
    bool open(const DnsExchange& exchange) {
        const plat::IpAddress& remote = exchange.server.address;
        NetError error = plat::sysNet().openUdp(remote.family, handle);
        if (error.ok()) error = plat::sysNet().setNonBlocking(handle);
        if (error.ok()) error = bindToRandomPort(exchange);
        if (error.ok()) error = plat::sysNet().connect(handle, {remote, kDnsPort});
        if (error.ok()) return true;
        logSocketError(exchange.call.log, error);
        exchange.call.log.logError("Failed to make a UDP socket for the nameserver.");
        return false;
    }

    plat::SocketHandle handle = plat::kNoSocket;

private:
    NetError bindToRandomPort(const DnsExchange& exchange) {
        NetError error;
        for (int i = 0; i < kPortAttempts; ++i) {
            std::array<uint8_t, 2> random;
            if (!randomBytes(random)) {
                exchange.call.log.logError("The system's random source failed.");
                return {NetCode::Other, 0};
            }
            const int drawn = random[0] << 8 | random[1];
            plat::Endpoint local;
            local.address.family = exchange.server.address.family;
            local.port = static_cast<uint16_t>(kFirstPort + (drawn & kPortMask));
            error = plat::sysNet().bind(handle, local);
            if (!error.is(NetCode::AddressInUse) && !error.is(NetCode::Access)) break;
        }
        return error;
    }
};

DnsExchange::End DnsExchange::overUdp() {
    if (query.size() > dns::kMaxUdpRequest) {
        call.log.logError("DNS request is greater than 512 bytes.");
        return End::NoReply;
    }
    DatagramSocket socket;
    if (!socket.open(*this)) return End::NoReply;
    uint64_t waitedMs = 0;
    int ignored = 0;
    for (const Step& step : kLadder) {
        const uint64_t left = deadline.leftMs();
        if (left == 0) {
            call.log.logError("DNS timeout.");
            return End::TimedOut;
        }
        if (left <= step.onlyAboveMs) continue;
        size_t sent = 0;
        const NetError error = plat::sysNet().send(socket.handle, query, sent);
        // A queue that is full loses the datagram, as the network may.
        if (!error.ok() && !error.is(NetCode::WouldBlock)) {
            logSocketError(call.log, error);
            call.log.logError(std::string(step.ordinal) + " UDP send for nameserver " +
                              std::to_string(serverNumber) + " failed.");
            return End::NoReply;
        }
        waitedMs = std::min(step.waitMs, left);
        const End end = awaitReply(socket, waitedMs, ignored);
        if (end != End::TimedOut) return end;
    }
    call.log.logError("Waited, but no data ready on UDP socket.");
    call.log.logDataLong("idleTimeoutMs", static_cast<int64_t>(waitedMs));
    return End::TimedOut;
}

DnsExchange::End DnsExchange::awaitReply(DatagramSocket& socket, uint64_t waitMs, int& ignored) {
    const Deadline limit(waitMs);
    std::array<uint8_t, kMaxDatagram> datagram;
    for (;;) {
        if (call.mustStop()) {
            call.log.logError("DNS lookup aborted by application.");
            return End::Aborted;
        }
        const uint64_t left = limit.leftMs();
        if (left == 0) return End::TimedOut;
        bool ready = false;
        const uint32_t sliceMs = static_cast<uint32_t>(std::min<uint64_t>(left, call.sliceMs()));
        NetError error =
            plat::sysNet().wait(socket.handle, plat::WaitFor::Readable, sliceMs, ready);
        size_t size = 0;
        if (error.ok() && ready) {
            error = plat::sysNet().receive(socket.handle, datagram, size);
        } else if (error.ok()) {
            // Not every system makes a socket readable for an error that stands on it.
            plat::sysNet().pendingError(socket.handle, error);
            if (error.ok()) continue;
        }
        if (error.is(NetCode::WouldBlock)) continue;  // its checksum was wrong
        if (!error.ok()) {
            // Nobody listens there, or the network is gone: no time is lost on this server.
            logSocketError(call.log, error);
            return End::NoReply;
        }
        reply = dns::decodeReply({datagram.data(), size}, query);
        if (reply.isAnswer()) return End::Replied;
        call.log.logInfo(whyIgnored(reply.kind));
        if (++ignored >= kMaxIgnored) {
            call.log.logError("Too many datagrams came that are no reply.");
            return End::NoReply;
        }
    }
}

}  // namespace tv
