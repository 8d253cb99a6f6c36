// One name server after the other, each with its share of the time, and what counts as an answer.
// UDP and streams stand in the sources beside this one.
#include "net/resolve/DnsClient.h"

#include <algorithm>
#include <array>

#include "base/Random.h"
#include "log/LogContextExitor.h"
#include "net/stream/SocketLibrary.h"

namespace tv {
namespace {

using dns::ReplyKind;
using End = DnsExchange::End;

// A question over UDP is repeated after 1.5 s: with less, one lost datagram would be the end.
constexpr uint64_t kLeastShareMs = 2000;

uint64_t shareOf(const Deadline& deadline, size_t serversLeft) {
    if (!deadline.isLimited()) return kLeastShareMs;
    const uint64_t left = deadline.leftMs();
    return std::min(left, std::max(kLeastShareMs, left / serversLeft));
}

// A question with an id that nobody can guess.
bool makeQuery(LogBase& log, const DnsQuestion& question, std::vector<uint8_t>& query) {
    std::array<uint8_t, 2> id;
    if (!randomBytes(id)) {
        log.logError("The system's random source failed.");
        return false;
    }
    if (dns::encodeQuery(static_cast<uint16_t>(id[0] << 8 | id[1]), question.host, question.family,
                         query))
        return true;
    log.logError("The name does not fit into a DNS request.");
    return false;
}

// What a server does that answers without telling (RFC 1035 section 4.1.1); 3, a name that does not
// exist, is an answer.
const char* explain(int responseCode) {
    switch (responseCode) {
        case 1:
            return "could not read the question (FORMERR)";
        case 2:
            return "failed to find an answer (SERVFAIL)";
        case 4:
            return "does not support this kind of question (NOTIMP)";
        case 5:
            return "refuses to answer this host (REFUSED)";
        default:
            return "reported a failure";
    }
}

End askServer(DnsExchange& exchange) {
    if (exchange.server.tls) return exchange.overTls();
    const End end = exchange.overUdp();
    if (end != End::Replied || exchange.reply.kind != ReplyKind::Truncated) return end;
    const LogContextExitor context(exchange.call.log, "fallbackToTcp");
    return exchange.overTcp();
}

// True if the reply settles the matter; otherwise the next server may know more.
bool isFinal(LogBase& log, const dns::Reply& reply) {
    switch (reply.kind) {
        case ReplyKind::Addresses:
        case ReplyKind::NoAddress:
            return true;
        case ReplyKind::NoSuchName:
            log.logInfo("The name server knows no such name (NXDOMAIN).");
            return true;
        case ReplyKind::Refused:
            log.logDataLong("dnsResponseCode", reply.responseCode);
            log.logError(std::string("The name server ") + explain(reply.responseCode) + ".");
            return false;
        default:
            return false;
    }
}

void explainTlsFailure(LogBase& log, bool anyConnected, bool anyHandshakeFailed) {
    if (anyHandshakeFailed) {
        log.logError("Failed to do TLS handshake for DNS connection on port 853");
    } else if (!anyConnected) {
        log.logError(
            "Your application requires DoT (DNS over TLS), but none of the nameservers support "
            "DoT");
    }
}

}  // namespace

Failure doDnsQuery(CallContext& call, const DnsQuestion& question,
                   std::span<const NameServer> servers, const Deadline& deadline,
                   DnsOutcome& outcome) {
    const LogContextExitor context(call.log, "doDnsQuery");
    outcome = {};
    if (!ensureSocketLibrary(call.log)) return Failure(Cause::DnsFailed);
    std::string refusal;  // of the first server that would not tell
    bool allWithTls = true, anyConnected = false, anyHandshakeFailed = false, timedOut = false;
    for (size_t i = 0; i < servers.size(); ++i) {
        const uint64_t share = shareOf(deadline, servers.size() - i);
        if (share == 0) {
            call.log.logError("DNS timeout.");
            timedOut = true;
            break;
        }
        call.log.logData("nameserver", toText(servers[i]));
        std::vector<uint8_t> query;
        if (!makeQuery(call.log, question, query)) return Failure(Cause::DnsFailed);
        DnsExchange exchange{call, query, servers[i], i + 1, Deadline(share), {}};
        const End end = askServer(exchange);
        allWithTls &= servers[i].tls;
        anyConnected |= exchange.connected;
        anyHandshakeFailed |= exchange.handshakeFailed;
        if (end == End::Aborted) return Failure(Cause::Aborted);
        timedOut |= end == End::TimedOut;
        if (end != End::Replied) {
            outcome.silent.push_back(servers[i]);
        } else if (isFinal(call.log, exchange.reply)) {
            outcome.reply = std::move(exchange.reply);
            outcome.server = servers[i];
            return {};
        } else if (exchange.reply.kind == ReplyKind::Refused && refusal.empty()) {
            refusal = "The name server " + toText(servers[i]) + " " +
                      explain(exchange.reply.responseCode);
            outcome.reply = std::move(exchange.reply);
        }
    }
    if (allWithTls) explainTlsFailure(call.log, anyConnected, anyHandshakeFailed);
    return timedOut ? Failure(Cause::DnsTimeout) : Failure(Cause::DnsFailed, std::move(refusal));
}

}  // namespace tv
