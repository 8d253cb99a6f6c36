// Code pages by iconv, under the names that it has for Windows' numbers.
#include "platform/SysCodePage.h"

#include <iconv.h>
#include <stdio.h>

namespace tv::plat {
namespace {

std::string charsetOf(uint32_t codePage) {
    switch (codePage) {
        case 20866:
            return "KOI8-R";
        case 21866:
            return "KOI8-U";
        case 51932:
            return "EUC-JP";
        case 51949:
            return "EUC-KR";
        case 54936:
            return "GB18030";
        case 50220:
            return "ISO-2022-JP";
        default:
            break;
    }
    char name[32];
    // 28591 to 28605 are the parts of ISO 8859 in their order.
    if (codePage > 28590 && codePage < 28606) {
        snprintf(name, sizeof name, "ISO-8859-%u", static_cast<unsigned>(codePage - 28590));
    } else {
        snprintf(name, sizeof name, "CP%u", static_cast<unsigned>(codePage));
    }
    return name;
}

bool convert(const char* to, const char* from, std::string_view in, std::string& out) {
    out.clear();
    const iconv_t converter = iconv_open(to, from);
    // NOLINTNEXTLINE(performance-no-int-to-ptr): POSIX tells the failure so.
    if (converter == reinterpret_cast<iconv_t>(-1)) return false;
    // No byte or unit becomes more than four bytes; the rest is for the shifts of ISO-2022-JP.
    out.resize(in.size() * 4 + 16);
    char* source = const_cast<char*>(in.data());  // iconv reads only
    size_t left = in.size();
    char* target = out.data();
    size_t room = out.size();
    const bool done = iconv(converter, &source, &left, &target, &room) == 0 && left == 0 &&
                      iconv(converter, nullptr, nullptr, &target, &room) == 0;
    iconv_close(converter);
    out.resize(out.size() - room);
    return done;
}

constexpr const char* kUtf16 = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? "UTF-16LE" : "UTF-16BE";

}  // namespace

bool systemToUtf16(uint32_t codePage, std::string_view bytes, std::u16string& out) {
    std::string units;
    if (!convert(kUtf16, charsetOf(codePage).c_str(), bytes, units)) return false;
    out.resize(units.size() / 2);
    units.copy(reinterpret_cast<char*>(out.data()), out.size() * 2);
    return true;
}

bool systemFromUtf16(uint32_t codePage, std::u16string_view text, std::string& out) {
    const std::string_view units(reinterpret_cast<const char*>(text.data()), text.size() * 2);
    return convert(charsetOf(codePage).c_str(), kUtf16, units, out);
}

}  // namespace tv::plat
