// The texts of the reasons and the causes that usually stand behind them. The reasons are few; what
// really happened stands in front of them.
#include "net/ConnectFailure.h"

namespace tv {
namespace {

std::string causeText(Cause cause) {
    const std::string_view words = connectWords(cause);
    return words.empty() ? std::to_string(static_cast<int>(cause)) : std::string(words);
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
