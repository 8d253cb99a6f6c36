// The texts of the reasons and the causes that usually stand behind them. The reasons are few; what
// really happened stands in front of them.
#include "net/ConnectFailure.h"

namespace tv {
namespace {

const char* wordsOf(Cause cause) {
    switch (cause) {
        case Cause::EmptyHostname:
            return "Empty hostname";
        case Cause::DnsFailed:
            return "DNS lookup failed";
        case Cause::DnsTimeout:
            return "DNS timeout";
        case Cause::Aborted:
            return "App aborted in event callback";
        case Cause::Internal:
            return "Internal error";
        case Cause::ConnectTimeout:
            return "Timeout";
        case Cause::Rejected:
            return "Connection rejected";
        case Cause::NoServerCertificate:
            return "No server certificate";
        case Cause::CertificateInvalid:
            return "Server certificate validation failed";
        case Cause::CertificateRequirement:
            return "App-defined server certificate requirements failure";
        default:
            return nullptr;
    }
}

std::string causeText(Cause cause) {
    const char* words = wordsOf(cause);
    return words ? std::string(words) : std::to_string(static_cast<int>(cause));
}

}  // namespace

std::string connectFailText(const Failure& failure) {
    return failure.text().empty() ? causeText(failure.cause()) : failure.text();
}

void logConnectFailReason(LogBase& log, const Failure& failure) {
    if (!failure.text().empty()) log.logError(failure.text() + ".");
    log.logData("ConnectFailReason", causeText(failure.cause()));
    if (failure.is(Cause::ConnectTimeout)) {
        log.logInfo("A few possible causes for a connection timeout are:");
        log.logInfo(
            "- The remote host is not reachable (perhaps a firewall is blocking the connection on "
            "the remote end).");
        log.logInfo(
            "- Your ISP is blocking the outbound connection (this is common for SMTP port 25).");
        log.logInfo(
            "- If your timeout is too short, then maybe the server is just too slow to accept the "
            "connection.");
    } else if (failure.is(Cause::Rejected)) {
        log.logInfo("A few possible causes for a connection being rejected are:");
        log.logInfo(
            "- A firewall (software or hardware), such as Windows Firewall, is blocking the "
            "connection .");
        log.logInfo("- Nothing is listening at the remote host:port");
    }
}

}  // namespace tv
