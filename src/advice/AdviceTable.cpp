// The one table of remedies: what replies of large providers mean, then what each cause asks for.
// The first row that fits counts: what is narrow stands before what is wide.
#include <algorithm>
#include <array>
#include <iterator>

#include "advice/Advice.h"

namespace tv::advice {
namespace {

constexpr const char* kClientCertificate = "client certificate|alert \"certificate required\"";
constexpr const char* kNoRelay =
    "relay access|relaying|to relay|relay denied|relay not|not relay|no relay|5.7.54";

// What a server's reply says, by its code, the stage that it ends and the words in it; and what
// stood behind a refusal.
constexpr Advice kReplies[] = {
    // No login was made, and then something was refused.
    {0, Stage::None, Cause::None, "the password is empty;",
     "Set the password ({password}), or have this client allowed without."},
    {0, Stage::None, Cause::None, "\"only-encrypted\" of [login]",
     "Use encryption ({encrypt}), or set only-encrypted = no in [login]."},
    {0, Stage::None, Cause::None, "\"channel-binding\" of [login]",
     "Have the server offer NTLM over TLS, or drop channel-binding in [login]."},
    {0, Stage::None, Cause::None, "no mechanism of the server works",
     "Have the server offer LOGIN, PLAIN, CRAM-MD5 or NTLM to this client."},
    {0, Stage::None, Cause::None, "on this connection; over TLS it may",
     "Use encryption ({encrypt}) or port 587."},
    // Logins.
    {535, Stage::None, Cause::None, "credentials were incorrect",
     "Correct user name and password ({login}); a second factor needs an application password or a "
     "token{token}."},
    {535, Stage::None, Cause::None, "5.7.139|basic authentication|clientauthentication is disabled",
     "The provider has switched off logins with a password: have them allowed, or use a "
     "token{token}."},
    {0, Stage::Login, Cause::None,
     "5.7.9|specific password|app password|less secure|badcredentials",
     "The account needs an application password: make one in its security settings."},
    {538, Stage::None, Cause::None, nullptr, "The server wants encryption first: {encrypt}."},
    {0, Stage::StartTls, Cause::StartTlsRefused, nullptr,
     "Mend the server's certificate, or use its TLS port (465, {implicit})."},
    {5, Stage::None, Cause::None, "starttls|encryption required",
     "The server wants encryption first: {encrypt}."},
    {535, Stage::None, Cause::None, nullptr,
     "Correct user name and password ({login}); a second factor needs an application password or a "
     "token{token}."},
    {534, Stage::None, Cause::None, nullptr,
     "The server wants another way to log in ({method}) or an application password."},
    {530, Stage::None, Cause::None, nullptr, "The server wants a login: {login}."},
    {5, Stage::None, Cause::None,
     "authentication required|authentication is required|not authenticated|not logged in|5.7.57",
     "The server wants a login: {login}."},
    {0, Stage::None, Cause::None, kClientCertificate,
     "The server wants a client certificate: have this client exempted, or use another port."},
    // Who may send.
    {0, Stage::None, Cause::None, "5.7.60|sendasdenied|not owned by|to send as|send on behalf",
     "This login may not send as this sender: use its own address ({from})."},
    {553, Stage::Sender, Cause::None, nullptr,
     "This login may not send as this sender: use its own address ({from})."},
    {0, Stage::None, Cause::None, kNoRelay,
     "The login stood, and does not allow this: use its own sender ({from}), or have it allowed to "
     "relay.",
     true},
    {0, Stage::None, Cause::None, kNoRelay,
     "Log in ({login}), or have this machine allowed to relay there."},
    {0, Stage::None, Cause::None, "5.7.26|5.7.23|5.7.27|spf|dkim|dmarc",
     "The sender's domain does not vouch for this server (SPF, DKIM, DMARC): send through its "
     "own."},
    {0, Stage::None, Cause::None,
     "5.7.25|reverse dns|ptr record|your hostname|reverse hostname|helo command "
     "rejected|fully-qualified",
     "This machine has no name that the server finds right{helo}: mend its DNS records, or send "
     "through a provider."},
    {5, Stage::Acceptance, Cause::None,
     "banned:|banned file|banned attachment|infected|virus|security issue|"
     "5.7.0 this message was blocked",
     "The server refuses the content or an attachment: leave it out, or send it in another form."},
    {0, Stage::None, Cause::None,
     "block list|blocklist|blacklist|blocked using|5.7.511|5.7.606|reputation|banned",
     "This machine's address stands on a block list: have it removed, or send through a provider."},
    {0, Stage::None, Cause::None, "greylist|graylist",
     "The server puts off strangers (greylisting): send again in 5 to 30 minutes."},
    {0, Stage::None, Cause::None,
     "too many con|concurrent|rate limit|4.7.28|5.7.28|too many "
     "messages|sending limit|throttl",
     "The server limits how much one client may send: send later."},
    {0, Stage::None, Cause::None, "4.3.2|service not available",
     "The server takes no mail now (a restart, maintenance): send again later."},
    // Size and room.
    {0, Stage::None, Cause::None,
     "5.2.2|4.2.2|mailbox full|mailbox is full|over quota|quota exceeded",
     "The recipient's mailbox is full."},
    {452, Stage::None, Cause::None, "4.3.1|storage|disk",
     "The server's disk is full: tell its administrator."},
    {0, Stage::None, Cause::None, "the server takes|5.3.4|5.2.3",
     "Send less, or have the server's limit raised."},
    {552, Stage::None, Cause::None, nullptr, "Send less, or have the server's limit raised."},
    {0, Stage::None, Cause::None, "4.5.3|5.5.3|too many recipients",
     "The server takes no message for so many recipients: send it to fewer at a time."},
    // Greeting and introduction.
    {421, Stage::None, Cause::None, nullptr,
     "The server is busy or limits this client: send again later."},
    {0, Stage::Greeting, Cause::GreetingError, nullptr,
     "The server does not serve this address: have it allowed there."},
    {0, Stage::Ehlo, Cause::None, "refused HELO|refused EHLO",
     "The server does not take this machine's name{helo}: give it another, or allow it there."},
    // The envelope and the message.
    {0, Stage::Sender, Cause::None, "5.1.8|4.1.8|5.1.7|domain not found|sender domain",
     "Correct the domain of the sender ({from})."},
    // Many a server judges the sender only when it hears of a recipient.
    {0, Stage::Recipients, Cause::None,
     "5.1.8|4.1.8|5.1.7|4.1.7|sender address rejected: domain|sender address rejected: u|sender "
     "verify failed",
     "Correct the sender ({from}): the server finds no such address."},
    {4, Stage::Login, Cause::None, nullptr,
     "The server cannot check logins now: send again later."},
    {4, Stage::None, Cause::None, nullptr,
     "The server cannot take mail now (greylisting, full disk): send again later."},
    {5, Stage::Sender, Cause::None, nullptr,
     "Use a sender that the server allows for this client or login ({from})."},
    // Security and policy (RFC 3463 section 3.8), not the address.
    {5, Stage::Recipients, Cause::None, "5.7.|client host rejected",
     "The server's rules forbid it, and its reply says why: log in ({login}), or have this client "
     "allowed there."},
    {5, Stage::Recipients, Cause::None, nullptr, "Correct the refused addresses."},
    {5, Stage::Data, Cause::None, nullptr, "The reply says why: content, size, sender or policy."},
    {5, Stage::Acceptance, Cause::None, nullptr,
     "The reply says why: content, size, sender or policy."},
    {5, Stage::Login, Cause::None, nullptr,
     "The server does not take this way to log in: {method}."},
};

// What went wrong without a reply that says it.
constexpr Advice kCauses[] = {
    // Before a connection stands.
    {0, Stage::None, Cause::NoSmtpHostname, nullptr, "Name the mail server ({host})."},
    {0, Stage::None, Cause::EmptyHostname, nullptr, "Name the mail server ({host})."},
    {0, Stage::None, Cause::DnsFailed, "refuses to answer this host",
     "Have the name server serve this machine, or ask another{names}."},
    {0, Stage::None, Cause::DnsFailed, nullptr,
     "Check the spelling of the host name and the name servers of this machine{names}."},
    {0, Stage::None, Cause::DnsTimeout, nullptr,
     "Check the network and the name servers of this machine{names}."},
    {0, Stage::None, Cause::None, "not a number from 1 to 65535",
     "Set the port of the mail server ({port}): 25, 465 or 587."},
    {0, Stage::None, Cause::ConnectTimeout, nullptr,
     "Check host and port; a firewall may drop the packets, a provider block port 25: then 587 or "
     "465."},
    {0, Stage::Connect, Cause::None, nullptr,
     "Check host and port, the network and the firewalls on the way, and whether the mail server "
     "runs."},
    // Certificates.
    {0, Stage::Certificate, Cause::None, "another host|names no host",
     "Name the server as its certificate does ({host}), or give it another."},
    {0, Stage::Certificate, Cause::None, "has expired|not valid yet",
     "Renew the server's certificate, or set the clock of this machine."},
    {0, Stage::Certificate, Cause::None, "that are pinned",
     "If the server has a new key, set pin in [certificate]; else somebody is in between."},
    {0, Stage::Certificate, Cause::None, "issuer of the certificate|issuing certificate",
     "Give the server a certificate that is trusted here, or trust its authority{trust}."},
    {0, Stage::Certificate, Cause::None, nullptr,
     "Give the server a certificate that is trusted here, or trust its authority{trust}."},
    // TLS.
    {0, Stage::None, Cause::None, "when TLS 1.3 was offered",
     "Let TLS 1.3 pass to the server, or do without it{versions}."},
    {0, Stage::None, Cause::None, "alert \"protocol version\"",
     "Have the server speak TLS 1.2 or 1.3; 1.0 to 1.3 are offered{versions}."},
    {0, Stage::None, Cause::TlsVersionNotOffered, nullptr,
     "Have the server speak TLS 1.2 or 1.3; 1.0 to 1.3 are offered{versions}."},
    {0, Stage::None, Cause::TlsDowngrade, nullptr,
     "Somebody on the way may weaken the encryption: use another network."},
    {0, Stage::None, Cause::None, kClientCertificate,
     "The server wants a client certificate: have this client exempted, or use another port."},
    {0, Stage::None, Cause::TlsPeerAlert, nullptr,
     "Have the server's TLS mended, or a firewall that inspects it."},
    {0, Stage::None, Cause::None, "after STARTTLS failed",
     "A firewall that inspects mail may break STARTTLS: use port 465 ({implicit})."},
    {0, Stage::None, Cause::None, "does not speak TLS",
     "The port speaks clear text first: {starttls}, or the server's TLS port (465)."},
    {0, Stage::None, Cause::None, "Timeout in the TLS handshake|TLS handshake took more",
     "The port may want STARTTLS instead (587, 25): {starttls}."},
    {0, Stage::TlsHandshake, Cause::None, "said nothing for",
     "The port may want STARTTLS instead (587, 25): {starttls}."},
    {0, Stage::TlsHandshake, Cause::None, nullptr,
     "Have the server's TLS mended, or a firewall that inspects it."},
    {0, Stage::StartTls, Cause::None, nullptr,
     "A firewall that inspects mail may break STARTTLS: use port 465 ({implicit})."},
    // The greeting and the introduction.
    {0, Stage::Greeting, Cause::ConnectionLost, "expects TLS from the first byte",
     "The server turns this address away: look at its log and rules; or it expects TLS: then "
     "{implicit}."},
    {0, Stage::Greeting, Cause::ConnectionLost, nullptr,
     "The server turns this address away: look at its log and rules."},
    {0, Stage::Greeting, Cause::None, "expects TLS from the first byte",
     "{implicit}, or port 587."},
    {0, Stage::Greeting, Cause::Timeout, "The server was too slow",
     "The server holds clients back (tarpit, overload): be exempted, or send later."},
    {0, Stage::Greeting, Cause::Timeout, "without its end had come",
     "What listens there is no mail server, or a broken one: check host and port."},
    {0, Stage::Greeting, Cause::Timeout, nullptr,
     "The server is overloaded, or a firewall or scanner in front of it holds this client back: "
     "look "
     "at its log."},
    {0, Stage::Greeting, Cause::None, nullptr,
     "What listens there is no mail server, or a broken one: check host and port."},
    {0, Stage::Ehlo, Cause::MessageTooLarge, nullptr,
     "Send less, or have the server's limit raised."},
    {0, Stage::Ehlo, Cause::Timeout, nullptr,
     "Look at the server's log; a firewall may be in between."},
    {0, Stage::Ehlo, Cause::None, nullptr,
     "Look at the server's log; a firewall may be in between."},
    // The login.
    {0, Stage::None, Cause::NoCredentials, nullptr, "Set user name and password ({login})."},
    {0, Stage::None, Cause::OAuth2Description, nullptr,
     "Correct client, secret or scope of the token{token}."},
    {0, Stage::None, Cause::OAuth2Answer, nullptr,
     "Correct client, secret or scope of the token{token}."},
    {0, Stage::Login, Cause::Timeout, nullptr,
     "Look at the server's log; a check there takes too long{idle}."},
    {0, Stage::Login, Cause::ConnectionLost, nullptr,
     "Look at the server's log; it may break off after wrong passwords, or not know this way to "
     "log "
     "in: {method}."},
    {0, Stage::Login, Cause::None, nullptr,
     "The server does not take this way to log in: {method}."},
    // The envelope.
    {0, Stage::None, Cause::None, "if there are no recipients|has no recipients",
     "Add a recipient that is an address."},
    {0, Stage::None, Cause::None, "The sender is no address",
     "Write it as name@domain or Name <name@domain> ({from})."},
    {0, Stage::Recipients, Cause::None, "letters outside ASCII",
     "Use another address, or a server with SMTPUTF8."},
    {0, Stage::Sender, Cause::None, "letters outside ASCII",
     "Use another address, or a server with SMTPUTF8."},
    {0, Stage::None, Cause::None, "came out of order",
     "A scanner breaks the server's PIPELINING: have it taken out."},
    {0, Stage::Sender, Cause::Timeout, nullptr,
     "Look at the server's log; a check there takes too long{idle}."},
    {0, Stage::Sender, Cause::ConnectionLost, nullptr,
     "Look at the server's log; it may want a login."},
    {0, Stage::Recipients, Cause::Timeout, nullptr,
     "Look at the server's log; a check there takes too long{idle}."},
    {0, Stage::None, Cause::ConnectionLost, "Before that, RCPT TO",
     "Correct the refused addresses."},
    // The message.
    {0, Stage::Acceptance, Cause::BadReply, nullptr,
     "Ask the recipient or look at the server's log first: it may have arrived."},
    {0, Stage::Acceptance, Cause::None, nullptr,
     "Ask the recipient or look at the server's log first: it may have arrived."},
    {0, Stage::Data, Cause::Timeout, nullptr, "Look at the server's log and its free disk space."},
    {0, Stage::Data, Cause::ConnectionLost, nullptr,
     "Look at the server's log; often a size limit or a scanner."},
    {0, Stage::Rendering, Cause::None, nullptr, "Look whether its files can be read."},
    // This machine.
    {0, Stage::None, Cause::SettingsUnusable, nullptr, "Correct the settings file."},
    {0, Stage::None, Cause::Aborted, nullptr, "Nothing: the application stopped it."},
    {0, Stage::None, Cause::OutOfMemory, nullptr, "Send less in one message."},
    {0, Stage::None, Cause::BadReply, nullptr,
     "What listens there is no mail server, or a broken one: check host and port."},
    {0, Stage::None, Cause::LineTooLong, nullptr,
     "What listens there is no mail server, or a broken one: check host and port."},
    {0, Stage::Local, Cause::Internal, nullptr, "The log says more."},
    {0, Stage::None, Cause::Timeout, nullptr,
     "Look at the server's log; a check there takes too long{idle}."},
    {0, Stage::None, Cause::ConnectionLost, nullptr,
     "Look at the server's log; a firewall may be in between."},
    {0, Stage::None, Cause::None, nullptr, "The log says more."},
};

constexpr size_t kCount = std::size(kReplies) + std::size(kCauses);

constexpr auto joined() {
    std::array<Advice, kCount> all;
    std::ranges::copy(kCauses, std::ranges::copy(kReplies, all.begin()).out);
    return all;
}

constexpr std::array<Advice, kCount> kAll = joined();

}  // namespace

std::span<const Advice> advices() {
    return kAll;
}

std::span<const Advice> replyAdvices() {
    return std::span(kAll).first(std::size(kReplies));
}

}  // namespace tv::advice
