// Choosing a row, and the sentence made of it.
#include "advice/Advice.h"

#include <algorithm>

#include "base/Ascii.h"

namespace tv::advice {
namespace {

// Nobody reads on, and servers may say a megabyte.
constexpr size_t kMostSearched = 4096;
constexpr size_t kMostShown = 600;

bool isWordAt(std::string_view text, size_t at) {
    return at < text.size() && isAsciiAlnum(text[at]);
}

// "550 5.7.1", "550-5.7.1", "550 #5.7.1": RFC 2034 section 4.
bool isBehindReplyCode(std::string_view text, size_t at) {
    constexpr size_t kDigits = 3;
    if (at > 0 && text[at - 1] == '#') --at;
    if (at <= kDigits || (text[at - 1] != ' ' && text[at - 1] != '-')) return false;
    return std::ranges::all_of(text.substr(at - kDigits - 1, kDigits), isAsciiDigit);
}

// "5.7.1" does not stand in "5.7.139", nor "spf" in "x.spfilter".
bool isWhole(std::string_view text, size_t at, size_t end) {
    constexpr size_t kShort = 5;
    constexpr std::string_view kJoints = "./-_=";
    if (isAsciiDigit(text[at])) {
        const bool goesOn = isAsciiDigit(text[end - 1]) &&
                            (isWordAt(text, end) ||
                             (end < text.size() && text[end] == '.' && isWordAt(text, end + 1)));
        return !goesOn && isBehindReplyCode(text, at);
    }
    if (end - at > kShort) return true;
    const bool cutsFront =
        at > 0 && (isWordAt(text, at - 1) || kJoints.find(text[at - 1]) != std::string_view::npos);
    return !cutsFront && !isWordAt(text, end) &&
           !(end < text.size() && text[end] == '.' && isWordAt(text, end + 1));
}

// Servers repeat what they refuse: relay@example.com says nothing about relaying.
bool isOfAddress(std::string_view text, size_t at) {
    constexpr std::string_view kEnds = " \t\r\n<>,;\"'()";
    const size_t end = text.find_first_of(kEnds, at);
    const size_t before = text.substr(0, at).find_last_of(kEnds);
    const size_t begin = before == std::string_view::npos ? 0 : before + 1;
    return text.substr(begin, end == std::string_view::npos ? end : end - begin).find('@') !=
           std::string_view::npos;
}

bool mentions(std::string_view text, std::string_view phrase) {
    for (size_t from = 0; from < text.size(); ++from) {
        const size_t found = findIgnoreCase(text.substr(from), phrase);
        if (found == std::string_view::npos) return false;
        from += found;
        if (isWhole(text, from, from + phrase.size()) && !isOfAddress(text, from)) return true;
    }
    return false;
}

bool mentionsOne(const Finding& finding, std::string_view phrases) {
    // A host may be called relay.example.com.
    std::string_view words = finding.words;
    const std::string_view clause = behindPlace(words);
    words = (clause.empty() ? words : clause).substr(0, kMostSearched);
    const std::string_view reply = std::string_view(finding.reply).substr(0, kMostSearched);
    while (!phrases.empty()) {
        const std::string_view phrase = phrases.substr(0, phrases.find('|'));
        if (mentions(words, phrase) || mentions(reply, phrase)) return true;
        phrases.remove_prefix(std::min(phrase.size() + 1, phrases.size()));
    }
    return false;
}

// Before its greeting no server has said anything, and nothing of what fails on this machine alone:
// names of hosts and files that stand in the words are no reply.
bool mayBeReply(const Finding& finding) {
    const bool isBefore = finding.stage >= Stage::NameLookup && finding.stage < Stage::Greeting;
    return !isBefore && finding.stage < Stage::Rendering;
}

bool fits(const Advice& row, const Finding& finding) {
    const bool codeFits = row.code == 0 || row.code == finding.replyCode ||
                          (row.code < 10 && row.code == finding.replyCode / 100);
    return codeFits && (!row.loggedIn || finding.loggedIn) &&
           (row.stage == Stage::None || row.stage == finding.stage) &&
           (row.cause == Cause::None || row.cause == finding.cause) &&
           (!row.phrases || mentionsOne(finding, row.phrases));
}

struct Key {
    const char *name, *words;  // small: this goes into the DLL
};

constexpr Key kKeys[] = {
    {"implicit", "encryption = implicit in [server]"},
    {"starttls", "encryption = starttls in [server]"},
    {"encrypt", "encryption = starttls in [server]"},
    {"host", "host in [server]"},
    {"port", "port in [server]"},
    {"password", "password in [login]"},
    {"login", "user and password in [login]"},
    {"from", "from-always in [message]"},
    {"method", "methods in [login]"},
    {"trust", " (roots-also or pin in [certificate])"},
    {"token", " (oauth2 in [login])"},
    {"helo", " (helo in [server])"},
    {"idle", " (idle-timeout in [server])"},
    {"versions", " (highest in [tls])"},
    {"names", " (servers in [names])"},
};

std::string_view keyOf(std::string_view name) {
    for (const Key& key : kKeys) {
        if (key.name == name) return key.words;
    }
    return {};
}

// One line that a terminal takes for text alone.
void addShown(std::string_view words, std::string& out) {
    size_t size = std::min(words.size(), kMostShown);
    // Not within a character.
    while (size > 0 && size < words.size() && (static_cast<uint8_t>(words[size]) & 0xC0) == 0x80)
        --size;
    for (std::string_view rest = words.substr(0, size); !rest.empty();) {
        const size_t obeyed = obeyedByTerminals(rest);
        out.push_back(obeyed > 0 ? ' ' : rest.front());
        rest.remove_prefix(std::min(std::max<size_t>(obeyed, 1), rest.size()));
    }
    while (out.ends_with(' '))
        out.pop_back();
    if (size < words.size()) out.append("...");
}

void addChange(const char* change, SettingWords wordsOf, std::string& out) {
    for (const char* at = change; *at; ++at) {
        if (*at != '{') {
            out.push_back(*at);
            continue;
        }
        const char* const name = at + 1;
        while (*at != '}')
            ++at;
        out.append(wordsOf({name, static_cast<size_t>(at - name)}));
    }
}

}  // namespace

size_t obeyedByTerminals(std::string_view text) {
    const auto at = [&](size_t i) { return i < text.size() ? static_cast<uint8_t>(text[i]) : 0; };
    if (text.empty()) return 0;
    if (at(0) < ' ' || at(0) == 0x7F) return 1;
    if (at(0) == 0xC2 && at(1) >= 0x80 && at(1) < 0xA0) return 2;  // U+0080 to U+009F
    if (at(0) != 0xE2) return 0;
    const bool isMark = at(1) == 0x80 && (at(2) == 0x8E || at(2) == 0x8F);
    const bool isEmbedding = at(1) == 0x80 && at(2) >= 0xA8 && at(2) <= 0xAE;
    const bool isIsolate = at(1) == 0x81 && at(2) >= 0xA6 && at(2) <= 0xA9;
    return isMark || isEmbedding || isIsolate ? 3 : 0;
}

const Advice& adviceOn(const Finding& finding) {
    const auto rows = advices();
    size_t row = mayBeReply(finding) ? 0 : replyAdvices().size();
    while (row + 1 < rows.size() && !fits(rows[row], finding))
        ++row;
    return rows[row];
}

std::string whatToChange(const Advice& advice, SettingWords wordsOf) {
    std::string out;
    addChange(advice.change, wordsOf, out);
    return out;
}

std::string whatToChange(const Advice& advice) {
    return whatToChange(advice, keyOf);
}

std::string_view stageWords(Stage stage) {
    static constexpr const char* kWords[] = {
        "The send",
        "Looking up the server's name",
        "Connecting to the server",
        "The TLS handshake",
        "The certificate check",
        "The server's greeting",
        "The introduction (EHLO)",
        "The turn to TLS (STARTTLS)",
        "The login",
        "Naming the sender (MAIL FROM)",
        "Naming the recipients (RCPT TO)",
        "Sending the message (DATA)",
        "The acceptance of the message",
        "Preparing the message",
        "Something on this machine",
    };
    return kWords[static_cast<size_t>(stage)];
}

std::string_view repeatWords(Repeat repeat) {
    static constexpr const char* kWords[] = {
        "Nobody has the message: sending it again is safe.",
        "Refused for now: send it again later.",
        "Refused for good: sending it again is useless before something has changed.",
        "The server may have the message: sending it again may deliver it twice.",
    };
    return kWords[static_cast<size_t>(repeat)];
}

std::string oneSentence(const Finding& finding) {
    std::string out;
    if (!finding) return out;
    out.append(stageWords(finding.stage)).append(" failed: ");
    addShown(finding.words, out);
    out.append(out.ends_with('.') ? " " : ". ");
    addChange(adviceOn(finding).change, keyOf, out);
    const std::string_view repeat = repeatWords(finding.repeat);
    if (out.find(repeat) == std::string::npos) out.append(" ").append(repeat);
    return out;
}

}  // namespace tv::advice
