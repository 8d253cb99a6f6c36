// Asks name servers for the addresses of a name: over UDP, over TCP where a reply does not
// fit, or over TLS.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "base/Failure.h"
#include "base/NameServer.h"
#include "net/dns/DnsMessage.h"
#include "net/stream/CallContext.h"
#include "net/stream/Deadline.h"
#include "platform/IpAddress.h"

namespace tv {

struct DnsOutcome {
    dns::Reply reply;                  // of the server that told, else of the first that would not
    std::optional<NameServer> server;  // which one that was
    std::vector<NameServer> silent;    // those that gave no reply
};

struct DnsQuestion {
    std::string_view host;
    plat::AddressFamily family = plat::AddressFamily::IPv4;
};

// Asks the servers in their order, each within max(2 s, time left / servers left), until one says
// which addresses of the family the name has or that there are none. A failure where none did:
// DnsTimeout where one of them was silent to the end; else its text names one that would not tell.
Failure doDnsQuery(CallContext& call, const DnsQuestion& question,
                   std::span<const NameServer> servers, const Deadline& deadline,
                   DnsOutcome& outcome);

// One question to one server.
struct DnsExchange {
    enum class End : uint8_t { Replied, NoReply, TimedOut, Aborted };

    CallContext& call;
    std::span<const uint8_t> query;
    const NameServer& server;
    size_t serverNumber;  // from 1, as the log counts
    Deadline deadline;
    dns::Reply reply;        // Replied: an answer
    bool connected = false;  // over a stream: the server took the connection
    bool handshakeFailed = false;

    // Sends the question up to four times from one fresh socket at a random port.
    End overUdp();
    End overTcp();
    End overTls();

private:
    class DatagramSocket;
    class Stream;

    End awaitReply(DatagramSocket& socket, uint64_t waitMs, int& ignored);
    End overStream(bool tls);
};

}  // namespace tv
