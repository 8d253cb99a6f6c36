// Domain names with other letters than ASCII: lower-casing by a table, then Punycode (RFC 3492)
// label by label.
#include "base/Punycode.h"

#include <algorithm>
#include <cstdint>

#include "base/Ascii.h"
#include "base/CodePage.h"

namespace tv {
namespace {

// RFC 3492 section 5.
constexpr uint32_t kBase = 36;
constexpr uint32_t kTMin = 1;
constexpr uint32_t kTMax = 26;
constexpr uint32_t kSkew = 38;
constexpr uint32_t kDamp = 700;
constexpr uint32_t kInitialBias = 72;
constexpr uint32_t kInitialN = 128;

constexpr size_t kMaxLabel = 63;  // RFC 1035 section 2.3.4

// RFC 3492 section 5: a to z are 0 to 25, the decimal digits 26 to 35.
char digitOf(uint32_t value) {
    return static_cast<char>(value < 26 ? 'a' + value : '0' + (value - 26));
}

// RFC 3492 section 6.1.
uint32_t adapted(uint32_t delta, uint32_t points, bool first) {
    delta = first ? delta / kDamp : delta / 2;
    delta += delta / points;
    uint32_t k = 0;
    for (; delta > (kBase - kTMin) * kTMax / 2; k += kBase) {
        delta /= kBase - kTMin;
    }
    return k + (kBase - kTMin + 1) * delta / (delta + kSkew);
}

// A generalised variable-length integer (RFC 3492 section 3.3).
void appendDelta(uint32_t delta, uint32_t bias, std::string& out) {
    for (uint32_t k = kBase;; k += kBase) {
        const uint32_t t = k <= bias ? kTMin : std::min(k - bias, kTMax);
        if (delta < t) break;
        out += digitOf(t + (delta - t) % (kBase - t));
        delta = (delta - t) / (kBase - t);
    }
    out += digitOf(delta);
}

// Letters first to last, every step-th of them an upper-case one, with the distance to its small
// letter.
struct CaseRange {
    uint16_t first;
    uint16_t last;
    uint16_t step;
    int16_t distance;
};

// The simple lower-case mappings of Unicode for four scripts, ordered. U+0130 (capital I with dot),
// whose small form is two characters, is left out.
constexpr CaseRange kCaseRanges[] = {
    {0x0041, 0x005A, 1, 32}, {0x00C0, 0x00D6, 1, 32},   {0x00D8, 0x00DE, 1, 32},
    {0x0100, 0x012E, 2, 1},  {0x0132, 0x0136, 2, 1},    {0x0139, 0x0147, 2, 1},
    {0x014A, 0x0176, 2, 1},  {0x0178, 0x0178, 1, -121}, {0x0179, 0x017D, 2, 1},
    {0x01A0, 0x01A4, 2, 1},  {0x01AF, 0x01AF, 1, 1},    {0x01CD, 0x01DB, 2, 1},
    {0x01DE, 0x01EE, 2, 1},  {0x01F8, 0x021E, 2, 1},    {0x0222, 0x0232, 2, 1},
    {0x0386, 0x0386, 1, 38}, {0x0388, 0x038A, 1, 37},   {0x038C, 0x038C, 1, 64},
    {0x038E, 0x038F, 1, 63}, {0x0391, 0x03A1, 1, 32},   {0x03A3, 0x03AB, 1, 32},
    {0x0400, 0x040F, 1, 80}, {0x0410, 0x042F, 1, 32},   {0x0460, 0x0480, 2, 1},
    {0x048A, 0x04BE, 2, 1},  {0x04C0, 0x04C0, 1, 15},   {0x04C1, 0x04CD, 2, 1},
    {0x04D0, 0x052E, 2, 1},  {0x0531, 0x0556, 1, 48},   {0x1E00, 0x1E94, 2, 1},
    {0x1EA0, 0x1EFE, 2, 1},
};

std::u32string codePointsOf(std::string_view utf8) {
    const std::u16string units = utf8ToUtf16(utf8);
    std::u32string out;
    for (size_t i = 0; i < units.size(); ++i) {
        char32_t code = units[i];
        // A pair of surrogates (RFC 2781 section 2.2); utf8ToUtf16 gives no single ones.
        if ((code & 0xFC00) == 0xD800 && i + 1 < units.size()) {
            code = 0x10000 + ((code & 0x3FF) << 10 | (units[++i] & 0x3FFu));
        }
        out += code;
    }
    return out;
}

// RFC 3490 section 3.1.
bool isDot(char32_t code) {
    return code == '.' || code == 0x3002 || code == 0xFF0E || code == 0xFF61;
}

bool appendLabel(std::u32string label, std::string& out) {
    bool ascii = true;
    for (char32_t& code : label) {
        code = lowerCodePoint(code);
        ascii = ascii && code < 0x80;
    }
    std::string text;
    if (ascii) {
        text.assign(label.begin(), label.end());
    } else {
        if (!punycodeEncode(label, text)) return false;
        text.insert(0, "xn--");  // RFC 3490 section 5
    }
    out += text;
    return !text.empty() && text.size() <= kMaxLabel;
}

}  // namespace

bool punycodeEncode(std::u32string_view label, std::string& out) {
    out.clear();
    for (const char32_t code : label) {
        if (code < kInitialN) out += static_cast<char>(code);
    }
    const uint32_t basic = static_cast<uint32_t>(out.size());
    if (basic != 0) out += '-';
    uint32_t n = kInitialN;
    uint32_t delta = 0;
    uint32_t bias = kInitialBias;
    for (uint32_t handled = basic; handled < label.size();) {
        uint32_t next = UINT32_MAX;
        for (const char32_t code : label) {
            if (code >= n) next = std::min<uint32_t>(next, code);
        }
        if (next - n > (UINT32_MAX - delta) / (handled + 1)) return false;
        delta += (next - n) * (handled + 1);
        n = next;
        for (const char32_t code : label) {
            if (code < n && ++delta == 0) return false;
            if (code != n) continue;
            appendDelta(delta, bias, out);
            bias = adapted(delta, handled + 1, handled == basic);
            delta = 0;
            ++handled;
        }
        ++delta;
        ++n;
    }
    return true;
}

bool domainToAscii(std::string_view utf8, std::string& out) {
    out.clear();
    if (isAscii(utf8)) {
        out = utf8;
        return true;
    }
    // Longer than any name can be: punycode takes quadratic time.
    constexpr size_t kMaxDomain = 1024;
    if (utf8.size() > kMaxDomain || !isValidUtf8(utf8)) return false;
    const std::u32string domain = codePointsOf(utf8);
    size_t from = 0;
    while (from < domain.size()) {
        size_t end = from;
        while (end < domain.size() && !isDot(domain[end])) {
            ++end;
        }
        if (!appendLabel(domain.substr(from, end - from), out)) return false;
        if (end < domain.size()) out += '.';
        from = end + 1;
    }
    return true;
}

char32_t lowerCodePoint(char32_t code) {
    for (const CaseRange& range : kCaseRanges) {
        if (code < range.first) break;
        if (code <= range.last && (code - range.first) % range.step == 0) {
            return static_cast<char32_t>(static_cast<int32_t>(code) + range.distance);
        }
    }
    return code;
}

}  // namespace tv
