// When a hello may have gone unanswered because of TLS 1.3, and what is said then.
#include "net/AgainWithoutTls13.h"

#include "net/tls/TlsPolicy.h"

namespace tv {
namespace {

bool mayHelp(const LogBase& log, std::string_view tlsProtocol, const Failure& failure) {
    const bool unread = failure.root() == Cause::TlsNoServerHello ||
                        failure.root() == Cause::TlsServerHelloUnreadable;
    const tls::VersionRange range = tls::versionRange(tlsProtocol);
    return unread && !tls::tlsOptions(log).disableTls13 && range.contains(tls::Version::Tls13) &&
           range.contains(tls::Version::Tls12);
}

}  // namespace

Failure againWithoutTls13(LogBase& log, std::string_view tlsProtocol, bool& withoutTls13,
                          Failure first, const std::function<Failure()>& attempt) {
    if (withoutTls13 || !mayHelp(log, tlsProtocol, first)) return first;
    log.logInfo("Failed to read the TLS server hello.  Retry without TLS 1.3");
    withoutTls13 = true;
    Failure failure = attempt();
    withoutTls13 = false;
    return failure;
}

}  // namespace tv
