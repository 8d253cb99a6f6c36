// The names are those of HTML 4, with the letters of Central Europe and a few more of HTML 5.
#include "mime/HtmlEntities.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

#include "base/Ascii.h"
#include "base/CodePage.h"

namespace tv {
namespace {

struct Entity {
    std::string_view name;
    uint16_t code;
};

// In the order of bytes.
constexpr Entity kEntities[] = {
    {"AElig", 0xC6},     {"AMP", 0x26},       {"Aacute", 0xC1},   {"Abreve", 0x102},
    {"Acirc", 0xC2},     {"Agrave", 0xC0},    {"Alpha", 0x391},   {"Amacr", 0x100},
    {"Aogon", 0x104},    {"Aring", 0xC5},     {"Atilde", 0xC3},   {"Auml", 0xC4},
    {"Beta", 0x392},     {"COPY", 0xA9},      {"Cacute", 0x106},  {"Ccaron", 0x10C},
    {"Ccedil", 0xC7},    {"Chi", 0x3A7},      {"Dagger", 0x2021}, {"Dcaron", 0x10E},
    {"Delta", 0x394},    {"Dstrok", 0x110},   {"ETH", 0xD0},      {"Eacute", 0xC9},
    {"Ecaron", 0x11A},   {"Ecirc", 0xCA},     {"Egrave", 0xC8},   {"Emacr", 0x112},
    {"Eogon", 0x118},    {"Epsilon", 0x395},  {"Eta", 0x397},     {"Euml", 0xCB},
    {"GT", 0x3E},        {"Gamma", 0x393},    {"Gbreve", 0x11E},  {"Iacute", 0xCD},
    {"Icirc", 0xCE},     {"Idot", 0x130},     {"Igrave", 0xCC},   {"Imacr", 0x12A},
    {"Iota", 0x399},     {"Iuml", 0xCF},      {"Kappa", 0x39A},   {"LT", 0x3C},
    {"Lacute", 0x139},   {"Lambda", 0x39B},   {"Lcaron", 0x13D},  {"Lstrok", 0x141},
    {"Mu", 0x39C},       {"Nacute", 0x143},   {"Ncaron", 0x147},  {"NewLine", 0xA},
    {"Ntilde", 0xD1},    {"Nu", 0x39D},       {"OElig", 0x152},   {"Oacute", 0xD3},
    {"Ocirc", 0xD4},     {"Odblac", 0x150},   {"Ograve", 0xD2},   {"Omega", 0x3A9},
    {"Omicron", 0x39F},  {"Oslash", 0xD8},    {"Otilde", 0xD5},   {"Ouml", 0xD6},
    {"Phi", 0x3A6},      {"Pi", 0x3A0},       {"Prime", 0x2033},  {"Psi", 0x3A8},
    {"QUOT", 0x22},      {"REG", 0xAE},       {"Racute", 0x154},  {"Rcaron", 0x158},
    {"Rho", 0x3A1},      {"Sacute", 0x15A},   {"Scaron", 0x160},  {"Scedil", 0x15E},
    {"Sigma", 0x3A3},    {"THORN", 0xDE},     {"Tab", 0x9},       {"Tau", 0x3A4},
    {"Tcaron", 0x164},   {"Tcedil", 0x162},   {"Theta", 0x398},   {"Uacute", 0xDA},
    {"Ucirc", 0xDB},     {"Udblac", 0x170},   {"Ugrave", 0xD9},   {"Umacr", 0x16A},
    {"Upsilon", 0x3A5},  {"Uring", 0x16E},    {"Uuml", 0xDC},     {"Xi", 0x39E},
    {"Yacute", 0xDD},    {"Yuml", 0x178},     {"Zacute", 0x179},  {"Zcaron", 0x17D},
    {"Zdot", 0x17B},     {"Zeta", 0x396},     {"aacute", 0xE1},   {"abreve", 0x103},
    {"acirc", 0xE2},     {"acute", 0xB4},     {"aelig", 0xE6},    {"agrave", 0xE0},
    {"alefsym", 0x2135}, {"alpha", 0x3B1},    {"amacr", 0x101},   {"amp", 0x26},
    {"and", 0x2227},     {"ang", 0x2220},     {"aogon", 0x105},   {"apos", 0x27},
    {"aring", 0xE5},     {"asymp", 0x2248},   {"atilde", 0xE3},   {"auml", 0xE4},
    {"bdquo", 0x201E},   {"beta", 0x3B2},     {"brvbar", 0xA6},   {"bull", 0x2022},
    {"cacute", 0x107},   {"cap", 0x2229},     {"ccaron", 0x10D},  {"ccedil", 0xE7},
    {"cedil", 0xB8},     {"cent", 0xA2},      {"check", 0x2713},  {"chi", 0x3C7},
    {"circ", 0x2C6},     {"clubs", 0x2663},   {"cong", 0x2245},   {"copy", 0xA9},
    {"crarr", 0x21B5},   {"cup", 0x222A},     {"curren", 0xA4},   {"dArr", 0x21D3},
    {"dagger", 0x2020},  {"darr", 0x2193},    {"dcaron", 0x10F},  {"deg", 0xB0},
    {"delta", 0x3B4},    {"diams", 0x2666},   {"divide", 0xF7},   {"dstrok", 0x111},
    {"eacute", 0xE9},    {"ecaron", 0x11B},   {"ecirc", 0xEA},    {"egrave", 0xE8},
    {"emacr", 0x113},    {"empty", 0x2205},   {"emsp", 0x2003},   {"ensp", 0x2002},
    {"eogon", 0x119},    {"epsilon", 0x3B5},  {"equiv", 0x2261},  {"eta", 0x3B7},
    {"eth", 0xF0},       {"euml", 0xEB},      {"euro", 0x20AC},   {"exist", 0x2203},
    {"female", 0x2640},  {"fnof", 0x192},     {"forall", 0x2200}, {"frac12", 0xBD},
    {"frac14", 0xBC},    {"frac34", 0xBE},    {"frasl", 0x2044},  {"gamma", 0x3B3},
    {"gbreve", 0x11F},   {"ge", 0x2265},      {"gt", 0x3E},       {"hArr", 0x21D4},
    {"harr", 0x2194},    {"hearts", 0x2665},  {"hellip", 0x2026}, {"iacute", 0xED},
    {"icirc", 0xEE},     {"iexcl", 0xA1},     {"igrave", 0xEC},   {"imacr", 0x12B},
    {"image", 0x2111},   {"imath", 0x131},    {"infin", 0x221E},  {"int", 0x222B},
    {"iota", 0x3B9},     {"iquest", 0xBF},    {"isin", 0x2208},   {"iuml", 0xEF},
    {"kappa", 0x3BA},    {"lArr", 0x21D0},    {"lacute", 0x13A},  {"lambda", 0x3BB},
    {"lang", 0x2329},    {"laquo", 0xAB},     {"larr", 0x2190},   {"lcaron", 0x13E},
    {"lceil", 0x2308},   {"ldquo", 0x201C},   {"le", 0x2264},     {"lfloor", 0x230A},
    {"lowast", 0x2217},  {"loz", 0x25CA},     {"lrm", 0x200E},    {"lsaquo", 0x2039},
    {"lsquo", 0x2018},   {"lstrok", 0x142},   {"lt", 0x3C},       {"macr", 0xAF},
    {"male", 0x2642},    {"mdash", 0x2014},   {"micro", 0xB5},    {"middot", 0xB7},
    {"minus", 0x2212},   {"mu", 0x3BC},       {"nabla", 0x2207},  {"nacute", 0x144},
    {"nbsp", 0xA0},      {"ncaron", 0x148},   {"ndash", 0x2013},  {"ne", 0x2260},
    {"ni", 0x220B},      {"not", 0xAC},       {"notin", 0x2209},  {"nsub", 0x2284},
    {"ntilde", 0xF1},    {"nu", 0x3BD},       {"numero", 0x2116}, {"oacute", 0xF3},
    {"ocirc", 0xF4},     {"odblac", 0x151},   {"oelig", 0x153},   {"ograve", 0xF2},
    {"oline", 0x203E},   {"omega", 0x3C9},    {"omicron", 0x3BF}, {"oplus", 0x2295},
    {"or", 0x2228},      {"ordf", 0xAA},      {"ordm", 0xBA},     {"oslash", 0xF8},
    {"otilde", 0xF5},    {"otimes", 0x2297},  {"ouml", 0xF6},     {"para", 0xB6},
    {"part", 0x2202},    {"permil", 0x2030},  {"perp", 0x22A5},   {"phi", 0x3C6},
    {"phone", 0x260E},   {"pi", 0x3C0},       {"piv", 0x3D6},     {"plusmn", 0xB1},
    {"pound", 0xA3},     {"prime", 0x2032},   {"prod", 0x220F},   {"prop", 0x221D},
    {"psi", 0x3C8},      {"quot", 0x22},      {"rArr", 0x21D2},   {"racute", 0x155},
    {"radic", 0x221A},   {"rang", 0x232A},    {"raquo", 0xBB},    {"rarr", 0x2192},
    {"rcaron", 0x159},   {"rceil", 0x2309},   {"rdquo", 0x201D},  {"real", 0x211C},
    {"reg", 0xAE},       {"rfloor", 0x230B},  {"rho", 0x3C1},     {"rlm", 0x200F},
    {"rsaquo", 0x203A},  {"rsquo", 0x2019},   {"sacute", 0x15B},  {"sbquo", 0x201A},
    {"scaron", 0x161},   {"scedil", 0x15F},   {"sdot", 0x22C5},   {"sect", 0xA7},
    {"shy", 0xAD},       {"sigma", 0x3C3},    {"sigmaf", 0x3C2},  {"sim", 0x223C},
    {"spades", 0x2660},  {"star", 0x2606},    {"starf", 0x2605},  {"sub", 0x2282},
    {"sube", 0x2286},    {"sum", 0x2211},     {"sup", 0x2283},    {"sup1", 0xB9},
    {"sup2", 0xB2},      {"sup3", 0xB3},      {"supe", 0x2287},   {"szlig", 0xDF},
    {"tau", 0x3C4},      {"tcaron", 0x165},   {"tcedil", 0x163},  {"there4", 0x2234},
    {"theta", 0x3B8},    {"thetasym", 0x3D1}, {"thinsp", 0x2009}, {"thorn", 0xFE},
    {"tilde", 0x2DC},    {"times", 0xD7},     {"trade", 0x2122},  {"uArr", 0x21D1},
    {"uacute", 0xFA},    {"uarr", 0x2191},    {"ucirc", 0xFB},    {"udblac", 0x171},
    {"ugrave", 0xF9},    {"umacr", 0x16B},    {"uml", 0xA8},      {"upsih", 0x3D2},
    {"upsilon", 0x3C5},  {"uring", 0x16F},    {"uuml", 0xFC},     {"weierp", 0x2118},
    {"xi", 0x3BE},       {"yacute", 0xFD},    {"yen", 0xA5},      {"yuml", 0xFF},
    {"zacute", 0x17A},   {"zcaron", 0x17E},   {"zdot", 0x17C},    {"zeta", 0x3B6},
    {"zwj", 0x200D},     {"zwnj", 0x200C}};
static_assert(std::is_sorted(std::begin(kEntities), std::end(kEntities),
                             [](const Entity& a, const Entity& b) { return a.name < b.name; }));
constexpr size_t kLongestName = 8;

// Numbers between 128 and 159 are those of Windows-1252, whatever the document is written in (HTML
// Standard, section 13.2.5.80); 0 for those that are none there either.
constexpr uint16_t kOfWindows[32] = {
    0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0,      0x017D, 0,      0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178,
};

// The oldest names may lack their semicolon, as in "AT&T &amp sons".
bool mayStandAlone(const Entity& entity) {
    return entity.code >= 0xA0 ? entity.code <= 0xFF
                               : entity.code == '&' || entity.code == '<' || entity.code == '>' ||
                                     entity.code == '"';
}

size_t takeNamed(std::string_view text, std::string& out) {
    size_t end = 1;
    while (end < text.size() && end <= kLongestName && isAsciiAlnum(text[end])) {
        ++end;
    }
    const std::string_view name = text.substr(1, end - 1);
    const auto* found =
        std::lower_bound(std::begin(kEntities), std::end(kEntities), name,
                         [](const Entity& entity, std::string_view n) { return entity.name < n; });
    if (found == std::end(kEntities) || found->name != name) return 0;
    const char behind = end < text.size() ? text[end] : ' ';
    if (behind == ';') {
        ++end;
    } else if (!mayStandAlone(*found) || behind == '=' || isAsciiAlnum(behind)) {
        return 0;  // "?a=1&copy=2" is an address
    }
    appendUtf8(found->code, out);
    return end;
}

int digitOf(char c, unsigned base) {
    if (isAsciiDigit(c)) return c - '0';
    const char low = asciiLower(c);
    return base == 16 && low >= 'a' && low <= 'f' ? low - 'a' + 10 : -1;
}

// The character that a number stands for; 0 where it stands for none.
char32_t meantBy(uint32_t number) {
    if (number >= 0x80 && number < 0xA0) return kOfWindows[number - 0x80];
    const bool surrogate = number >= 0xD800 && number < 0xE000;
    return surrogate || number > 0x10FFFF ? 0 : number;
}

size_t takeNumbered(std::string_view text, std::string& out) {
    const bool hex = text.size() > 2 && asciiLower(text[2]) == 'x';
    const unsigned base = hex ? 16 : 10;
    const size_t first = hex ? 3 : 2;
    size_t end = first;
    uint32_t number = 0;
    for (; end < text.size() && digitOf(text[end], base) >= 0; ++end) {
        // No digit makes it valid again: it stays where it is, beyond all characters.
        if (number <= 0x10FFFF) number = number * base + unsigned(digitOf(text[end], base));
    }
    const char32_t code = end == first ? 0 : meantBy(number);
    if (code == 0) return 0;
    if (end < text.size() && text[end] == ';') ++end;
    appendUtf8(code, out);
    return end;
}

}  // namespace

size_t takeHtmlEntity(std::string_view text, std::string& out) {
    if (text.size() < 3 || text[0] != '&') return 0;
    return text[1] == '#' ? takeNumbered(text, out) : takeNamed(text, out);
}

std::string withoutHtmlEntities(std::string_view text) {
    std::string out;
    size_t at;
    while ((at = text.find('&')) != std::string_view::npos) {
        out += text.substr(0, at);
        text.remove_prefix(at);
        const size_t size = takeHtmlEntity(text, out);
        if (size == 0) out += '&';
        text.remove_prefix(std::max<size_t>(size, 1));
    }
    return out += text;
}

}  // namespace tv
