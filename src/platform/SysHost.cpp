// Names of POSIX locales to Windows' numbers of code pages.
#include "platform/SysHost.h"

#include <cstring>

namespace tv::plat {
namespace {

constexpr uint32_t kUtf8 = 65001;  // Windows' number of it

// The charset part of a locale name, lower-cased, without '-', '_' and what follows '@'.
std::string charsetOf(const std::string& locale) {
    const size_t dot = locale.find('.');
    if (dot == std::string::npos) return {};
    std::string charset;
    for (size_t i = dot + 1; i < locale.size() && locale[i] != '@'; ++i) {
        const char c = locale[i];
        if (c == '-' || c == '_') continue;
        charset += c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    }
    return charset;
}

}  // namespace

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
