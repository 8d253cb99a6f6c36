#include "net/x509/X509Extensions.h"

#include <algorithm>

namespace tv::x509 {
namespace {

constexpr size_t kMaxExtensions = 64;
constexpr size_t kMaxNames = 1000;

// The last byte of 2.5.29.n.
enum class Known : uint8_t {
    SubjectKeyId = 14,
    KeyUsage = 15,
    SubjectAltName = 17,
    BasicConstraints = 19,
    NameConstraints = 30,
    AuthorityKeyId = 35,
    ExtendedKeyUsage = 37,
};

constexpr uint8_t kServerAuth[] = {0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x03, 0x01};
constexpr uint8_t kAnyUsage[] = {0x55, 0x1D, 0x25, 0x00};

bool readBasicConstraints(Bytes value, Certificate& out) {
    DerReader outer(value);
    DerReader r = outer.sequence();
    if (!r.atEnd() && r.ok()) {
        // cA is left out where it is false (DEFAULT FALSE), so a number may stand first.
        DerReader copy = r;
        if (copy.any().tag == der::kBoolean) {
            out.isCa = r.boolean();
            if (!out.isCa) return false;
        }
    }
    if (!r.atEnd()) {
        out.pathLength = r.smallInteger();
    }
    return outer.complete() && r.complete();
}

bool readKeyUsage(Bytes value, Certificate& out) {
    DerReader outer(value);
    const Bytes bits = outer.content(der::kBitString);
    if (!outer.complete() || bits.size() < 2 || bits.size() > 3 || bits[0] > 7) return false;
    uint16_t usage = 0;
    for (unsigned i = 0; i < 8 * (bits.size() - 1); ++i) {
        const bool set = (bits[1 + i / 8] >> (7 - i % 8) & 1) != 0;
        usage = static_cast<uint16_t>(usage | (set ? 1u << i : 0u));
    }
    out.keyUsage = usage;
    return true;
}

bool readExtendedKeyUsage(Bytes value, Certificate& out) {
    DerReader outer(value);
    DerReader r = outer.sequence();
    out.limitsExtendedUsage = true;
    while (r.ok() && !r.atEnd()) {
        const Bytes oid = r.content(der::kOid);
        out.allowsServerAuth |= sameBytes(oid, kServerAuth) || sameBytes(oid, kAnyUsage);
    }
    return outer.complete() && r.complete();
}

GeneralName generalName(const DerItem& item) {
    switch (item.tag) {
        case der::context(2):
            return {GeneralName::Kind::Dns, item.content};
        case der::context(7):
            return {GeneralName::Kind::Ip, item.content};
        case der::contextConstructed(4):
            return {GeneralName::Kind::Directory, item.content};
        default:
            return {GeneralName::Kind::Other, item.content};
    }
}

bool readAltNames(Bytes value, Certificate& out) {
    DerReader outer(value);
    DerReader r = outer.sequence();
    out.hasAltNames = true;
    while (r.ok() && !r.atEnd() && out.altNames.size() < kMaxNames) {
        out.altNames.push_back(generalName(r.any()));
    }
    return outer.complete() && r.complete() && !out.altNames.empty();
}

bool readSubtrees(Bytes content, std::vector<GeneralName>& out) {
    DerReader r(content);
    while (r.ok() && !r.atEnd() && out.size() < kMaxNames) {
        DerReader subtree = r.sequence();
        out.push_back(generalName(subtree.any()));
        // RFC 5280, 4.2.1.10: minimum is zero and left out, maximum is absent.
        if (!subtree.complete()) return false;
    }
    return r.complete();
}

bool readNameConstraints(Bytes value, Certificate& out) {
    DerReader outer(value);
    DerReader r = outer.sequence();
    out.hasNameConstraints = true;
    const auto permitted = r.optional(der::contextConstructed(0));
    const auto excluded = r.optional(der::contextConstructed(1));
    return outer.complete() && r.complete() &&
           (!permitted || readSubtrees(*permitted, out.permitted)) &&
           (!excluded || readSubtrees(*excluded, out.excluded));
}

bool readAuthorityKeyId(Bytes value, Certificate& out) {
    DerReader outer(value);
    DerReader r = outer.sequence();
    if (const auto id = r.optional(der::context(0))) out.authorityKeyId = *id;
    return outer.complete() && r.ok();
}

bool readSubjectKeyId(Bytes value, Certificate& out) {
    DerReader outer(value);
    out.subjectKeyId = outer.content(der::kOctetString);
    return outer.complete();
}

bool readKnown(Bytes oid, bool critical, Bytes value, Certificate& out) {
    const bool standard = oid.size() == 3 && oid[0] == 0x55 && oid[1] == 0x1D;
    switch (standard ? static_cast<Known>(oid[2]) : Known{}) {
        case Known::SubjectKeyId:
            return readSubjectKeyId(value, out);
        case Known::KeyUsage:
            return readKeyUsage(value, out);
        case Known::SubjectAltName:
            return readAltNames(value, out);
        case Known::BasicConstraints:
            return readBasicConstraints(value, out);
        case Known::NameConstraints:
            return readNameConstraints(value, out);
        case Known::AuthorityKeyId:
            return readAuthorityKeyId(value, out);
        case Known::ExtendedKeyUsage:
            return readExtendedKeyUsage(value, out);
    }
    out.hasUnknownCritical |= critical;
    return true;
}

}  // namespace

bool parseExtensions(Bytes field, Certificate& out) {
    DerReader outer(field);
    DerReader list = outer.sequence();
    std::vector<Bytes> seen;
    while (list.ok() && !list.atEnd()) {
        DerReader extension = list.sequence();
        const Bytes oid = extension.content(der::kOid);
        bool critical = false;
        DerReader copy = extension;
        if (copy.any().tag == der::kBoolean) critical = extension.boolean();
        const Bytes value = extension.content(der::kOctetString);
        const bool repeated = std::any_of(seen.begin(), seen.end(),
                                          [&](Bytes other) { return sameBytes(other, oid); });
        if (!extension.complete() || repeated || seen.size() == kMaxExtensions) return false;
        seen.push_back(oid);
        if (!readKnown(oid, critical, value, out)) return false;
    }
    return outer.complete() && list.complete();
}

}  // namespace tv::x509
