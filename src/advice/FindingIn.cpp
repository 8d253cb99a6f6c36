// The account of a failure read back out of the text that a host gets: where it stands, and which
// cause its words are. The tables of words are those that the text was written with.
#include <algorithm>
#include <array>
#include <vector>

#include "advice/Finding.h"
#include "base/Ascii.h"

namespace tv::advice {
namespace {

using Lines = std::vector<std::string_view>;

constexpr std::string_view kAccount = "TolvaneLog:";

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

bool isAccount(std::string_view text) {
    return trimmed(text).starts_with(kAccount);
}

// Contexts, facts ("smtpPort: 25"), and what is said of every failure.
bool isFrameOrFact(std::string_view line) {
    const std::string_view first = line.substr(0, line.find(' '));
    return line.starts_with("--") || first.ends_with(':') || line.starts_with("Failed") ||
           line.starts_with("Terminated ");
}

int32_t codeOf(std::string_view line) {
    if (line.size() < 3 || (line.size() > 3 && line[3] != ' ' && line[3] != '-')) return 0;
    if (!std::ranges::all_of(line.substr(0, 3), isAsciiDigit)) return 0;
    return (line[0] - '0') * 100 + (line[1] - '0') * 10 + (line[2] - '0');
}

bool contains(std::string_view text, std::string_view wanted) {
    return text.find(wanted) != std::string_view::npos;
}

// ---- Words to cause and stage.

struct Words {
    std::string_view words;
    Cause cause;
    Stage stage = Stage::None;
};

// What the sentences say besides the words of the one table of causes.
constexpr Words kSentences[] = {
    {"did not provide an SMTP hostname", Cause::NoSmtpHostname},
    {"is not a number from 1 to 65535", Cause::Internal},
    {"The host has no ", Cause::DnsFailed},
    {"socket library did not start", Cause::Internal},
    {"The system gave no socket", Cause::Internal},
    {"The server ended the TLS handshake with the alert", Cause::TlsPeerAlert},
    {"Timeout in the TLS handshake", Cause::TlsServerHelloUnreadable, Stage::TlsHandshake},
    {"The TLS handshake took more than", Cause::TlsServerHelloUnreadable, Stage::TlsHandshake},
    {"connection was lost in the TLS handshake", Cause::TlsNoServerHello, Stage::TlsHandshake},
    {"when TLS 1.3 was offered", Cause::TlsDowngrade, Stage::TlsHandshake},
    {"The server greeted with: ", Cause::GreetingError},
    {"The server refused STARTTLS: ", Cause::StartTlsRefused},
    {"unencrypted data after its reply to STARTTLS", Cause::StartTlsFailed},
    {"The server refused the login", Cause::AuthFailure},
};

}  // namespace

std::string_view tellingLine(std::string_view lastError) {
    const Lines lines = linesOf(lastError);
    const bool account = isAccount(lastError);
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        if (!account || !isFrameOrFact(*line)) return *line;
    }
    return {};
}

Finding findingIn(std::string_view lastError) {
    Finding finding;
    const std::string_view line = tellingLine(lastError);
    if (line.empty()) return finding;
    finding.cause = Cause::Internal;
    finding.words = line;
    finding.replyCode = codeOf(line);
    for (const Words& known : kSentences) {
        if (!contains(line, known.words)) continue;
        finding.cause = known.cause;
        finding.stage = known.stage == Stage::None ? stageOf(known.cause) : known.stage;
        break;
    }
    return finding;
}

}  // namespace tv::advice
