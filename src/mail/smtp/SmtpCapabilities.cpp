// Reading EHLO lines: one table of extensions, one of login mechanisms, one of the methods that a
// host may have configured.
#include "mail/smtp/SmtpCapabilities.h"

#include <algorithm>
#include <charconv>

#include "base/Ascii.h"

namespace tv {

bool AuthMechanisms::any() const {
    return *this != AuthMechanisms();
}

namespace smtp {
namespace {

struct Extension {
    std::string_view keyword;
    bool SmtpCapabilities::*flag;
};

constexpr Extension kExtensions[] = {
    {"STARTTLS", &SmtpCapabilities::hasStartTls},
    {"PIPELINING", &SmtpCapabilities::hasPipelining},
    {"SMTPUTF8", &SmtpCapabilities::hasSmtpUtf8},
    {"DSN", &SmtpCapabilities::hasDsn},
};

struct Mechanism {
    std::string_view mark;
    bool AuthMechanisms::*flag;
};

// Searched for anywhere in an AUTH line, in any case of letters (RFC 5321 section 2.4, RFC 4422
// section 3.1 asks for capitals, and not all servers listen). Old ones write "AUTH=LOGIN".
constexpr Mechanism kMechanisms[] = {
    {" LOGIN", &AuthMechanisms::login},
    {"=LOGIN", &AuthMechanisms::login},
    {" NTLM", &AuthMechanisms::ntlm},
    {" MSN", &AuthMechanisms::msn},
    {" GSSAPI", &AuthMechanisms::gssapi},
    {" ANONYMOUS", &AuthMechanisms::anonymous},
    {" PLAIN", &AuthMechanisms::plain},
    {" CRAM-MD5", &AuthMechanisms::cramMd5},
    {" DIGEST-MD5", &AuthMechanisms::digestMd5},
    {" XOAUTH2", &AuthMechanisms::xoauth2},
    {" KERBEROS_V4", &AuthMechanisms::kerberosV4},
};

void addAuthLine(std::string_view line, AuthMechanisms& found) {
    for (const Mechanism& mechanism : kMechanisms) {
        if (findIgnoreCase(line, mechanism.mark) != std::string_view::npos) {
            found.*mechanism.flag = true;
        }
    }
}

constexpr size_t kMaxAuthNames = 20;  // of unknown ones, for a hint: twice what servers offer

// RFC 4422 section 3.1: at most 20 letters, digits, hyphens and underscores.
bool isMechanismName(std::string_view word) {
    return !word.empty() && word.size() <= 20 && std::all_of(word.begin(), word.end(), [](char c) {
        return isAsciiAlnum(c) || c == '-' || c == '_';
    });
}

void addAuthNames(std::string_view words, std::vector<std::string>& names) {
    while (!words.empty()) {
        const size_t end = std::min(words.find(' '), words.size());
        const std::string_view word = words.substr(0, end);
        const bool isKnown = std::any_of(names.begin(), names.end(), [word](const auto& name) {
            return equalsIgnoreCase(name, word);
        });
        if (isMechanismName(word) && !isKnown && names.size() < kMaxAuthNames) {
            names.emplace_back(word);
        }
        words.remove_prefix(std::min(end + 1, words.size()));
    }
}

// "SIZE" alone and 0 set no limit (RFC 1870 section 4), and what is no number says nothing.
uint64_t limitOf(std::string_view digits) {
    uint64_t size = 0;
    const char* const end = digits.data() + digits.size();
    const auto result = std::from_chars(digits.data(), end, size);
    return result.ec == std::errc() && result.ptr == end ? size : 0;
}

// RFC 9422 section 3: names and numbers, "RCPTMAX=20 MAILMAX=5".
void addLimits(std::string_view words, SmtpCapabilities& found) {
    constexpr std::pair<std::string_view, uint64_t SmtpCapabilities::*> kKnown[] = {
        {"RCPTMAX=", &SmtpCapabilities::recipientLimit},
        {"MAILMAX=", &SmtpCapabilities::transactionLimit}};
    while (!words.empty()) {
        const size_t end = std::min(words.find(' '), words.size());
        const std::string_view word = words.substr(0, end);
        for (const auto& [name, limit] : kKnown) {
            if (startsWithIgnoreCase(word, name)) found.*limit = limitOf(word.substr(name.size()));
        }
        words.remove_prefix(std::min(end + 1, words.size()));
    }
}

void addLine(std::string_view text, SmtpCapabilities& found) {
    if (equalsIgnoreCase(text, "AUTH")) {
        found.authWithoutMechanisms = true;
        return;
    }
    if (startsWithIgnoreCase(text, "AUTH ") || startsWithIgnoreCase(text, "AUTH=")) {
        addAuthLine(text, found.auth);
        addAuthNames(text.substr(std::string_view("AUTH ").size()), found.authNames);
        return;
    }
    if (equalsIgnoreCase(text, "SIZE") || startsWithIgnoreCase(text, "SIZE ")) {
        found.sizeLimit = limitOf(trimmed(text.substr(4)));
        return;
    }
    if (startsWithIgnoreCase(text, "LIMITS ")) {
        addLimits(text.substr(std::string_view("LIMITS ").size()), found);
        return;
    }
    for (const Extension& extension : kExtensions) {
        if (startsWithIgnoreCase(text, extension.keyword)) {
            found.*extension.flag = true;
            return;
        }
    }
}

}  // namespace

std::vector<std::string_view> addEhloReply(const SmtpResponse& reply, SmtpCapabilities& found) {
    std::vector<std::string_view> tooShort;
    for (const std::string& line : reply.lines) {
        const std::string_view text = trimmed(line);
        if (text.size() < 3) {
            tooShort.push_back(text);
        } else if (text.size() > 4) {
            addLine(text.substr(4), found);
        }
    }
    return tooShort;
}

AuthMechanisms restrictedTo(std::string_view method, const AuthMechanisms& announced) {
    static constexpr struct {
        std::string_view method;
        bool AuthMechanisms::*flag;
    } kMethods[] = {
        {"LOGIN", &AuthMechanisms::login},      {"PLAIN", &AuthMechanisms::plain},
        {"CRAM-MD5", &AuthMechanisms::cramMd5}, {"NTLM", &AuthMechanisms::ntlm},
        {"MSN", &AuthMechanisms::msn},          {"OAUTH2", &AuthMechanisms::xoauth2},
        {"XOAUTH2", &AuthMechanisms::xoauth2},
    };
    AuthMechanisms only;
    if (equalsIgnoreCase(method, "NONE")) return only;
    for (const auto& row : kMethods) {
        if (!equalsIgnoreCase(method, row.method)) continue;
        only.*row.flag = true;
        return only;
    }
    return announced;
}

}  // namespace smtp

}  // namespace tv
