// Line by line: sections, keys, values by their kind; then what only the whole can show.
#include "settings/SettingsParser.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <utility>

#include "base/Ascii.h"
#include "base/Base64.h"
#include "base/CodePage.h"
#include "base/Hex.h"
#include "base/NameServer.h"
#include "platform/IpAddress.h"
#include "platform/SysProtect.h"
#include "platform/SysWipe.h"
#include "settings/SettingsKeys.h"

namespace tv::settings {
namespace {

std::string quoted(std::string_view text) {
    // A line that is no line of a settings file can be long; its beginning tells enough.
    constexpr size_t kShown = 60;
    std::string shown(text.substr(0, kShown));
    for (char& c : shown) {
        if (static_cast<unsigned char>(c) < ' ') c = ' ';
    }
    return '"' + shown + (text.size() > kShown ? "...\"" : "\"");
}

std::string inBrackets(std::string_view section) {
    return '[' + std::string(section) + ']';
}

// A password may stand behind any key of the login, by mistake: no value of it is told.
bool isHidden(const Key& key) {
    return isSecret(key.form.kind) || key.section == "login";
}

// "[server] host", or the name alone of what stands before any section.
std::string fullName(const Key& key) {
    return (key.section.empty() ? "" : inBrackets(key.section) + ' ') + std::string(key.name);
}

// How many characters stand between two names (Levenshtein).
size_t distance(std::string_view a, std::string_view b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t i = 0; i <= b.size(); ++i) {
        row[i] = i;
    }
    for (size_t i = 0; i < a.size(); ++i) {
        size_t corner = i;
        row[0] = i + 1;
        for (size_t j = 0; j < b.size(); ++j) {
            const bool same = asciiLower(a[i]) == asciiLower(b[j]);
            const size_t swapped = corner + (same ? 0 : 1);
            corner = row[j + 1];
            row[j + 1] = std::min({swapped, corner + 1, row[j] + 1});
        }
    }
    return row[b.size()];
}

// "; perhaps ... is meant" where a key comes near.
std::string nearest(std::string_view section, std::string_view name) {
    // Two letters, or a third of them: more is another word.
    constexpr size_t kLongest = 60;
    if (name.size() > kLongest) return {};
    size_t best = std::max<size_t>(3, std::min<size_t>(name.size(), 30) / 3 + 1);
    const Key* found = nullptr;
    for (const Key& key : keys()) {
        // The right name in the wrong section comes before a wrong one.
        const size_t far =
            distance(key.name, name) + (equalsIgnoreCase(key.section, section) ? 0 : 1);
        if (far >= best) continue;
        best = far;
        found = &key;
    }
    if (!found) return {};
    const std::string place =
        found->section.empty() ? " before any section" : " of " + inBrackets(found->section);
    return "; perhaps " + quoted(found->name) + place + " is meant";
}

bool readWhole(std::string_view digits, int64_t& out) {
    const char* end = digits.data() + digits.size();
    const auto result = std::from_chars(digits.data(), end, out);
    return result.ec == std::errc() && result.ptr == end && out >= 0;
}

// A whole number with one of the units behind it, in the smallest of them.
using Units = std::initializer_list<std::pair<std::string_view, int64_t>>;
bool readWithUnit(std::string_view text, const Units& units, int64_t& out) {
    for (const auto& [unit, factor] : units) {
        if (text.size() <= unit.size() ||
            !equalsIgnoreCase(text.substr(text.size() - unit.size()), unit)) {
            continue;
        }
        text.remove_suffix(unit.size());
        constexpr int64_t kMost = 1000000000;  // far from overflowing with any unit
        if (!readWhole(trimmed(text), out) || out > kMost) return false;
        out *= factor;
        return true;
    }
    return false;
}

bool readDuration(std::string_view text, int64_t& ms) {
    return readWithUnit(text, {{"ms", 1}, {"min", 60000}, {"s", 1000}, {"h", 3600000}}, ms);
}

bool readSize(std::string_view text, int64_t& bytes) {
    return readWithUnit(text, {{"KB", 1024}, {"MB", 1024 * 1024}}, bytes);
}

// The hash as its 32 bytes; false where it is none.
bool readPin(std::string_view written, std::string& bytes) {
    constexpr std::string_view kFront = "sha256//";
    constexpr size_t kSize = 32;
    const auto read = written.starts_with(kFront)
                          ? base64Decode(written.substr(kFront.size()), kSize)
                          : hexDecode(written);
    if (!read || read->size() != kSize) return false;
    bytes.assign(read->begin(), read->end());
    return true;
}

// One "@" with something on both sides, and nothing that cannot stand in an envelope.
bool isMailbox(std::string_view text) {
    const size_t at = text.rfind('@');
    return at != std::string_view::npos && at > 0 && at + 1 < text.size() && text.find('@') == at &&
           text.find_first_of(" \t<>,;\"") == std::string_view::npos;
}

bool isNamedMailbox(std::string_view text) {
    const size_t open = text.rfind('<');
    if (open == std::string_view::npos) return isMailbox(text);
    return text.back() == '>' && isMailbox(text.substr(open + 1, text.size() - open - 2)) &&
           text.find_first_of("<>") == open;
}

// What this library writes itself, or must not write, is no further field. Names: RFC 5322
// section 2.2.
bool isFurtherField(std::string_view text) {
    constexpr std::string_view kOwn[] = {"From",    "To",       "Cc",          "Bcc",
                                         "Subject", "Date",     "Message-ID",  "MIME-Version",
                                         "Sender",  "Reply-To", "Return-Path", "Received"};
    const std::string_view name = text.substr(0, text.find(':'));
    if (name.empty() || name.size() + 1 >= text.size()) return false;
    if (std::ranges::any_of(name, [](char c) { return c <= ' ' || c > '~'; })) return false;
    if (startsWithIgnoreCase(name, "Content-") || trimmed(text.substr(name.size() + 1)).empty()) {
        return false;
    }
    return std::ranges::none_of(kOwn, [&](auto own) { return equalsIgnoreCase(own, name); });
}

// The place of a word among those between commas.
bool findChoice(std::string_view choices, std::string_view word, int64_t& place) {
    for (place = 0; !choices.empty(); ++place) {
        const size_t end = std::min(choices.find(", "), choices.size());
        if (equalsIgnoreCase(choices.substr(0, end), word)) return true;
        choices.remove_prefix(std::min(end + 2, choices.size()));
    }
    return false;
}

// One of several between commas.
bool readWord(const Form& form, Value& word) {
    switch (form.kind) {
        case Kind::KeyPins:
            return readPin(std::string(word.text), word.text);
        case Kind::NameServers:
            return parseNameServer(word.text).has_value();
        case Kind::Mailboxes:
            return isMailbox(word.text);
        default:
            return findChoice(form.choices, word.text, word.number);
    }
}

// UTF-8 without a mark in front; false where the bytes are in none of the forms.
bool decode(std::string_view bytes, uint32_t ansiCodePage, std::string& utf8) {
    const bool little = bytes.starts_with("\xFF\xFE");
    if (little || bytes.starts_with("\xFE\xFF")) {
        utf8 = codePageToUtf8(little ? kCodePageUtf16Le : kCodePageUtf16Be, bytes.substr(2));
        constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // for half a character
        return bytes.size() % 2 == 0 && utf8.find(kReplacement) == std::string::npos;
    }
    if (bytes.starts_with("\xEF\xBB\xBF")) bytes.remove_prefix(3);
    utf8 = isValidUtf8(bytes) ? std::string(bytes) : codePageToUtf8(ansiCodePage, bytes);
    return true;
}

// A value that is one word, number or address; false where it has not that form.
bool readOne(const Form& form, Value& value) {
    const auto isWithin = [&] {
        return value.number >= form.lowest && value.number <= form.highest;
    };
    switch (form.kind) {
        case Kind::Host:
            return value.text.find(' ') == std::string::npos;
        case Kind::Number:
            return readWhole(value.text, value.number) && isWithin();
        case Kind::Size:
            return readSize(value.text, value.number) && isWithin();
        case Kind::Duration:
            return readDuration(value.text, value.number) && isWithin();
        case Kind::YesNo:
            return findChoice("no, yes", value.text, value.number);
        case Kind::Choice:
            return findChoice(form.choices, value.text, value.number);
        case Kind::Mailbox:
            return isMailbox(value.text);
        case Kind::NamedMailbox:
            return isNamedMailbox(value.text);
        case Kind::Field:
            return isFurtherField(value.text);
        case Kind::Address:
            return plat::parseIp(value.text).has_value();
        default:  // Text
            return true;
    }
}

constexpr std::string_view kProtected = "dpapi:";

// Puts what "dpapi:..." protects in its place. Returns what is wrong, or nothing.
std::string revealSecret(std::string& text) {
    constexpr size_t kMostBlob = 65536;
    const auto blob = base64Decode(std::string_view(text).substr(kProtected.size()), kMostBlob);
    if (!blob) return " holds no base64 behind dpapi:";
    std::string secret;
    const std::string_view bytes(reinterpret_cast<const char*>(blob->data()), blob->size());
    const bool good = plat::unprotectOfMachine(bytes, secret);
    if (good) text.assign(secret);
    plat::wipe(secret.data(), secret.size());
    return good ? "" : " was protected on another machine, or this system has no DPAPI";
}

bool isOfOtherFamily(const Settings& settings) {
    const auto address = plat::parseIp(settings.localAddress.value_or(""));
    const Family family = settings.family.value_or(Family::Any);
    return address && family != Family::Any && address->isIpv4() != (family == Family::Ipv4);
}

class Parser {
public:
    Parser(const std::string& file, const ReadFile& readFile, Settings& out)
        : file_(file), readFile_(readFile), out_(out) {}

    Failure parse(std::string_view text);

private:
    // Each returns what is wrong, as a clause, or nothing.
    std::string takeLine(std::string_view line);
    std::string takeSection(std::string_view line);
    std::string takeKey(std::string_view line);
    std::string takeValue(const Key& key, std::string_view written);
    std::string takeWords(const Key& key, std::string_view written);
    std::string takeFile(const Key& key, Value& value);
    void addProfile();
    std::string judgeWhole();
    std::string judgeSecrets();

    // The line of a key that the file has; 0 where it has none. A fault that only the whole shows
    // is told at it.
    size_t lineOf(std::string_view section, std::string_view name) {
        const auto found = seen_.find(findKey(section, name));
        return found == seen_.end() ? 0 : found->second;
    }
    std::string at(size_t line, std::string why) {
        line_ = line;
        return why;
    }

    const std::string& file_;
    const ReadFile& readFile_;
    Settings& out_;
    size_t line_ = 0;
    std::string section_;
    std::map<const Key*, size_t> seen_;  // and its line
};

Failure Parser::parse(std::string_view text) {
    std::string wrong;
    while (wrong.empty() && !text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        ++line_;
        wrong = takeLine(trimmed(text.substr(0, end)));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    if (wrong.empty()) wrong = judgeWhole();
    if (wrong.empty()) return {};
    return Failure(Cause::SettingsUnusable, "The settings file " + file_ +
                                                " cannot be used: line " + std::to_string(line_) +
                                                ": " + wrong + ".");
}

std::string Parser::takeLine(std::string_view line) {
    if (line.find('\0') != std::string_view::npos) return "there is a NUL character in it";
    if (line.empty() || line.front() == ';' || line.front() == '#') return {};
    return line.front() == '[' ? takeSection(line) : takeKey(line);
}

std::string Parser::takeSection(std::string_view line) {
    if (line.back() != ']') return quoted(line) + " has no \"]\" at its end";
    section_ = trimmed(line.substr(1, line.size() - 2));
    if (isSection(section_)) return {};
    std::string known;
    for (const Key& key : keys()) {
        if (isSection(key.section) && known.find(inBrackets(key.section)) == std::string::npos) {
            known += (known.empty() ? "" : ", ") + inBrackets(key.section);
        }
    }
    return inBrackets(section_) + " is no section; there are " + known;
}

std::string Parser::takeKey(std::string_view line) {
    const size_t equals = line.find('=');
    // What stands there is not shown: it may be a password in the wrong place.
    if (equals == std::string_view::npos) return "there is no \"=\" in it";
    const std::string_view name = trimmed(line.substr(0, equals));
    const std::string_view written = trimmed(line.substr(equals + 1));
    const Key* key = findKey(section_, name);
    if (!key) {
        const std::string where = section_.empty() ? "is no key before any section"
                                                   : "is no key of " + inBrackets(section_);
        return quoted(name) + ' ' + where + nearest(section_, name);
    }
    const size_t before = isList(key->form.kind) ? 0 : lineOf(section_, name);
    if (before != 0) {
        return quoted(key->name) + " stands in line " + std::to_string(before) + ", too";
    }
    seen_[key] = line_;
    std::string wrong = takeValue(*key, written);
    if (!wrong.empty()) return wrong;
    out_.inForce.push_back(fullName(*key) + " = " +
                           (isSecret(key->form.kind) ? "***" : std::string(written)));
    return {};
}

std::string Parser::takeValue(const Key& key, std::string_view written) {
    const std::string name = quoted(key.name);
    const std::string wanted = name + " must be " + mayBe(key.form);
    Value value;
    value.text = written;
    if (written.starts_with('"')) {
        if (written.size() < 2 || written.back() != '"') return name + " has no quote at its end";
        std::string_view inner = written.substr(1, written.size() - 2);
        if (replaceAll(inner, "\"\"", "").find('"') != std::string::npos) {
            return "a quote inside the quotes of " + name + " must be doubled";
        }
        value.text = replaceAll(inner, "\"\"", "\"");
    }
    const std::string instead = isHidden(key) ? "" : ", not " + quoted(value.text);
    if (value.text.empty()) return wanted + "; nothing stands there";
    for (const char c : value.text) {
        if (static_cast<unsigned char>(c) < ' ') return name + " holds a control character";
    }
    switch (key.form.kind) {
        case Kind::Secret:
            if (!value.text.starts_with(kProtected)) {
                out_.plainSecrets.push_back(file_);
            } else if (const std::string wrong = revealSecret(value.text); !wrong.empty()) {
                return name + wrong;
            }
            break;
        case Kind::Choices:
        case Kind::KeyPins:
        case Kind::NameServers:
        case Kind::Mailboxes:
            return takeWords(key, value.text);
        case Kind::File:
        case Kind::Target:
        case Kind::SecretLine:
        case Kind::SecretFile:
            if (std::string wrong = takeFile(key, value); !wrong.empty()) return wrong;
            break;
        default:
            if (!readOne(key.form, value)) return wanted + instead;
    }
    key.store(out_, value);
    return {};
}

std::string Parser::takeWords(const Key& key, std::string_view written) {
    while (!written.empty()) {
        const size_t end = std::min(written.find(','), written.size());
        Value word;
        word.text = trimmed(written.substr(0, end));
        const std::string shown = word.text;
        const bool oneMore = key.form.kind == Kind::NameServers &&
                             out_.servers.size() >= static_cast<size_t>(key.form.highest);
        if (oneMore || !readWord(key.form, word)) {
            return quoted(key.name) + " must be " + mayBe(key.form) +
                   (isHidden(key) ? "" : (oneMore ? ", not one more, " : ", not ") + quoted(shown));
        }
        key.store(out_, word);
        written.remove_prefix(std::min(end + 1, written.size()));
    }
    return {};
}

std::string Parser::takeFile(const Key& key, Value& value) {
    if (findChoice(key.form.choices, value.text, value.number)) return {};
    const std::string path = besides(file_, value.text);
    value.text = path;
    if (key.form.kind == Kind::Target) return {};
    std::string bytes;
    const std::string why = readFile_(path, isSecret(key.form.kind), bytes);
    const std::string shown = isHidden(key) ? "" : ", " + path + ",";
    if (!why.empty()) return "the file of " + quoted(key.name) + shown + ' ' + why;
    if (key.form.kind == Kind::File) return {};
    out_.plainSecrets.push_back(path);
    value.text = bytes;
    plat::wipe(bytes.data(), bytes.size());
    if (value.text.starts_with("\xEF\xBB\xBF")) value.text.erase(0, 3);
    if (key.form.kind == Kind::SecretLine) {
        value.text.resize(std::min(value.text.find_first_of("\r\n"), value.text.size()));
    }
    const bool usable = !value.text.empty() && value.text.find('\0') == std::string::npos;
    if (!usable) return "the file of " + quoted(key.name) + shown + " holds no text";
    return {};
}

// What the file itself says comes first.
void Parser::addProfile() {
    if (out_.profile != Profile::Modern) return;
    for (const auto& [section, name, value] : modernProfile()) {
        const Key* key = findKey(section, name);
        if (seen_.contains(key)) continue;
        takeValue(*key, value);
        out_.inForce.push_back(fullName(*key) + " = " + std::string(value) + " (profile)");
    }
    out_.cramMd5InClear = true;
}

std::string Parser::judgeWhole() {
    addProfile();
    for (const std::string_view name : {"roots", "roots-also", "pin"}) {
        const size_t line = lineOf("certificate", name);
        if (line != 0 && !out_.verify.value_or(true)) {
            return at(line, quoted(name) + " stands beside verify = no");
        }
    }
    if (isOfOtherFamily(out_)) {
        return at(lineOf("server", "local-address"), "\"local-address\" is none of \"family\"");
    }
    if (out_.roots || out_.rootsAlso) out_.verify = true;
    if (out_.lowest.value_or(TlsVersion::Tls10) > out_.highest.value_or(TlsVersion::Tls13)) {
        return at(lineOf("tls", "lowest"), "\"lowest\" is newer than \"highest\"");
    }
    if (out_.channelBinding == ChannelBinding::Required && out_.ntlm == 1) {
        return at(lineOf("login", "ntlm"), "\"ntlm\" = 1 stands beside channel-binding = required");
    }
    return judgeSecrets();
}

// A secret is for one user at one server, which no one but this file may name.
std::string Parser::judgeSecrets() {
    const size_t password = lineOf("login", "password");
    const size_t passwordFile = lineOf("login", "password-file");
    const size_t oauth2 = lineOf("login", "oauth2");
    if (password != 0 && passwordFile != 0) {
        return at(passwordFile, "\"password-file\" stands beside \"password\"");
    }
    const size_t secret = std::max({password, passwordFile, oauth2});
    if (secret == 0) return {};
    if (!out_.host || !out_.user) {
        return at(secret,
                  "a secret needs \"host\" of [server] and \"user\" of [login] in this file");
    }
    if (!out_.onlyEncrypted) out_.onlyEncrypted = true;
    return {};
}

}  // namespace

std::string besides(const std::string& file, std::string_view path) {
    const bool isAbsolute =
        path.starts_with('/') || path.starts_with('\\') || (path.size() > 1 && path[1] == ':');
    if (isAbsolute) return std::string(path);
    return file.substr(0, file.find_last_of("/\\") + 1) + std::string(path);
}

Failure parseSettings(std::string_view bytes, uint32_t ansiCodePage, const std::string& file,
                      const ReadFile& readFile, Settings& out) {
    std::string text;
    if (!decode(bytes, ansiCodePage, text)) {
        return Failure(Cause::SettingsUnusable,
                       "The settings file " + file + " cannot be used: it is no text.");
    }
    Settings read;
    read.file = file;
    Failure failure = Parser(file, readFile, read).parse(text);
    plat::wipe(text.data(), text.size());
    if (failure) return failure;
    out = std::move(read);
    return {};
}

}  // namespace tv::settings
