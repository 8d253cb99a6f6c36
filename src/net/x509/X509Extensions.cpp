// One reader for each extension that is known, and the list of them.
#include "net/x509/X509Extensions.h"

#include <algorithm>

#include "net/x509/X509Name.h"

namespace tv::x509 {
namespace {

// Each new extension is held against those before, and every name is kept: limits on what a
// stranger can make us do.
constexpr size_t kMaxExtensions = 64;
constexpr size_t kMaxNames = 1000;

// The last byte of 2.5.29.n.
enum class Known : uint8_t {
    SubjectKeyId = 14,
    KeyUsage = 15,
    SubjectAltName = 17,
    BasicConstraints = 19,
    NameConstraints = 30,
    CertificatePolicies = 32,
    AuthorityKeyId = 35,
    ExtendedKeyUsage = 37,
};

// 1.3.6.1.5.5.7.3.1 and 2.5.29.37.0 (RFC 5280, 4.2.1.12), 1.3.6.1.5.5.7.2.1 and .2 (4.2.1.4).
constexpr uint8_t kServerAuth[] = {0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x03, 0x01};
constexpr uint8_t kAnyUsage[] = {0x55, 0x1D, 0x25, 0x00};
constexpr uint8_t kStatement[] = {0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x02, 0x01};
constexpr uint8_t kUserNotice[] = {0x2B, 0x06, 0x01, 0x05, 0x05, 0x07, 0x02, 0x02};

bool readBasicConstraints(Bytes value, Certificate& out) {
    DerReader outer(value);
    DerReader r = outer.sequence();
    if (!r.atEnd() && r.ok()) {
        // cA should be left out where it is false (DEFAULT FALSE); then a number may stand first.
        DerReader copy = r;
        if (copy.any().tag == der::kBoolean) out.isCa = r.boolean();
    }
    if (!r.atEnd()) {
        out.pathLength = r.smallInteger();
    }
    return outer.complete() && r.complete();
}

bool readKeyUsage(Bytes value, Certificate& out) {
    DerReader outer(value);
    const Bytes bits = outer.content(der::kBitString);
    // A count of unused bits, at most 7, and the nine bits that are defined in one byte or two.
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

// False for what is no name: another class of tags, text where a structure belongs, or vice versa.
bool readGeneralName(const DerItem& item, GeneralName& out) {
    using Kind = GeneralName::Kind;
    const uint8_t number = item.tag & 0x1F;
    if (number > static_cast<uint8_t>(Kind::RegisteredId)) return false;
    out = {static_cast<Kind>(number), item.content, {}};
    const bool isStructure = out.kind == Kind::Other || out.kind == Kind::X400 ||
                             out.kind == Kind::Directory || out.kind == Kind::EdiParty;
    if (item.tag != (isStructure ? der::contextConstructed(number) : der::context(number))) {
        return false;
    }
    return out.kind != Kind::Directory || canonicalName(out.value, out.directory);
}

bool readAltNames(Bytes value, Certificate& out) {
    DerReader outer(value);
    DerReader r = outer.sequence();
    out.hasAltNames = true;
    while (r.ok() && !r.atEnd() && out.altNames.size() < kMaxNames) {
        if (!readGeneralName(r.any(), out.altNames.emplace_back())) return false;
    }
    return outer.complete() && r.complete() && !out.altNames.empty();
}

bool readSubtrees(Bytes content, std::vector<GeneralName>& names, Certificate& out) {
    DerReader r(content);
    out.hasBadConstraints |= r.atEnd();
    while (r.ok() && !r.atEnd() && names.size() < kMaxNames) {
        DerReader subtree = r.sequence();
        if (!readGeneralName(subtree.any(), names.emplace_back())) return false;
        // RFC 5280, 4.2.1.10: minimum is zero, which is its default, and maximum is absent.
        const std::optional<Bytes> minimum = subtree.optional(der::context(0));
        const uint8_t kZero[] = {0};
        out.hasBadConstraints |= minimum && !sameBytes(*minimum, kZero);
        out.hasBadConstraints |= subtree.optional(der::context(1)).has_value();
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
    out.hasBadConstraints |= !permitted && !excluded;
    return outer.complete() && r.complete() &&
           (!permitted || readSubtrees(*permitted, out.permitted, out)) &&
           (!excluded || readSubtrees(*excluded, out.excluded, out));
}

// No policy is asked for here, so that any will do. A critical one must be understood with its
// qualifiers (RFC 5280, 4.2.1.4): a statement's address and a notice to be shown.
bool readPolicies(Bytes value, bool critical, Certificate& out) {
    DerReader outer(value);
    DerReader r = outer.sequence();
    while (r.ok() && !r.atEnd()) {
        DerReader policy = r.sequence();
        policy.content(der::kOid);
        DerReader qualifiers = policy.atEnd() ? DerReader({}) : policy.sequence();
        while (qualifiers.ok() && !qualifiers.atEnd()) {
            const Bytes oid = qualifiers.sequence().content(der::kOid);
            const bool known = sameBytes(oid, kStatement) || sameBytes(oid, kUserNotice);
            out.hasUnknownCritical |= critical && !known;
        }
        if (!policy.complete() || !qualifiers.ok()) return false;
    }
    return outer.complete() && r.complete();
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
    const bool standard = oid.size() == 3 && oid[0] == 0x55 && oid[1] == 0x1D;  // 2.5.29.n
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
        case Known::CertificatePolicies:
            return readPolicies(value, critical, out);
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
