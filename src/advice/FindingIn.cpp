// The account of a failure read back out of the text that a host gets: where it stands, and which
// cause its words are. The words of causes are looked up in the table that they were written with.
#include <algorithm>
#include <deque>
#include <span>
#include <vector>

#include "advice/Finding.h"
#include "base/Ascii.h"

namespace tv::advice {
namespace {

using Lines = std::vector<std::string_view>;

constexpr std::string_view kAccount = "TolvaneLog:";
constexpr std::string_view kEndOfCommand = "<CRLF>";

bool contains(std::string_view text, std::string_view wanted) {
    return text.find(wanted) != std::string_view::npos;
}

Lines linesOf(std::string_view text) {
    Lines lines;
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = trimmed(text.substr(0, end));
        if (!line.empty()) lines.push_back(line);
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

// A first line may say it all, where a settings file asks for that.
bool isAccount(const Lines& lines) {
    return (!lines.empty() && lines[0] == kAccount) || (lines.size() > 1 && lines[1] == kAccount);
}

// Contexts, facts ("smtpPort: 25"), and what is said of every failure.
bool isFrameOrFact(std::string_view line) {
    return line.starts_with("--") || line.substr(0, line.find(' ')).ends_with(':') ||
           line.starts_with("Failed") || line.starts_with("Terminated");
}

std::string_view lastTelling(const Lines& lines) {
    const bool account = isAccount(lines);
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        if (!account || !isFrameOrFact(*line)) return *line;
    }
    return {};
}

// Of a line of a reply; 0 where it is none.
int32_t codeOf(std::string_view line) {
    if (line.size() < 3 || (line.size() > 3 && line[3] != ' ' && line[3] != '-')) return 0;
    for (const char c : line.substr(0, 3)) {
        if (!isAsciiDigit(c)) return 0;
    }
    return (line[0] - '0') * 100 + (line[1] - '0') * 10 + (line[2] - '0');
}

// ---- What sentences mean.

struct Sentence {
    std::string_view words;
    Cause cause;
    Stage stage = Stage::None;  // None: that of the cause
};

// The first that occurs counts.
constexpr Sentence kSentences[] = {
    {"Nothing moved for ", Cause::Timeout},
    {"The server was too slow: ", Cause::Timeout},
    {"The server ended the connection with the alert", Cause::TlsPeerAlert},
    {"The connection was lost while ", Cause::ConnectionLost},
    {"The connection was lost after ", Cause::ConnectionLost},
    {"closed the connection before the end of the message", Cause::ConnectionLost, Stage::Data},
    {"The application stopped the send", Cause::Aborted},
    {"aborted by application", Cause::Aborted},
    {"is no line of an SMTP server", Cause::BadReply},
    {"has more than 1000 lines", Cause::BadReply},
    {"has more than 1 MiB", Cause::BadReply},
    {"has a line of more than 64 KiB", Cause::BadReply},
    {"Not connected.", Cause::ConnectionLost, Stage::Login},
    {"No connection for ", Cause::ConnectionLost},
    {"did not provide an SMTP hostname", Cause::NoSmtpHostname},
    {"No login was made: ", Cause::AuthFailure},
    {"settings file", Cause::SettingsUnusable},
    {"Nothing was sent: the attachment", Cause::RenderFailed},
    {"Initialise has not been called", Cause::Internal},
    {"Out of memory", Cause::OutOfMemory},
    {"No memory for ", Cause::OutOfMemory},
    {"unencrypted data after its reply to STARTTLS", Cause::StartTlsFailed},
    {"The server greeted with: ", Cause::GreetingError},
    {"The server refused HELO: ", Cause::GreetingError, Stage::Ehlo},
    {"The server refused EHLO: ", Cause::GreetingError, Stage::Ehlo},
    {"The server refused STARTTLS: ", Cause::StartTlsRefused},
    {"The server refused the login by ", Cause::AuthFailure},
    {" could not go on.", Cause::ChallengeUnanswerable},
    {"A credential that ", Cause::NoCredentials},
    {"The server asks for more and more", Cause::AuthFailure},
    {"login method not supported", Cause::AuthFailure},
    {"OAuth2 description", Cause::OAuth2Description},
    {"token endpoint", Cause::OAuth2Answer},
    {"at most, as it announced (SIZE)", Cause::MessageTooLarge},
    {"No recipient was accepted", Cause::NoValidRecipients},
    {"Not all recipients were accepted", Cause::SomeBadRecipients},
    {"there are no recipients", Cause::NoValidRecipients},
    {"message has no recipients", Cause::NoValidRecipients},
    {"The sender is no address", Cause::FromFailure},
    {" cannot be the sender: ", Cause::FromFailure},
    {"MAIL FROM:", Cause::FromFailure},
    {"DATA was answered with: ", Cause::DataFailure},
    {"The message was answered with: ", Cause::DataFailure, Stage::Acceptance},
    {"A reply came before the end of the message", Cause::DataFailure},
    {"The message could not be ", Cause::RenderFailed},
};

// Where a connection ended: what was awaited or done then.
constexpr Sentence kSteps[] = {
    {"the end of the message data", Cause::None, Stage::Acceptance},
    {"sending the message data", Cause::None, Stage::Data},
    {"reply to the message data", Cause::None, Stage::Data},
    {"reply to MAIL FROM:", Cause::None, Stage::Sender},
    {"reply to RCPT TO:", Cause::None, Stage::Recipients},
    {"reply to DATA", Cause::None, Stage::Data},
    {" greeting", Cause::None, Stage::Greeting},
    {"reply to EHLO", Cause::None, Stage::Ehlo},
    {"reply to HELO", Cause::None, Stage::Ehlo},
    {"reply to STARTTLS", Cause::None, Stage::StartTls},
    {"reply to AUTH ", Cause::None, Stage::Login},
    {"sending MAIL FROM:", Cause::None, Stage::Sender},
    {"sending RCPT TO:", Cause::None, Stage::Recipients},
    {"sending DATA", Cause::None, Stage::Data},
    {"sending EHLO", Cause::None, Stage::Ehlo},
    {"sending HELO", Cause::None, Stage::Ehlo},
    {"sending STARTTLS", Cause::None, Stage::StartTls},
    {"reply to NTLM ", Cause::None, Stage::Login},
    {"reply to *", Cause::None, Stage::Login},
};

// Why no connection came about, where no table of causes has the words.
constexpr Sentence kClauses[] = {
    {"Timeout in the TLS handshake", Cause::TlsServerHelloUnreadable},
    {"The TLS handshake took more than", Cause::TlsServerHelloUnreadable},
    {"The connection was lost in the TLS handshake", Cause::TlsNoServerHello},
    {"The server ended the TLS handshake with the alert", Cause::TlsPeerAlert},
    {"The server speaks TLS 1.3, but", Cause::TlsDowngrade},
    {"The certificate", Cause::CertificateInvalid},
    {"The issu", Cause::CertificateInvalid},
    {"The chain of certificates", Cause::CertificateInvalid},
    {"The check of the certificates", Cause::CertificateInvalid},
    {"The server's public key is none of those", Cause::CertificateInvalid},
    {"The host has no ", Cause::DnsFailed},
    {"The name server ", Cause::DnsFailed},
    {"The port is not a number", Cause::Internal},
    {"The system", Cause::Internal},
};

const Sentence* firstIn(std::string_view text, std::span<const Sentence> table) {
    const auto row =
        std::ranges::find_if(table, [&](const Sentence& s) { return contains(text, s.words); });
    return row == table.end() ? nullptr : &*row;
}

constexpr int kMostCause = 255;

std::string_view withoutStop(std::string_view sentence) {
    return sentence.substr(0, sentence.find_last_not_of('.') + 1);
}

// The cause that these words of a failed connect or handshake are.
Cause causeOfClause(std::string_view clause) {
    for (int number = 1; number <= kMostCause; ++number) {
        const auto cause = static_cast<Cause>(number);
        const std::string_view sentence = withoutStop(tlsSentence(cause));
        if (!sentence.empty() && clause.starts_with(sentence)) return cause;
        if (!connectWords(cause).empty() && withoutStop(clause) == connectWords(cause)) {
            return cause;
        }
    }
    for (const Sentence& known : kClauses) {
        if (clause.starts_with(known.words)) return known.cause;
    }
    return Cause::None;
}

// "No connection to HOST:PORT: clause", "The TLS handshake after STARTTLS failed: clause".
std::string_view connectClause(std::string_view sentence) {
    constexpr std::string_view kStartTls = "The TLS handshake after STARTTLS failed: ";
    if (sentence.starts_with(kStartTls)) return sentence.substr(kStartTls.size());
    return behindPlace(sentence);
}

// The last one of that name counts: it is the one for sends.
Cause causeOfStatus(std::string_view word) {
    for (int number = kMostCause; number > 0; --number) {
        if (statusWord(static_cast<Cause>(number)) == word) return static_cast<Cause>(number);
    }
    return Cause::None;
}

// Not what had come before, or only half.
std::string_view mainPart(std::string_view sentence) {
    sentence = sentence.substr(0, sentence.find("Before that"));
    return sentence.substr(0, sentence.find(" (a line without its end"));
}

// "... was answered with: 550 5.1.1 unknown".
std::string_view replyWithin(std::string_view sentence) {
    constexpr std::string_view kBefore[] = {
        "was answered with: ", "The server greeted with: ", "The server refused ",
        "end of the message: ", "The server's last words: "};
    sentence = mainPart(sentence);
    for (const std::string_view words : kBefore) {
        const size_t found = sentence.find(words);
        if (found == std::string_view::npos) continue;
        const size_t at = sentence.find(": ", found);
        if (at != std::string_view::npos && codeOf(sentence.substr(at + 2)) != 0) {
            return sentence.substr(at + 2);
        }
    }
    return {};
}

bool isNarrower(Cause known) {
    return known == Cause::None || known == Cause::BadReply || known == Cause::AuthFailure ||
           known == Cause::ConnectionLost || known == Cause::ConnectFailed ||
           known == Cause::StartTlsFailed;
}

// status: what stands before the sentence; None where nothing does. False where nothing is known.
bool readSentence(std::string_view sentence, Cause status, Finding& finding) {
    finding.words = sentence;
    finding.cause = status;
    const std::string_view clause = connectClause(sentence);
    if (!clause.empty()) {
        const bool startTls = !sentence.starts_with("No connection");
        const Cause root = causeOfClause(clause);
        const Cause whole = startTls ? Cause::StartTlsFailed : Cause::ConnectFailed;
        finding.cause = root == Cause::None ? whole : root;
        finding.stage = stageOf(finding.cause);
        return true;
    }
    const Sentence* known = firstIn(sentence, kSentences);
    if (known && isNarrower(status)) finding.cause = known->cause;
    const Sentence* step = firstIn(mainPart(sentence), kSteps);
    finding.stage = stageOf(finding.cause);
    if (known && known->stage != Stage::None) finding.stage = known->stage;
    if (finding.stage == Stage::None && step) finding.stage = step->stage;
    finding.reply = replyWithin(sentence);
    finding.replyCode = codeOf(finding.reply);
    return finding.cause != Cause::None;
}

// ---- The dialogue.

struct Exchange {
    std::string_view command;  // empty: the greeting
    std::string reply;
    int32_t code = 0;
};

bool isCommand(std::string_view line) {
    return line.ends_with(kEndOfCommand) || (line.starts_with('{') && line.ends_with('}'));
}

// No such command is sent while replies to others are missing.
bool beginsAnew(std::string_view command) {
    constexpr std::string_view kAlone[] = {"EHLO ", "HELO ", "STARTTLS", "AUTH ", kEndOfCommand};
    return std::ranges::any_of(kAlone, [&](auto word) { return command.starts_with(word); });
}

// Commands and the replies to them; with pipelining several wait for theirs.
std::vector<Exchange> exchangesOf(const Lines& lines) {
    std::vector<Exchange> all;
    std::deque<std::string_view> waiting;
    std::string reply;
    for (const std::string_view line : lines) {
        const int32_t code = codeOf(line);
        if (isCommand(line)) {
            if (beginsAnew(line)) waiting.clear();
            waiting.push_back(line);
        } else if (code != 0) {
            reply += (reply.empty() ? "" : "\n") + std::string(line);
            if (line.size() > 3 && line[3] == '-') continue;
            const bool greets = code == 220 && !waiting.empty() && waiting[0] != "STARTTLS<CRLF>";
            if (greets) waiting.clear();
            all.push_back({waiting.empty() ? std::string_view() : waiting[0], reply, code});
            if (!waiting.empty()) waiting.pop_front();
            reply.clear();
        }
    }
    return all;
}

struct Answered {
    std::string_view command;  // how it begins
    Stage stage;
    Cause cause;
    std::string_view words;  // before the reply; empty: the command "was answered with"
};

constexpr Answered kAnswered[] = {
    {"EHLO ", Stage::Ehlo, Cause::GreetingError, "The server refused EHLO: "},
    {"HELO ", Stage::Ehlo, Cause::GreetingError, "The server refused HELO: "},
    {"STARTTLS", Stage::StartTls, Cause::StartTlsRefused, "The server refused STARTTLS: "},
    {"MAIL FROM:", Stage::Sender, Cause::FromFailure, {}},
    {"RCPT TO:", Stage::Recipients, Cause::NoValidRecipients, {}},
    {"DATA", Stage::Data, Cause::DataFailure, {}},
    {"{PasswordOrCredentials}", Stage::Login, Cause::AuthFailure, "The server refused the login: "},
    {"{", Stage::Data, Cause::DataFailure, "A reply came before the end of the message: "},
    {"<CRLF>.", Stage::Acceptance, Cause::DataFailure, "The message was answered with: "},
    {".", Stage::Recipients, Cause::NoValidRecipients, "The message was answered with: "},
    {"*", Stage::Login, Cause::ChallengeUnanswerable, "The login could not go on: "},
    // The lines of a login are the rest.
    {"", Stage::Login, Cause::AuthFailure, "The server refused the login: "},
};

// A transcript that ends with the server's refusal.
void readRefusal(const Exchange& exchange, Finding& finding) {
    const std::string last = exchange.reply.substr(exchange.reply.rfind('\n') + 1);
    if (exchange.command.empty()) {
        finding.stage = Stage::Greeting;
        finding.cause = Cause::GreetingError;
        finding.words = "The server greeted with: " + last;
        finding.replyCode = exchange.code;
        finding.reply = exchange.reply;
        return;
    }
    for (const Answered& row : kAnswered) {
        if (!exchange.command.starts_with(row.command)) continue;
        finding.stage = row.stage;
        finding.cause = row.cause;
        const std::string_view command =
            exchange.command.substr(0, exchange.command.find(kEndOfCommand));
        finding.words = row.words.empty() ? std::string(command) + " was answered with: " + last
                                          : std::string(row.words) + last;
        // What the server says to a login that is called off is no refusal of it.
        if (row.cause == Cause::ChallengeUnanswerable) return;
        finding.replyCode = exchange.code;
        finding.reply = exchange.reply;
        return;
    }
}

using Place = std::vector<Exchange>::const_reverse_iterator;

bool isTidyingUp(std::string_view command) {
    return command.starts_with("RSET") || command.starts_with("QUIT");
}

// Where nobody was accepted, what refused them counts, not what DATA was answered with then.
Place beforeData(const Place& data, const Place& end) {
    Place refused = data;
    for (Place at = data + 1; at != end; ++at) {
        if (at->command.starts_with("DATA")) continue;  // that went before the dot
        const bool isRecipient = at->command.starts_with("RCPT ");
        if (!isRecipient && !at->command.starts_with("MAIL ")) break;
        if (at->code < 400) return isRecipient ? data : refused;
        if (refused == data || !isRecipient) refused = at;
    }
    return refused;
}

// A login that is refused may ask for encryption, which then fails, too.
Place beforeEncryption(const Place& startTls, const Place& end) {
    for (Place at = startTls + 1; at != end; ++at) {
        if (at->command.starts_with("AUTH ") && at->code >= 400) return at;
    }
    return startTls;
}

bool readLastRefusal(const Lines& lines, Finding& finding) {
    const std::vector<Exchange> all = exchangesOf(lines);
    const Place end = all.crend();
    Place at = std::find_if(all.crbegin(), end, [](const Exchange& e) {
        return e.code >= 400 && !isTidyingUp(e.command);
    });
    if (at == end) return false;
    if (at->command.starts_with("DATA") || at->command.starts_with(".")) at = beforeData(at, end);
    if (at->command.starts_with("STARTTLS") || at->command.starts_with("EHLO ")) {
        at = beforeEncryption(at, end);
    }
    readRefusal(*at, finding);
    return true;
}

bool isHint(std::string_view line) {
    return line.starts_with("No login was made: ") || line.starts_with("The message has ");
}

// What may lie behind it stands after it.
std::string takeHints(Lines& lines) {
    std::string hints;
    while (lines.size() > 1 && isHint(lines.back())) {
        hints.insert(0, lines.back()).insert(0, 1, ' ');
        lines.pop_back();
    }
    return hints;
}

void addHints(const std::string& hints, Finding& finding) {
    if (hints.empty() || contains(finding.words, hints.substr(1))) return;
    finding.words += (finding.words.ends_with('.') ? "" : ".") + hints;
}

// The lines of the reply that a sentence quotes the last of.
void completeReply(const Lines& lines, Finding& finding) {
    constexpr std::string_view kFact = "SmtpCmdResp: ";  // in an account
    const bool account = isAccount(lines);
    Lines replies;
    for (std::string_view line : lines) {
        if (account && !line.starts_with(kFact)) continue;
        replies.push_back(account ? trimmed(line.substr(kFact.size())) : line);
    }
    const auto last = std::find(replies.rbegin(), replies.rend(), finding.reply);
    if (last == replies.rend()) return;
    for (auto line = last + 1; line != replies.rend(); ++line) {
        if (codeOf(*line) == 0 || line->substr(3, 1) != "-") break;
        finding.reply = std::string(*line) + '\n' + finding.reply;
    }
}

// The end of a sentence whose host name had line ends in it.
bool readBroken(std::string_view line, Finding& finding) {
    const size_t colon = line.rfind(": ");
    finding.cause = causeOfClause(line.substr(colon == std::string_view::npos ? 0 : colon + 2));
    finding.stage = stageOf(finding.cause);
    return finding.cause != Cause::None;
}

bool readTranscript(Lines lines, Finding& finding) {
    const std::string hints = takeHints(lines);
    const std::string_view last = lines.back();
    const size_t colon = std::min(last.find(": "), last.size());
    const Cause status = causeOfStatus(last.substr(0, colon));
    bool known = true;
    if (status != Cause::None) {
        const std::string_view sentence = last.substr(std::min(colon + 2, last.size()));
        known = readSentence(sentence.empty() ? last : sentence, status, finding);
    } else if (codeOf(last) != 0 && readLastRefusal(lines, finding)) {
    } else {
        known = readSentence(last, Cause::None, finding) || readBroken(last, finding);
    }
    addHints(hints, finding);
    return known;
}

// Where the sentence is broken: a host name may hold anything.
bool readReason(const Lines& lines, Finding& finding) {
    constexpr std::string_view kFact = "ConnectFailReason: ";
    for (const std::string_view line : lines) {
        if (!line.starts_with(kFact)) continue;
        finding.words = line.substr(kFact.size());
        finding.cause = causeOfClause(finding.words);
        finding.stage = stageOf(finding.cause);
    }
    return finding.cause != Cause::None;
}

// After a failed login the log goes on for some lines, and with what was tried for its sake.
bool readAccount(const Lines& lines, Finding& finding) {
    const bool ofLogin = std::ranges::find(lines, "smtpAuth.success: 0") != lines.end();
    bool known = false;
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        Finding read;
        if (isFrameOrFact(*line) || !readSentence(*line, Cause::None, read)) continue;
        if (!known) finding = read;
        known = true;
        if (!ofLogin || read.stage == Stage::Login) {
            finding = std::move(read);
            break;
        }
    }
    const auto hint = std::ranges::find_if(lines, isHint);
    if (ofLogin && hint != lines.end()) addHints(std::string(" ").append(*hint), finding);
    return known || readReason(lines, finding);
}

}  // namespace

std::string_view tellingLine(std::string_view lastError) {
    return lastTelling(linesOf(lastError));
}

Finding findingIn(std::string_view lastError) {
    Finding finding;
    const Lines lines = linesOf(lastError);
    if (lines.empty()) return finding;
    const bool known =
        isAccount(lines) ? readAccount(lines, finding) : readTranscript(lines, finding);
    if (!known) {
        finding = {};
        finding.words = lastTelling(lines);
        finding.cause = Cause::Internal;
    }
    // RFC 4954 section 6
    finding.loggedIn = std::ranges::any_of(lines, [](std::string_view line) {
        constexpr std::string_view kFact = "SmtpCmdResp: ", kTaken = "235 ";
        if (line.starts_with(kFact)) line.remove_prefix(kFact.size());
        return line.starts_with(kTaken);
    });
    if (!finding.reply.empty()) completeReply(lines, finding);
    if (contains(finding.words, "may deliver it twice")) {
        finding.repeat = Repeat::Unknown;
    } else if (finding.replyCode >= 400) {
        finding.repeat = finding.replyCode < 500 ? Repeat::RefusedForNow : Repeat::RefusedForGood;
    }
    return finding;
}

}  // namespace tv::advice
