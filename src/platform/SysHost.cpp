// Which names of this machine are of use to others; names of POSIX locales to Windows' numbers of
// code pages.
#include "platform/SysHost.h"

#include <algorithm>
#include <utility>

namespace tv::plat {
namespace {

constexpr uint32_t kUtf8 = 65001;  // Windows' number of it

// Of ASCII letters.
char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}

// The charset part of a locale name, lower-cased, without '-', '_' and what follows '@'.
std::string charsetOf(const std::string& locale) {
    const size_t dot = locale.find('.');
    if (dot == std::string::npos) return {};
    std::string charset;
    for (size_t i = dot + 1; i < locale.size() && locale[i] != '@'; ++i) {
        const char c = locale[i];
        if (c == '-' || c == '_') continue;
        charset += lower(c);
    }
    return charset;
}

bool isNameByte(char c) {
    return (lower(c) >= 'a' && lower(c) <= 'z') || (c >= '0' && c <= '9') || c == '-';
}

bool isSame(std::string_view a, std::string_view b) {
    return std::ranges::equal(a, b, {}, lower, lower);
}

// What stands up to the next of the stops, taken off the front with it.
std::string_view takeUpTo(std::string_view& text, std::string_view stops) {
    const size_t end = std::min(text.find_first_of(stops), text.size());
    const std::string_view part = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return part;
}

// The first name with a domain in a line of a hosts file that has the host name; else empty.
std::string_view domainNameIn(std::string_view line, std::string_view hostName) {
    line = line.substr(0, line.find('#'));
    constexpr std::string_view kBlanks = " \t\r";
    bool isAddress = true, isItsLine = false;
    std::string_view found;
    while (!line.empty()) {
        const std::string_view word = takeUpTo(line, kBlanks);
        if (word.empty() || std::exchange(isAddress, false)) continue;
        isItsLine |= isSame(word, hostName);
        if (found.empty() && word.find('.') != std::string_view::npos) found = word;
    }
    return isItsLine ? found : std::string_view();
}

}  // namespace

std::string nameInDns(const std::string& name) {
    constexpr size_t kLongest = 253;  // RFC 1035 section 2.3.4
    bool hasDomain = false;
    char before = '.';
    for (const char c : name) {
        if (c == '.' ? before == '.' : !isNameByte(c)) return {};
        hasDomain |= c == '.';
        before = c;
    }
    const std::string_view last = std::string_view(name).substr(name.rfind('.') + 1);
    // RFC 6762 section 3: every network has a .local of its own; the other is what systems are
    // installed with.
    const bool isNone = isSame(last, "local") || isSame(last, "localdomain");
    return hasDomain && !isNone && before != '.' && name.size() <= kLongest ? name : "";
}

std::string nameInDns(const std::string& hostName, std::string_view hostsFile) {
    if (hostName.empty() || hostName.find('.') != std::string::npos) return nameInDns(hostName);
    std::string_view found;
    while (found.empty() && !hostsFile.empty()) {
        found = domainNameIn(takeUpTo(hostsFile, "\n"), hostName);
    }
    return nameInDns(std::string(found));
}

uint32_t codePageOfLocale(const std::string& locale) {
    // The charsets of glibc's locales. What stands in no row is taken for UTF-8.
    static constexpr struct {
        const char* charset;
        uint32_t codePage;
    } kCharsets[] = {
        {"iso88591", 28591}, {"iso88592", 28592},  {"iso88595", 28595},  {"iso88597", 28597},
        {"iso88599", 28599}, {"iso885913", 28603}, {"iso885915", 28605}, {"cp1250", 1250},
        {"cp1251", 1251},    {"cp1252", 1252},     {"cp1253", 1253},     {"cp1254", 1254},
        {"cp1257", 1257},    {"koi8r", 20866},     {"koi8u", 21866},     {"cp437", 437},
        {"cp850", 850},      {"cp852", 852},       {"eucjp", 51932},     {"sjis", 932},
        {"gbk", 936},        {"gb2312", 936},      {"euckr", 949},       {"big5", 950},
    };
    const std::string charset = charsetOf(locale);
    for (const auto& row : kCharsets) {
        if (charset == row.charset) return row.codePage;
    }
    return kUtf8;
}

}  // namespace tv::plat
