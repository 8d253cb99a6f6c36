#include "net/x509/X509Name.h"

namespace tv::x509 {
namespace {

// Object identifiers 2.5.4.n have the content 55 04 n.
constexpr uint8_t kCommonName = 3;

struct AttributeLabel {
    uint8_t number;
    const char* label;
};

constexpr AttributeLabel kLabels[] = {{kCommonName, "CN"}, {6, "C"},  {7, "L"},
                                      {8, "ST"},           {10, "O"}, {11, "OU"}};

constexpr size_t kMaxAttributes = 64;

// Calls visit(number of 2.5.4.n or 0, value) for each attribute.
template <class Visit>
void walkName(Bytes name, Visit visit) {
    DerReader sets = DerReader(name).sequence();
    for (size_t i = 0; i < kMaxAttributes && sets.ok() && !sets.atEnd(); ++i) {
        DerReader set = sets.into(der::kSet);
        while (set.ok() && !set.atEnd()) {
            DerReader attribute = set.sequence();
            const Bytes oid = attribute.content(der::kOid);
            const DerItem value = attribute.any();
            if (!attribute.ok()) return;
            const bool known = oid.size() == 3 && oid[0] == 0x55 && oid[1] == 0x04;
            visit(known ? oid[2] : uint8_t{0}, value);
        }
    }
}

std::string shown(const DerItem& value) {
    std::string text;
    for (const uint8_t byte : value.content) {
        if (value.tag == der::kBmpString && byte == 0) continue;
        text += byte >= 0x20 && byte != 0x7F ? static_cast<char>(byte) : '?';
    }
    return text;
}

}  // namespace

std::string nameText(Bytes name) {
    std::string text;
    walkName(name, [&](uint8_t number, const DerItem& value) {
        const char* label = "OID";
        for (const AttributeLabel& row : kLabels) {
            if (row.number == number) label = row.label;
        }
        if (!text.empty()) text += ", ";
        text += std::string(label) + "=" + shown(value);
    });
    return text;
}

Bytes commonName(Bytes name) {
    Bytes found;
    walkName(name, [&](uint8_t number, const DerItem& value) {
        if (number == kCommonName) found = value.content;
    });
    return found;
}

}  // namespace tv::x509
