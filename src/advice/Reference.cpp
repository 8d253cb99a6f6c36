// The rows of the reference, and the document made of them and of the table of remedies.
#include "advice/Reference.h"

#include "base/Ascii.h"

namespace tv::advice {
namespace {

constexpr const char* kTwice =
    "The server may have the message: sending it again may deliver it twice.";

constexpr Explanation kRows[] = {
    {Stage::Local, Cause::NoSmtpHostname, Cause::NoSmtpHostname,
     "Application did not provide an SMTP hostname.", "No mail server was named.",
     "A setting that was never made, or lost in an update."},
    {Stage::Local, Cause::SettingsUnusable, Cause::SettingsUnusable,
     "The settings file ... cannot be used: ...",
     "The settings file says something that cannot be, or cannot be read; nothing was sent at all.",
     "A typing error; rights of the file; a file that it names was moved."},
    {Stage::Local, Cause::Internal, Cause::Internal, "The port is not a number from 1 to 65535.",
     "The port cannot be one.", "A field of a form that was left empty or took other text."},
    {Stage::Local, Cause::Internal, Cause::Internal, nullptr,
     "Something within the library or the system failed.", "Memory, handles or sockets ran out."},
    {Stage::None, Cause::OutOfMemory, Cause::OutOfMemory, "Out of memory.", "Memory ran out.",
     "Large attachments in a 32-bit program."},
    {Stage::None, Cause::Aborted, Cause::Aborted, "The application stopped the send ...",
     "The application stopped the send.", "Somebody pressed Cancel."},
    {Stage::NameLookup, Cause::EmptyHostname, Cause::EmptyHostname, nullptr,
     "The name of the mail server is empty.", "A setting that was never made."},
    {Stage::NameLookup, Cause::DnsFailed, Cause::DnsFailed, nullptr,
     "The name of the mail server has no address.",
     "A typing error; a name that only the company's network knows; a name server that is gone."},
    {Stage::NameLookup, Cause::DnsFailed, Cause::DnsFailed,
     "The name server ... refuses to answer this host (REFUSED).",
     "The name server answers, but will not look names up for this machine.",
     "One for its own zones alone; one with nobody to ask; a list of allowed clients."},
    {Stage::NameLookup, Cause::DnsTimeout, Cause::DnsTimeout, nullptr,
     "No name server answered in time.",
     "No network; a firewall that blocks port 53; a name server of another network."},
    {Stage::Connect, Cause::Rejected, Cause::Rejected, nullptr,
     "The machine answers, but nothing listens at the port, or no way leads there.",
     "The wrong port; a mail server that is down; a firewall that refuses; no network."},
    {Stage::Connect, Cause::ConnectTimeout, Cause::ConnectTimeout, nullptr,
     "Nobody answered at that address.",
     "A provider or firewall that blocks port 25; a machine that is off; the wrong address."},
    {Stage::Connect, Cause::ConnectFailed, Cause::ConnectFailed, "No connection to ...: ...",
     "No connection came about.", "Network, firewall, server."},
    {Stage::TlsHandshake, Cause::TlsNoServerHello, Cause::TlsNoServerHello,
     "The connection was lost in the TLS handshake.",
     "The connection ended before the server said anything of TLS.",
     "A firewall that cuts TLS; a port that expects clear text; a server without a certificate."},
    {Stage::TlsHandshake, Cause::TlsServerHelloUnreadable, Cause::TlsServerHelloUnreadable,
     "Timeout in the TLS handshake.", "The server did not answer the offer of TLS.",
     "A port that speaks clear text first (25, 587) with encryption from the first byte."},
    {Stage::TlsHandshake, Cause::TlsRecordVersion, Cause::TlsRecordType, nullptr,
     "What came is no TLS.", "A port that speaks clear text first (25, 587)."},
    {Stage::TlsHandshake, Cause::TlsPeerAlert, Cause::TlsPeerAlert,
     "The server ended the TLS handshake with the alert \"protocol version\".",
     "The server will not speak any version of TLS that was offered.",
     "A server of the last century (SSL 3.0), or one whose lowest version is above ours."},
    {Stage::TlsHandshake, Cause::TlsPeerAlert, Cause::TlsPeerAlert,
     "The server ended the connection with the alert \"certificate required\"; a client "
     "certificate "
     "was asked for, and there is none.",
     "The server wants a certificate of the client; there is none to show.",
     "A port for chosen clients or other mail servers alone."},
    {Stage::TlsHandshake, Cause::TlsPeerAlert, Cause::TlsPeerAlert, nullptr,
     "The server ended the connection with an alert.",
     "No suite, version or name in common; a client certificate that it wants."},
    {Stage::TlsHandshake, Cause::TlsVersionNotOffered, Cause::TlsVersionNotOffered, nullptr,
     "The server chose a version that was not offered.", "A server that knows SSL 3.0 alone."},
    {Stage::TlsHandshake, Cause::TlsDowngrade, Cause::TlsDowngrade, nullptr,
     "The server says that it was made to use an older version.",
     "A firewall that inspects TLS, or an attacker."},
    {Stage::TlsHandshake, Cause::TlsUnexpectedMessage, Cause::TlsRecordOverflow, nullptr,
     "The server breaks the rules of TLS, or bytes were changed on the way.",
     "A firewall that inspects TLS; a broken server; an attacker."},
    {Stage::TlsHandshake, Cause::TlsUnprotectedRecord, Cause::TlsMissingExtension, nullptr,
     "The server breaks the rules of TLS, or bytes were changed on the way.",
     "A firewall that inspects TLS; a broken server; an attacker."},
    {Stage::TlsHandshake, Cause::TlsSuiteNotOffered, Cause::TlsResumptionMismatch, nullptr,
     "The keys cannot be agreed upon by the rules.",
     "A broken or very old server; a firewall that inspects TLS; an attacker."},
    {Stage::TlsHandshake, Cause::TlsNoUsableVersion, Cause::TlsInternal, nullptr,
     "The failure lies on this side.", "Settings that leave no version; a system out of order."},
    {Stage::Certificate, Cause::CertificateInvalid, Cause::CertificateInvalid,
     "The certificate was issued for another host.",
     "The certificate is not for the name that the server was asked for by.",
     "An address or an alias in place of the server's name; a certificate of the hosting company."},
    {Stage::Certificate, Cause::CertificateInvalid, Cause::CertificateInvalid,
     "The certificate has expired.", "The certificate is past its last day, or before its first.",
     "A renewal that was forgotten, or a server that was not started anew; the clock."},
    {Stage::Certificate, Cause::CertificateInvalid, Cause::CertificateInvalid,
     "The issuer of the certificate is not known or not trusted.",
     "No chain leads from the certificate to an authority that is trusted here.",
     "A self-signed certificate; a company's own authority; certificates between that the server "
     "does not send."},
    {Stage::Certificate, Cause::CertificateInvalid, Cause::CertificateInvalid,
     "The server's public key is none of those that are pinned.",
     "The server has another key than the settings file says.",
     "A new key at the server; somebody in between."},
    {Stage::Certificate, Cause::CertificateInvalid, Cause::CertificateInvalid, nullptr,
     "The certificate breaks a rule; the log names it.",
     "A certificate made by hand; one for another use; a weak key or hash."},
    {Stage::Certificate, Cause::NoServerCertificate, Cause::NoServerCertificate, nullptr,
     "The server showed no certificate.", "A server whose TLS was never set up."},
    {Stage::Certificate, Cause::CertificateRequirement, Cause::CertificateRequirement, nullptr,
     "The certificate does not fulfil what was asked for.", "Another server under the name."},
    {Stage::Certificate, Cause::TlsCertificateUnreadable, Cause::TlsCertificateRefused, nullptr,
     "The certificate cannot be used.", "A broken certificate; a broken server."},
    {Stage::Greeting, Cause::Timeout, Cause::Timeout,
     "Nothing moved for 30000 ms while waiting for the greeting.",
     "The server took the connection and said nothing.",
     "A port that expects TLS from the first byte (465); a scanner in front; overload."},
    {Stage::Greeting, Cause::ConnectionLost, Cause::ConnectionLost,
     "The connection was lost while waiting for the greeting.",
     "The server closed the connection before it said anything.",
     "A list of allowed clients; a limit of connections; a scanner that keeps strangers out."},
    {Stage::Greeting, Cause::BadReply, Cause::BadReply,
     "The greeting is no line of an SMTP server.", "What answered is no mail server.",
     "The wrong port."},
    {Stage::Greeting, Cause::GreetingError, Cause::GreetingError,
     "The server greeted with: 554 ...", "The server does not serve this client.",
     "A block list; a list of allowed clients.", Repeat::RefusedForGood},
    {Stage::Ehlo, Cause::GreetingError, Cause::GreetingError, "The server refused HELO: 550 ...",
     "The server does not take the name that this machine gives itself.",
     "A name without a dot, or one that does not exist in DNS.", Repeat::RefusedForGood},
    {Stage::Ehlo, Cause::MessageTooLarge, Cause::MessageTooLarge,
     "The message has ... bytes; the server takes ... at most, as it announced (SIZE).",
     "The message is larger than the server announced to take.", "Large attachments."},
    {Stage::StartTls, Cause::StartTlsRefused, Cause::StartTlsRefused,
     "The server refused STARTTLS: 454 ...", "The server does not turn on encryption.",
     "No certificate at the server; STARTTLS that is not switched on there."},
    {Stage::StartTls, Cause::StartTlsFailed, Cause::StartTlsFailed,
     "The TLS handshake after STARTTLS failed: ...",
     "Encryption was agreed upon and did not come about.",
     "A firewall that inspects mail; old versions of TLS at the server."},
    {Stage::Login, Cause::AuthFailure, Cause::AuthFailure,
     "The server refused the login by LOGIN: 535 ...",
     "The server does not take user name and password.",
     "A password that was changed; a second factor; logins with passwords switched off.",
     Repeat::RefusedForGood},
    {Stage::Login, Cause::AuthFailure, Cause::AuthFailure, "No login was made: ...",
     "No way of the server to log in can be used here.",
     "A server that offers logins over TLS alone; no password; tokens only."},
    {Stage::Login, Cause::NoCredentials, Cause::NoCredentials,
     "A credential that ... needs is missing or not usable.",
     "User name or password is missing, or cannot be sent that way.",
     "Characters that only another method can carry."},
    {Stage::Login, Cause::MechanismUnavailable, Cause::MechanismUnavailable, nullptr,
     "This system does not have that way to log in.", "Windows logins on another system."},
    {Stage::Login, Cause::ChallengeUnanswerable, Cause::ChallengeUnanswerable,
     "The login by ... could not go on.", "What the server sent for the login makes no sense.",
     "A broken server; something in between; a token that could not be had."},
    {Stage::Login, Cause::OAuth2Description, Cause::OAuth2Description, "The OAuth2 description ...",
     "The description of how to get a token is wrong.", "A key that is missing or misspelt."},
    {Stage::Login, Cause::OAuth2Answer, Cause::OAuth2Answer, "The token endpoint ...",
     "The token endpoint gave no token.",
     "A client secret past its last day; the wrong scope or tenant."},
    {Stage::Sender, Cause::FromFailure, Cause::FromFailure,
     "MAIL FROM:<...> was answered with: 550 ...", "The server does not take this sender.",
     "An address of another domain; no login; a login that belongs to somebody else.",
     Repeat::RefusedForGood},
    {Stage::Recipients, Cause::NoValidRecipients, Cause::NoValidRecipients,
     "No recipient was accepted. RCPT TO:<...> was answered with: 550 ...",
     "The server takes none of the recipients.",
     "A typing error; a mailbox that is gone; no right to send to strangers (relay).",
     Repeat::RefusedForGood},
    {Stage::Recipients, Cause::SomeBadRecipients, Cause::SomeBadRecipients,
     "Not all recipients were accepted. RCPT TO:<...> was answered with: 550 ...",
     "The server does not take all of the recipients, and all were asked for.",
     "A typing error; a mailbox that is gone.", Repeat::RefusedForGood},
    {Stage::Data, Cause::DataFailure, Cause::DataFailure, "DATA was answered with: 554 ...",
     "The server will not have a message now.", "A policy against this client or sender.",
     Repeat::RefusedForGood},
    {Stage::Data, Cause::ConnectionLost, Cause::ConnectionLost,
     "The connection was lost while sending the message data.",
     "The connection broke in the midst of the message.",
     "A limit of size; a scanner; a bad line."},
    {Stage::Data, Cause::Timeout, Cause::Timeout,
     "Nothing moved for 30000 ms while sending the message data.",
     "The server stopped taking the message.", "A full disk at the server; a bad line."},
    {Stage::Acceptance, Cause::DataFailure, Cause::DataFailure,
     "The message was answered with: 554 ...", "The server has read the message and refused it.",
     "Its content, an attachment, its size; SPF, DKIM or DMARC of the sender.",
     Repeat::RefusedForGood},
    {Stage::Acceptance, Cause::ConnectionLost, Cause::ConnectionLost, kTwice,
     "The whole message is out, and no word came back.",
     "A scanner that takes its time; a line that broke.", Repeat::Unknown},
    {Stage::Rendering, Cause::RenderFailed, Cause::RenderFailed,
     "The message could not be rendered.", "The message could not be made.",
     "A file that vanished; memory."},
    {Stage::None, Cause::ConnectionLost, Cause::ConnectionLost,
     "The connection was lost while waiting for ...",
     "The connection ended where more was to come.", "A firewall; a server that was restarted."},
    {Stage::None, Cause::Timeout, Cause::Timeout,
     "Nothing moved for 30000 ms while waiting for ...",
     "The server took longer than was waited for.", "Overload; checks of sender and recipients."},
    {Stage::None, Cause::LineTooLong, Cause::BadReply,
     "The reply to ... is no line of an SMTP server.", "What came is no reply of an SMTP server.",
     "A broken server, or something in between."},
};

// Of all causes that a row is about; TLS rows share their rest.
std::string saidOf(const Explanation& row) {
    if (row.words) return row.words;
    std::string all;
    for (int number = static_cast<int>(row.first); number <= static_cast<int>(row.last); ++number) {
        const auto cause = static_cast<Cause>(number);
        std::string_view words = tlsSentence(cause);
        if (words.empty()) words = connectWords(cause);
        if (words.empty()) words = statusWord(cause);
        if (cause == Cause::None || words == statusWord(Cause::None)) continue;
        all += (all.empty() ? "" : "<br>") + std::string(words);
    }
    return all;
}

std::string_view repeatInShort(Repeat repeat) {
    constexpr std::string_view kWords[] = {"yes", "yes, later", "after a change",
                                           "it may arrive twice"};
    return kWords[static_cast<size_t>(repeat)];
}

std::string codeWords(uint16_t code) {
    if (code == 0) return "any";
    return code < 10 ? std::to_string(code) + "xx" : std::to_string(code);
}

std::string stageCell(Stage stage) {
    return std::string(stage == Stage::None ? "anywhere" : stageWords(stage));
}

void addCauses(std::string& out) {
    const char* const kHead =
        "\n\n| what is said | what it means | commonest reasons | what to change | safe to send "
        "again |\n|---|---|---|---|---|\n";
    for (int number = 0; number <= static_cast<int>(Stage::Local); ++number) {
        const auto stage = static_cast<Stage>(number);
        const std::string title =
            stage == Stage::None ? std::string("At any step") : stageCell(stage);
        out += "\n### " + title + kHead;
        for (const Explanation& row : kRows) {
            if (row.stage != stage) continue;
            out += "| " + saidOf(row) + " | " + row.meaning + " | " + row.reasons + " | " +
                   whatToChange(adviceOn(exampleOf(row))) + " | " +
                   std::string(repeatInShort(row.repeat)) + " |\n";
        }
    }
}

void addReplies(std::string& out) {
    out +=
        "\n## Replies of servers\n\nThe first row whose code, step and words fit counts. Large "
        "providers are known by their\ncodes and words.\n\n| code | step | one of these stands in "
        "it | what to change |\n|---|---|---|---|\n";
    for (const Advice& row : replyAdvices()) {
        out += "| " + codeWords(row.code) + " | " + stageCell(row.stage) + " | " +
               replaceAll(row.phrases ? row.phrases : "", "|", ", ") +
               (row.loggedIn ? " (after a login)" : "") + " | " + whatToChange(row) + " |\n";
    }
}

}  // namespace

std::span<const Explanation> explanations() {
    return kRows;
}

Finding exampleOf(const Explanation& row) {
    Finding finding{row.stage, row.first, row.repeat, 0, saidOf(row), {}};
    if (row.repeat == Repeat::RefusedForGood) {
        constexpr int32_t kUsual = 550, kLogin = 535, kMessage = 554;
        finding.replyCode = row.stage == Stage::Login                                    ? kLogin
                            : row.stage == Stage::Data || row.stage == Stage::Acceptance ? kMessage
                                                                                         : kUsual;
    }
    return finding;
}

std::string referenceText() {
    std::string out =
        "# What can go wrong\n\n"
        "Each failure says at which step it happened and why: in the one sentence of `emailsend`, "
        "in the\n"
        "first line of `getLastError` where a settings file has `first-line = yes`, and in the "
        "line that\n"
        "hosts show. Here is what that means, where it usually comes from, what to change, and "
        "whether the\n"
        "message may be sent again. What it looks like in the text of `getLastError` stands in\n"
        "[faults.md](faults.md).\n\n"
        "## Steps and causes\n";
    addCauses(out);
    addReplies(out);
    return out;
}

}  // namespace tv::advice
