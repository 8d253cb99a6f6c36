// Whether a kept session can be offered again.
#include "net/tls/TlsSession.h"

#include <algorithm>

#include "log/LogBase.h"

namespace tv::tls {
namespace {

constexpr uint32_t kMaxTicketSeconds = 7 * 24 * 3600;  // RFC 8446, 4.6.1
constexpr uint32_t kMaxSessionSeconds = 24 * 3600;     // RFC 5246, F.1.4

bool hasAllParts(LogBase& log, const TlsSession& session) {
    if (session.isTls13()) {
        if (session.secret.empty()) {
            return log.logInfo("Missing the TLS 1.3 resumption secret..."), false;
        }
        if (session.id.empty()) {
            return log.logInfo("Missing the TLS 1.3 session ticket..."), false;
        }
        return true;
    }
    if (session.secret.empty()) return log.logInfo("masterSecret is empty."), false;
    if (session.id.empty()) return log.logInfo("sessionId is empty."), false;
    return true;
}

}  // namespace

bool sessionIsUsable(LogBase& log, const TlsSession& session, uint64_t nowMs) {
    if (!hasAllParts(log, session)) return false;
    if (nowMs < session.receivedAtMs) {
        return log.logInfo("Session ticket arrived after the current time."), false;
    }
    const uint64_t limit = session.isTls13() ? std::min(session.lifetimeSeconds, kMaxTicketSeconds)
                                             : kMaxSessionSeconds;
    if (nowMs - session.receivedAtMs >= limit * 1000) {
        return log.logInfo("Session ticket is too old."), false;
    }
    if (session.scope.requireVerify && nowMs >= session.verifiedUntilMs) {
        return log.logInfo("The certificate of the session has to be verified again."), false;
    }
    log.logInfo("Session contains valid info...");
    return true;
}

uint32_t obfuscatedTicketAge(const TlsSession& session, uint64_t nowMs) {
    return static_cast<uint32_t>(nowMs - session.receivedAtMs) + session.ageAdd;
}

}  // namespace tv::tls
