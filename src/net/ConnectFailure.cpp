// The texts of the reasons, the causes that usually stand behind them, and what a host reads of a
// handshake that failed.
#include "net/ConnectFailure.h"

#include "net/WholeLimit.h"

namespace tv {
namespace {

const char* textOf(ConnectFailReason reason) {
    switch (reason) {
        case ConnectFailReason::EmptyHostname:
            return "Empty hostname";
        case ConnectFailReason::DnsFailed:
            return "DNS lookup failed";
        case ConnectFailReason::DnsTimeout:
            return "DNS timeout";
        case ConnectFailReason::Aborted:
            return "App aborted in event callback";
        case ConnectFailReason::InternalError:
            return "Internal error";
        case ConnectFailReason::Timeout:
            return "Timeout";
        case ConnectFailReason::Rejected:
            return "Connection rejected";
        case ConnectFailReason::NoServerCertificate:
            return "No server certificate";
        case ConnectFailReason::CertificateInvalid:
            return "Server certificate validation failed";
        case ConnectFailReason::CertificateRequirement:
            return "App-defined server certificate requirements failure";
        default:
            return nullptr;
    }
}

std::string handshakeTimeout(const SocketParams& params) {
    if (params.overranMs == 0) return "Timeout in the TLS handshake";
    return "The TLS handshake took more than " + durationText(params.overranMs);
}

}  // namespace

std::string connectFailText(ConnectFailReason reason) {
    const char* text = textOf(reason);
    return text ? std::string(text) : std::to_string(static_cast<int>(reason));
}

std::string connectFailCause(const SocketParams& params) {
    switch (params.connectFailReason) {
        case ConnectFailReason::TlsNoServerHello:
        case ConnectFailReason::TlsServerHelloUnreadable:
            return params.timedOut ? handshakeTimeout(params)
                                   : "The connection was lost in the TLS handshake";
        case ConnectFailReason::InternalError:
            if (params.timedOut) return handshakeTimeout(params);
            if (!params.handshakeFailure.empty()) return params.handshakeFailure;
            [[fallthrough]];
        default:
            return connectFailText(params.connectFailReason);
    }
}

void logConnectFailReason(ConnectFailReason reason, LogBase& log) {
    log.logData("ConnectFailReason", connectFailText(reason));
    if (reason == ConnectFailReason::Timeout) {
        log.logInfo("A few possible causes for a connection timeout are:");
        log.logInfo(
            "- The remote host is not reachable (perhaps a firewall is blocking the connection on "
            "the remote end).");
        log.logInfo(
            "- Your ISP is blocking the outbound connection (this is common for SMTP port 25).");
        log.logInfo(
            "- If your timeout is too short, then maybe the server is just too slow to accept the "
            "connection.");
    } else if (reason == ConnectFailReason::Rejected) {
        log.logInfo("A few possible causes for a connection being rejected are:");
        log.logInfo(
            "- A firewall (software or hardware), such as Windows Firewall, is blocking the "
            "connection .");
        log.logInfo("- Nothing is listening at the remote host:port");
    }
}

}  // namespace tv
