// A table of words that occur in replies, and what to tell of each.
#include "mail/smtp/ReplyHints.h"

#include "log/LogContextExitor.h"

namespace tv::smtp {
namespace {

constexpr std::string_view kTooLong[] = {
    "Try sending this email using the quoted-printable or base64 transfer encoding.",
    "Do this by:  emailObject.AddHeaderField(\"Content-Transfer-Encoding\", "
    "\"quoted-printable\")"};

constexpr std::string_view kSendAs[] = {
    "The Office365 account may need to be set up to send on behalf of another user.",
    "This error occurs if the address used for authentication differs from the FROM address.",
    "The account settings must allow sending on behalf of the FROM address.",
    "The administrator of the mail service can grant the permission to send as another user."};

constexpr std::string_view kBadCredentials[] = {
    "Login/password authentication to GMail needs the account configured to allow",
    "\"less secure apps\".", "Otherwise OAuth2 authentication is needed.",
    "See the security settings of the account."};

struct Hint {
    int32_t code;
    std::string_view mark;
    std::string_view context;
    std::span<const std::string_view> lines;
};

constexpr Hint kHints[] = {
    {554, "SendAsDeniedException.Mapi", "office365_hints", kSendAs},
    {535, "p=BadCredentials", "gmail_hints", kBadCredentials},
};

bool mentions(const SmtpResponse& reply, std::string_view mark) {
    for (const std::string& line : reply.lines) {
        if (line.find(mark) != std::string::npos) return true;
    }
    return false;
}

}  // namespace

void logLineHint(LogBase& log, std::string_view line) {
    if (line.find("501 Syntax error - line too long") == std::string_view::npos) return;
    for (const std::string_view text : kTooLong) {
        log.logInfo(text);
    }
}

void logReplyHints(LogBase& log, const SmtpResponse& reply) {
    for (const Hint& hint : kHints) {
        if (reply.statusCode != hint.code || !mentions(reply, hint.mark)) continue;
        const LogContextExitor context(log, hint.context);
        for (const std::string_view text : hint.lines) {
            log.logInfo(text);
        }
    }
}

}  // namespace tv::smtp
