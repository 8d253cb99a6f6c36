// Walks the attributes of a name: for its canonical form, its text and single attributes.
#include "net/x509/X509Name.h"

#include <algorithm>
#include <optional>

#include "base/CodePage.h"
#include "base/Punycode.h"

namespace tv::x509 {
namespace {

// Object identifiers 2.5.4.n have the content 55 04 n.
constexpr uint8_t kCommonName = 3;
// 1.2.840.113549.1.9.1 (RFC 5280, 4.1.2.6).
constexpr uint8_t kEmailAddress[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x01};

struct AttributeLabel {
    uint8_t number;
    const char* label;
};

// RFC 5280, appendix A.1; the short names of RFC 4514 section 3.
constexpr AttributeLabel kLabels[] = {{kCommonName, "CN"}, {6, "C"},  {7, "L"},
                                      {8, "ST"},           {10, "O"}, {11, "OU"}};

constexpr size_t kMostText = 400;  // of a name in a log

// Calls visit(object identifier, value) for each attribute.
template <class Visit>
void walkName(Bytes name, Visit visit) {
    DerReader sets = DerReader(name).sequence();
    while (sets.ok() && !sets.atEnd()) {
        DerReader set = sets.into(der::kSet);
        while (set.ok() && !set.atEnd()) {
            DerReader attribute = set.sequence();
            const Bytes oid = attribute.content(der::kOid);
            const DerItem value = attribute.any();
            if (!attribute.ok()) return;
            visit(oid, value);
        }
    }
}

// n of 2.5.4.n, or 0.
uint8_t attributeNumber(Bytes oid) {
    return oid.size() == 3 && oid[0] == 0x55 && oid[1] == 0x04 ? oid[2] : uint8_t{0};
}

std::string shown(const DerItem& value) {
    std::string text;
    for (const uint8_t byte : value.content) {
        if (value.tag == der::kBmpString && byte == 0) continue;
        // No control characters: they could forge lines of the log.
        text += byte >= 0x20 && byte != 0x7F ? static_cast<char>(byte) : '?';
    }
    return text;
}

// The text of a value as UTF-16; nothing where it is no text or malformed. Teletex strings hold
// Latin-1 in practice.
std::optional<std::u16string> textOf(const DerItem& value) {
    const Bytes bytes = value.content;
    switch (value.tag) {
        case der::kUtf8String: {
            const std::string_view utf8(reinterpret_cast<const char*>(bytes.data()), bytes.size());
            if (!isValidUtf8(utf8)) return std::nullopt;
            return utf8ToUtf16(utf8);
        }
        case der::kPrintableString:
        case der::kT61String:
        case der::kIa5String:
            return std::u16string(bytes.begin(), bytes.end());
        case der::kBmpString: {
            if (bytes.size() % 2 != 0) return std::nullopt;
            std::u16string text;
            for (size_t i = 0; i < bytes.size(); i += 2) {
                text += static_cast<char16_t>(bytes[i] << 8 | bytes[i + 1]);
            }
            return text;
        }
        default:
            return std::nullopt;
    }
}

bool isSpace(char16_t c) {
    return c == u' ' || (c >= u'\t' && c <= u'\r') || c == u'\u00A0';
}

// Lower case, one blank for many, none at the ends.
std::u16string folded(std::u16string_view text) {
    std::u16string out;
    for (const char16_t c : text) {
        if (!isSpace(c)) {
            out += static_cast<char16_t>(lowerCodePoint(c));
        } else if (!out.empty() && out.back() != u' ') {
            out += u' ';
        }
    }
    if (!out.empty() && out.back() == u' ') out.pop_back();
    return out;
}

// With its length in front, so that what follows cannot be taken for a part of it.
void appendCounted(std::string& out, std::string_view text) {
    for (int shift = 24; shift >= 0; shift -= 8) {
        out += static_cast<char>(text.size() >> shift);
    }
    out += text;
}

void appendCounted(std::string& out, Bytes bytes) {
    appendCounted(out, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

// False where the content of the SEQUENCE is no type and value.
bool canonicalAttribute(DerReader attribute, std::string& out) {
    const Bytes oid = attribute.content(der::kOid);
    const DerItem value = attribute.any();
    if (!attribute.complete()) return false;
    appendCounted(out, oid);
    const std::optional<std::u16string> text = textOf(value);
    if (!text) {
        appendCounted(out, value.whole);
        return true;
    }
    std::string units(1, '\0');  // no tag of a value
    for (const char16_t unit : folded(*text)) {
        units += static_cast<char>(unit >> 8);
        units += static_cast<char>(unit & 0xFF);
    }
    appendCounted(out, units);
    return true;
}

}  // namespace

bool canonicalName(Bytes name, std::string& out) {
    out.clear();
    DerReader outer(name);
    DerReader sets = outer.sequence();
    while (sets.ok() && !sets.atEnd()) {
        DerReader set = sets.into(der::kSet);
        std::vector<std::string> attributes;
        while (set.ok() && !set.atEnd()) {
            if (!canonicalAttribute(set.sequence(), attributes.emplace_back())) return false;
        }
        if (!set.ok() || attributes.empty()) return false;
        std::sort(attributes.begin(), attributes.end());
        std::string rdn;
        for (const std::string& attribute : attributes) {
            appendCounted(rdn, attribute);
        }
        appendCounted(out, rdn);
    }
    return outer.complete() && sets.complete();
}

std::string nameText(Bytes name) {
    std::string text;
    walkName(name, [&](Bytes oid, const DerItem& value) {
        const char* label = "OID";
        for (const AttributeLabel& row : kLabels) {
            if (row.number == attributeNumber(oid)) label = row.label;
        }
        if (text.size() > kMostText) return;
        if (!text.empty()) text += ", ";
        text += std::string(label) + "=" + shown(value);
    });
    return text.size() > kMostText ? text.substr(0, kMostText) + "..." : text;
}

Bytes commonName(Bytes name) {
    Bytes found;
    walkName(name, [&](Bytes oid, const DerItem& value) {
        if (attributeNumber(oid) == kCommonName) found = value.content;
    });
    return found;
}

std::vector<Bytes> emailAddresses(Bytes name) {
    std::vector<Bytes> found;
    walkName(name, [&](Bytes oid, const DerItem& value) {
        if (sameBytes(oid, kEmailAddress)) found.push_back(value.content);
    });
    return found;
}

}  // namespace tv::x509
