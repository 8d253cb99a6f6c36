// The rows of the table, in the order in which they are explained.
#include "settings/SettingsKeys.h"

#include <algorithm>
#include <iterator>

#include "base/Ascii.h"

namespace tv::settings {
namespace {

template <class T>
struct Inner {
    using Type = T;
};
template <class T>
struct Inner<std::optional<T>> {
    using Type = T;
};

template <auto member>
void number(Settings& settings, const Value& value) {
    using Member = std::remove_reference_t<decltype(settings.*member)>;
    settings.*member = static_cast<typename Inner<Member>::Type>(value.number);
}

template <auto member>
void text(Settings& settings, const Value& value) {
    settings.*member = value.text;
}

template <auto member>
void secret(Settings& settings, const Value& value) {
    XString kept;
    kept.markSecret();
    kept.setUtf8(value.text);
    settings.*member = std::move(kept);
}

template <auto member>
void oneMore(Settings& settings, const Value& value) {
    (settings.*member).push_back(value.text);
}

void nameServer(Settings& settings, const Value& value) {
    if (auto server = parseNameServer(value.text)) settings.servers.push_back(std::move(*server));
}

// "host" says nothing, "off" names no file.
void sentMail(Settings& settings, const Value& value) {
    constexpr int64_t kHost = 0, kOff = 1;
    if (value.number == kHost) return;
    settings.sentMail = value.number == kOff ? std::string() : value.text;
}

constexpr int64_t kSecond = 1000;
constexpr int64_t kKilobyte = 1024;
constexpr int64_t kMegabyte = 1024 * kKilobyte;
constexpr int64_t kHour = 3600 * kSecond;

constexpr Form kText{Kind::Text};
constexpr Form kHost{Kind::Host};
constexpr Form kYesNo{Kind::YesNo};
constexpr Form kDuration{Kind::Duration, {}, kSecond, kHour};
constexpr Form kFile{Kind::File};
constexpr Form kTlsVersion{Kind::Choice, "1.0, 1.1, 1.2, 1.3"};

constexpr Form oneOf(std::string_view choices) {
    return {Kind::Choice, choices};
}

constexpr std::string_view kHosts = "the host program's";

// A call for each row, which formatters leave together.
constexpr Key key(std::string_view section, std::string_view name, Form form,
                  void (*store)(Settings&, const Value&), std::string_view standard,
                  std::string_view example, std::string_view meaning) {
    return {section, name, form, store, standard, example, meaning};
}

constexpr Key kKeys[] = {
    key("", "profile", oneOf("classic, modern"), number<&Settings::profile>, "classic", "modern",
        "modern is what servers, filters and readers of today like best: a set of the keys below,\n"
        "each of which may stand in the file with another value."),

    key("server", "host", kHost, text<&Settings::host>, kHosts, "mail.example.com",
        "The mail server: a name or an address."),
    key("server", "port", {Kind::Number, {}, 1, 65535}, number<&Settings::port>, kHosts, "587",
        "The port that the server listens at: 25, 465 or 587."),
    key("server", "encryption", oneOf("none, if-offered, starttls, implicit"),
        number<&Settings::encryption>, kHosts, "starttls",
        "TLS: not at all, where the server offers it, always by STARTTLS, from the first byte on.\n"
        "With starttls and implicit a server without TLS gets nothing."),
    key("server", "helo", kHost, text<&Settings::helo>, "the computer's name", "pc17.example.com",
        "What this machine calls itself to the server: a name, an address in brackets, or dns for\n"
        "its own DNS name, where it has one with a domain (.local is none), else its address."),
    key("server", "local-address", {Kind::Address}, text<&Settings::localAddress>,
        "chosen by the system", "192.0.2.17",
        "The address of this machine that connections to the server come from."),
    key("server", "family", oneOf("any, ipv4, ipv6"), number<&Settings::family>, "any", "ipv4",
        "Which addresses of the server's name are tried: any, IPv4 before IPv6, or those of one\n"
        "family alone."),
    key("server", "trial", oneOf("always, first, never"), number<&Settings::trial>, "always",
        "first",
        "The trial connection before a send: before each, only where no open connection to the\n"
        "server stands, or never."),
    key("server", "reuse", kYesNo, number<&Settings::reuse>, "yes", "yes",
        "Whether the connection of a send stays open for the next one."),
    key("server", "connect-timeout", kDuration, number<&Settings::connectTimeoutMs>, "30 s", "30 s",
        "How long to wait for a connection."),
    key("server", "idle-timeout", kDuration, number<&Settings::idleTimeoutMs>, "30 s", "2 min",
        "How long nothing may move on a connection."),
    key("server", "acceptance-timeout", kDuration, number<&Settings::acceptanceTimeoutMs>,
        "as idle-timeout", "10 min",
        "How long the server may think about a message that it has received in full: who gives\n"
        "up earlier and sends it again may have it delivered twice."),
    key("server", "total-timeout", kDuration, number<&Settings::totalTimeoutMs>, "none", "15 min",
        "How long a send may take in all, whatever still moves."),

    key("login", "user", kText, text<&Settings::user>, kHosts, "service@example.com",
        "The user's name for the login."),
    key("login", "password", {Kind::Secret}, secret<&Settings::password>, kHosts, "\"a secret\"",
        "The password, as it is or as emailsend settings protect gives it (Windows). It counts "
        "only\n"
        "beside host and user, and is sent over TLS alone unless only-encrypted = no."),
    key("login", "password-file", {Kind::SecretLine}, secret<&Settings::password>, "none",
        "mail-password.txt", "A file whose first line is the password."),
    key("login", "methods",
        {Kind::Choices, "SCRAM-SHA-256, SCRAM-SHA-1, CRAM-MD5, NTLM, LOGIN, PLAIN, XOAUTH2"},
        oneMore<&Settings::methods>, "what the server offers, LOGIN before NTLM and the others",
        "SCRAM-SHA-256, CRAM-MD5, PLAIN",
        "The ways to log in, in the order in which they are tried where the server offers them.\n"
        "The next one is tried where the server will not have one, not where it refuses the "
        "login."),
    key("login", "oauth2", {Kind::SecretFile}, secret<&Settings::oauth2>, "none", "oauth2.json",
        "A file with the JSON description of how to get an access token."),
    key("login", "domain", kText, text<&Settings::domain>, kHosts, "EXAMPLE",
        "The Windows domain of the user, for NTLM."),
    key("login", "ntlm", {Kind::Number, {}, 1, 2}, number<&Settings::ntlm>, kHosts, "2",
        "The version of NTLM for a user with a password. 1 is broken: for servers of the last\n"
        "century alone."),
    key("login", "channel-binding", oneOf("no, if-possible, required"),
        number<&Settings::channelBinding>, "no", "if-possible",
        "Whether a login by NTLM version 2 holds for the server's TLS certificate alone, so that\n"
        "nobody can pass it on. With required there is no login by any other way, or in clear."),
    key("login", "only-encrypted", kYesNo, number<&Settings::onlyEncrypted>,
        "yes where this file has the secret, else no", "yes",
        "Whether a login over a connection in clear is refused."),

    key("certificate", "verify", kYesNo, number<&Settings::verify>,
        "yes where roots or roots-also stands, else no", "yes",
        "Whether the server must prove who it is: chain, name and dates of its certificate.\n"
        "Needs encryption = starttls or implicit."),
    key("certificate", "roots", kFile, text<&Settings::roots>, "the system's", "company-root.pem",
        "A PEM file with the only certificates to trust, a company's own root for instance."),
    key("certificate", "roots-also", kFile, text<&Settings::rootsAlso>, "none", "company-root.pem",
        "A PEM file with certificates to trust besides those of the system, or of roots."),
    key("certificate", "pin", {Kind::KeyPins}, oneMore<&Settings::pins>, "none",
        "sha256//AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA=",
        "The SHA-256 hash of the server's public key, several with commas. Alone it takes the\n"
        "place of chain, name and dates; with verify = yes both must hold."),

    key("tls", "lowest", kTlsVersion, number<&Settings::lowest>, "1.0", "1.2",
        "The oldest version of TLS that may be spoken."),
    key("tls", "highest", kTlsVersion, number<&Settings::highest>, "1.3", "1.3",
        "The newest version of TLS that is offered."),
    key("tls", "old-suites", kYesNo, number<&Settings::oldSuites>, "yes", "no",
        "Whether RC4, DES, 3DES, MD5, and keys by static RSA or DHE may be used."),

    key("message", "from", {Kind::NamedMailbox}, text<&Settings::from>, "none",
        "Service Desk <service@example.com>",
        "The sender of messages for which the host program names none."),
    key("message", "from-always", {Kind::NamedMailbox}, text<&Settings::fromAlways>, "none",
        "Service Desk <service@example.com>",
        "The sender of all messages; whom the host program names is where replies go."),
    key("message", "envelope-sender", {Kind::Mailbox}, text<&Settings::envelopeSender>,
        "the sender", "bounces@example.com", "Where reports of failed deliveries go."),
    key("message", "reply-to", {Kind::NamedMailbox}, text<&Settings::replyTo>, "none",
        "help@example.com", "Where replies go."),
    key("message", "bcc", {Kind::Mailboxes}, oneMore<&Settings::bcc>, "none", "archive@example.com",
        "Who gets a copy of each message without being named in it."),
    key("message", "text-alternative", kYesNo, number<&Settings::textAlternative>, "no", "yes",
        "Whether a message with an HTML body alone gets a plain text made from it, for readers\n"
        "without HTML and for filters."),
    key("message", "message-id-domain", oneOf("computer, sender"),
        number<&Settings::messageIdDomain>, "computer", "sender",
        "What stands behind the \"@\" of a message's number: the computer's name, or the domain "
        "of\n"
        "its sender."),
    key("message", "angle-brackets", oneOf("as-now, always"), number<&Settings::angleBrackets>,
        "as-now", "always",
        "Whether addresses without a name stand in angle brackets, too; some filters ask for it."),
    key("message", "logo-disposition", oneOf("as-now, inline"), number<&Settings::logoDisposition>,
        "as-now", "inline",
        "Whether the logo says that it belongs into the text, so that readers do not list it."),
    key("message", "text-files", oneOf("as-now, exact"), number<&Settings::textFiles>, "as-now",
        "exact",
        "Whether attached text files arrive byte for byte where line ends or characters are "
        "unusual,\n"
        "as any other file would."),
    key("message", "empty-subject", oneOf("omit, keep"), number<&Settings::emptySubject>, "omit",
        "keep", "Whether a message without a subject has the field all the same."),
    key("message", "missing-attachment", oneOf("send, refuse"),
        number<&Settings::missingAttachment>, "send", "refuse",
        "Whether a message goes out whose attachment could not be read, without it."),
    key("message", "header", {Kind::Field}, oneMore<&Settings::fields>, "none", "X-Site: 17",
        "A further field of each message's header; several by several lines."),
    key("message", "check-size", kYesNo, number<&Settings::checkSize>, "no", "yes",
        "Whether a message that is larger than the server announced (SIZE) fails before it is\n"
        "begun. Some servers announce less than they take."),
    key("message", "all-recipients", kYesNo, number<&Settings::allRecipients>, "no", "yes",
        "Whether a message that some recipient cannot have goes to nobody."),
    key("message", "delivery-report", {Kind::Choices, "failure, delay, success"},
        oneMore<&Settings::deliveryReport>, "none asked for", "failure, delay",
        "When the servers on the way are to report to the sender."),

    key("names", "servers", {Kind::NameServers, {}, 1, kMostNameServers}, nameServer,
        "the system's", "tls://192.0.2.53#dns.example.com",
        "The name servers to ask, and nobody else: addresses. With tls:// the question is "
        "encrypted,\n"
        "and the server must prove the name behind #, as [certificate] says, if one stands there."),
    key("names", "hosts", kFile, text<&Settings::hosts>, "the system's", "hosts.txt",
        "A file in the form of /etc/hosts that is looked into before servers are asked, in place "
        "of\n"
        "the system's."),

    key("log", "sent-mail", {Kind::Target, "host, off"}, sentMail, "host", "sent.log",
        "The file that each sent message is appended to: the one that the host program names, "
        "none\n"
        "even where it names one, or this one."),
    key("log", "sends", {Kind::Target}, text<&Settings::sends>, "none", "sends.log",
        "A file with one line for each send, those that fail before they have begun, too: when,\n"
        "where, over what, who, to whom, the reply."),
    key("log", "size", {Kind::Size, {}, kKilobyte, 1000 * kMegabyte}, number<&Settings::logSize>,
        "no limit", "10 MB",
        "How large that file may grow before a new one is begun; the old one is then FILE.1."),
    key("log", "failures", {Kind::Target}, text<&Settings::failures>, "none", "failures",
        "A folder that gets the whole log of each failed send as a file."),
    key("log", "keep", {Kind::Number, {}, 1, 10000}, number<&Settings::keep>, "100", "100",
        "How many of those logs are kept, the newest."),
    key("log", "debug", {Kind::Target}, text<&Settings::debug>, "none", "debug.log",
        "A file that gets each line of the log of trials and sends at once, for a program that\n"
        "hangs. It grows without limit."),
    key("log", "message-box", kYesNo, number<&Settings::messageBox>, "yes", "no",
        "Whether a message box tells of an attachment that could not be read (Windows)."),
    key("log", "first-line", kYesNo, number<&Settings::firstLine>, "no", "yes",
        "Whether what the host program gets of a failed send begins with one line that says what\n"
        "failed, what to change, and whether to send it again."),

    key("test", "folder", {Kind::Target}, text<&Settings::testFolder>, "none", "outbox",
        "A folder in which each message is laid down as a file, with its envelope, in place of\n"
        "being sent: no connection is made at all."),
    key("test", "redirect", {Kind::Mailbox}, text<&Settings::redirect>, "none", "me@example.com",
        "Who gets each message in place of its recipients."),
};

constexpr ProfileRow kModern[] = {
    {"server", "helo", "dns"},
    {"server", "trial", "first"},
    {"server", "acceptance-timeout", "10 min"},
    {"message", "text-alternative", "yes"},
    {"message", "message-id-domain", "sender"},
    {"message", "angle-brackets", "always"},
    {"message", "logo-disposition", "inline"},
    {"message", "text-files", "exact"},
    {"message", "empty-subject", "keep"},
    {"message", "check-size", "yes"},
};

std::string listed(std::string_view choices) {
    const size_t last = choices.rfind(", ");
    return std::string(choices.substr(0, last)) + " or " + std::string(choices.substr(last + 2));
}

std::string inSeconds(int64_t ms) {
    return std::to_string(ms / kSecond) + " s";
}

}  // namespace

std::span<const Key> keys() {
    return kKeys;
}

std::span<const ProfileRow> modernProfile() {
    return kModern;
}

const Key* findKey(std::string_view section, std::string_view name) {
    const auto found = std::find_if(std::begin(kKeys), std::end(kKeys), [&](const Key& key) {
        return equalsIgnoreCase(key.section, section) && equalsIgnoreCase(key.name, name);
    });
    return found == std::end(kKeys) ? nullptr : found;
}

bool isSection(std::string_view section) {
    return !section.empty() && std::any_of(std::begin(kKeys), std::end(kKeys), [&](const Key& key) {
        return equalsIgnoreCase(key.section, section);
    });
}

std::string mayBe(const Form& form) {
    switch (form.kind) {
        case Kind::Text:
            return "a text";
        case Kind::Host:
            return "a name or an address, without blanks";
        case Kind::Address:
            return "a numeric address";
        case Kind::Number:
            return "a number from " + std::to_string(form.lowest) + " to " +
                   std::to_string(form.highest);
        case Kind::YesNo:
            return "yes or no";
        case Kind::Choice:
            return listed(form.choices);
        case Kind::Choices:
            return "some of " + std::string(form.choices) + ", with commas between them";
        case Kind::Duration:
            return "a time from " + inSeconds(form.lowest) + " to " + inSeconds(form.highest) +
                   ", as in \"30 s\" or \"5 min\"";
        case Kind::Size:
            return "a size from 1 KB to 1000 MB, as in \"10 MB\"";
        case Kind::KeyPins:
            return "\"sha256//\" and 32 bytes in base64, or 64 hexadecimal digits, with commas "
                   "between several";
        case Kind::NameServers:
            return "up to " + std::to_string(form.highest) +
                   " addresses, tls://ADDRESS#NAME or tls://ADDRESS, with commas between them";
        case Kind::Mailbox:
            return "an e-mail address";
        case Kind::Mailboxes:
            return "e-mail addresses, with commas between them";
        case Kind::NamedMailbox:
            return "an e-mail address, or a name and the address in angle brackets";
        case Kind::Field:
            return "a field of the header, as in \"X-Site: 17\", but none that messages have "
                   "anyway";
        case Kind::File:
        case Kind::SecretLine:
        case Kind::SecretFile:
            return "the path of a file that can be read";
        case Kind::Target:
            return std::string(form.choices) + (form.choices.empty() ? "" : " or ") +
                   "the path of a file";
        case Kind::Secret:
            return "a text, in quotes where it begins or ends with a blank or a quote";
    }
    return {};
}

}  // namespace tv::settings
