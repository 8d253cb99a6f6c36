// The texts of the reasons and the causes that usually stand behind them. The reasons are few; what
// really happened stands in front of them.
#include "net/ConnectFailure.h"

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

}  // namespace

std::string connectFailText(ConnectFailReason reason) {
    const char* text = textOf(reason);
    return text ? std::string(text) : std::to_string(static_cast<int>(reason));
}

std::string connectFailCause(const CallContext& call) {
    return call.cause.empty() ? connectFailText(call.connectFailReason) : call.cause;
}

void logConnectFailReason(const CallContext& call) {
    const ConnectFailReason reason = call.connectFailReason;
    if (!call.cause.empty()) call.log.logError(call.cause + ".");
    call.log.logData("ConnectFailReason", connectFailText(reason));
    if (reason == ConnectFailReason::Timeout) {
        call.log.logInfo("A few possible causes for a connection timeout are:");
        call.log.logInfo(
            "- The remote host is not reachable (perhaps a firewall is blocking the connection on "
            "the remote end).");
        call.log.logInfo(
            "- Your ISP is blocking the outbound connection (this is common for SMTP port 25).");
        call.log.logInfo(
            "- If your timeout is too short, then maybe the server is just too slow to accept the "
            "connection.");
    } else if (reason == ConnectFailReason::Rejected) {
        call.log.logInfo("A few possible causes for a connection being rejected are:");
        call.log.logInfo(
            "- A firewall (software or hardware), such as Windows Firewall, is blocking the "
            "connection .");
        call.log.logInfo("- Nothing is listening at the remote host:port");
    }
}

}  // namespace tv
