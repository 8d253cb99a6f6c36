// One rule for each kind of names, and which names of a certificate are held against them.
#include "net/x509/NameConstraints.h"

#include <algorithm>
#include <optional>

#include "base/Ascii.h"
#include "net/x509/HostMatch.h"
#include "net/x509/X509Name.h"

namespace tv::x509 {
namespace {

using Kind = GeneralName::Kind;

std::string_view textOf(Bytes bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

Bytes bytesOfText(std::string_view text) {
    return {bytesOf(text), text.size()};
}

Coverage insideIf(bool inside) {
    return inside ? Coverage::Inside : Coverage::Outside;
}

bool endsWith(std::string_view host, std::string_view end) {
    return host.size() > end.size() && equalsIgnoreCase(host.substr(host.size() - end.size()), end);
}

bool isBelow(std::string_view host, std::string_view parent) {
    return endsWith(host, parent) && host[host.size() - parent.size() - 1] == '.';
}

// ".example.com" covers what lies below it, "example.com" the host itself and, where the kind of
// names has it so, what lies below.
Coverage hostCoverage(std::string_view host, std::string_view base, bool baseCoversBelow) {
    if (base.empty()) return Coverage::Inside;
    const bool belowOnly = base.front() == '.';
    if (belowOnly) base.remove_prefix(1);
    if (!isDnsName(base)) return Coverage::Unjudged;
    if (!belowOnly && equalsIgnoreCase(host, base)) return Coverage::Inside;
    return insideIf((belowOnly || baseCoversBelow) && isBelow(host, base));
}

Coverage addressCoverage(Bytes address, Bytes base) {
    const size_t size = base.size() / 2;
    // Address and mask of IPv4 or IPv6 (RFC 5280, 4.2.1.10).
    if (base.size() != 8 && base.size() != 32) return Coverage::Unjudged;
    if (address.size() != size) return Coverage::Outside;
    for (size_t i = 0; i < size; ++i) {
        if (((address[i] ^ base[i]) & base[size + i]) != 0) return Coverage::Outside;
    }
    return Coverage::Inside;
}

Coverage emailCoverage(std::string_view name, std::string_view base) {
    const size_t at = name.rfind('@');
    if (at == std::string_view::npos) return Coverage::Unjudged;
    const std::string_view host = name.substr(at + 1);
    const size_t baseAt = base.rfind('@');
    if (baseAt == std::string_view::npos) return hostCoverage(host, base, false);
    // One mailbox; local parts are told apart by the case of their letters.
    return insideIf(name.substr(0, at) == base.substr(0, baseAt) &&
                    equalsIgnoreCase(host, base.substr(baseAt + 1)));
}

// The host in the authority of a URI (RFC 3986, 3.2), if it has one that is a name.
std::optional<std::string_view> hostOfUri(std::string_view uri) {
    const size_t start = uri.find("://");
    if (start == std::string_view::npos) return std::nullopt;
    uri.remove_prefix(start + 3);
    uri = uri.substr(0, uri.find_first_of("/?#"));
    uri.remove_prefix(uri.rfind('@') + 1);
    uri = uri.substr(0, uri.find(':'));
    if (!isDnsName(uri) || !addressBytes(uri).empty()) return std::nullopt;
    return uri;
}

// The names that stand beside the alternative ones.
std::vector<GeneralName> otherNames(const Certificate& certificate, std::string_view host) {
    std::vector<GeneralName> names;
    if (!certificate.subjectName.empty()) {
        names.push_back({Kind::Directory, certificate.subject, certificate.subjectName});
    }
    if (!certificate.hasAltNames) {
        for (const Bytes email : emailAddresses(certificate.subject)) {
            names.push_back({Kind::Email, email, {}});
        }
    }
    if (host.empty()) return names;
    if (addressBytes(host).empty()) names.push_back({Kind::Dns, bytesOfText(host), {}});
    // A common name is a host's where matchesHost would take it for one.
    if (!certificate.hasAltNames) {
        names.push_back({Kind::Dns, commonName(certificate.subject), {}});
    }
    return names;
}

// The subject is walked and copied; the alternative names are neither.
bool mayReadSubject(const Certificate& certificate, WorkBudget& budget) {
    constexpr size_t kReadPerUnit = 16;  // bytes
    return budget.spend(1 + certificate.subject.size() / kReadPerUnit);
}

bool mayCompare(const GeneralName& name, const GeneralName& base, WorkBudget& budget) {
    constexpr size_t kComparedPerUnit = 32;  // bytes
    const size_t size = name.value.size() + base.value.size();
    return budget.spend(1 + size / kComparedPerUnit);
}

bool mayName(const Certificate& authority, const GeneralName& name, bool isStrict,
             WorkBudget& budget) {
    bool limited = false;
    bool inside = false;
    for (const GeneralName& base : authority.permitted) {
        if (!mayCompare(name, base, budget)) return false;
        if (base.kind != name.kind) continue;
        const Coverage coverage = coverageOf(name, base);
        limited |= coverage != Coverage::Unjudged || isStrict;
        inside |= coverage == Coverage::Inside;
    }
    if (limited && !inside) return false;
    for (const GeneralName& base : authority.excluded) {
        if (!mayCompare(name, base, budget)) return false;
        if (base.kind != name.kind) continue;
        const Coverage coverage = coverageOf(name, base);
        if (coverage == Coverage::Inside) return false;
        if (coverage == Coverage::Unjudged && isStrict) return false;
    }
    return true;
}

}  // namespace

Coverage coverageOf(const GeneralName& name, const GeneralName& base) {
    if (name.kind != base.kind) return Coverage::Outside;
    switch (name.kind) {
        case Kind::Dns:
            return hostCoverage(withoutFinalDot(textOf(name.value)), textOf(base.value), true);
        case Kind::Ip:
            return addressCoverage(name.value, base.value);
        case Kind::Directory:
            return insideIf(name.directory.compare(0, base.directory.size(), base.directory) == 0);
        case Kind::Email:
            return emailCoverage(textOf(name.value), textOf(base.value));
        case Kind::Uri: {
            const std::optional<std::string_view> host = hostOfUri(textOf(name.value));
            return host ? hostCoverage(*host, textOf(base.value), false) : Coverage::Unjudged;
        }
        default:
            return Coverage::Unjudged;
    }
}

bool mayName(const Certificate& authority, const Certificate& certificate, std::string_view host,
             WorkBudget& budget) {
    const auto allows = [&](const GeneralName& name) {
        return mayName(authority, name, !host.empty(), budget);
    };
    const auto& altNames = certificate.altNames;
    if (!std::all_of(altNames.begin(), altNames.end(), allows)) return false;
    if (!mayReadSubject(certificate, budget)) return false;
    const std::vector<GeneralName> others = otherNames(certificate, host);
    return std::all_of(others.begin(), others.end(), allows);
}

}  // namespace tv::x509
