// Reads the certificates once and finds them by their subjects.
#include "net/x509/CertificateSet.h"

#include <algorithm>
#include <utility>

namespace tv::x509 {

CertificateSet::CertificateSet(std::vector<std::vector<uint8_t>> ders) : ders_(std::move(ders)) {
    for (const std::vector<uint8_t>& der : ders_) {
        Certificate certificate;
        if (parseCertificate(der, certificate)) certificates_.push_back(std::move(certificate));
    }
    std::stable_sort(certificates_.begin(), certificates_.end(),
                     [](const auto& a, const auto& b) { return a.subjectName < b.subjectName; });
}

std::span<const Certificate> CertificateSet::bySubject(const std::string& subjectName) const {
    const auto first = std::lower_bound(
        certificates_.begin(), certificates_.end(), subjectName,
        [](const Certificate& c, const std::string& name) { return c.subjectName < name; });
    const auto last = std::find_if(first, certificates_.end(), [&](const Certificate& c) {
        return c.subjectName != subjectName;
    });
    return {first, last};
}

bool CertificateSet::holds(const Certificate& certificate) const {
    const auto namesakes = bySubject(certificate.subjectName);
    return std::any_of(namesakes.begin(), namesakes.end(), [&](const Certificate& other) {
        return sameBytes(other.tbs, certificate.tbs);
    });
}

}  // namespace tv::x509
