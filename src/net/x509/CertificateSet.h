// Certificates that are given and not sent: trust anchors, or those that are refused.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "net/x509/X509Cert.h"

namespace tv::x509 {

class CertificateSet {
public:
    CertificateSet() = default;
    // Takes DER; what cannot be read is left out.
    explicit CertificateSet(std::vector<std::vector<uint8_t>> ders);
    CertificateSet(CertificateSet&&) = default;
    CertificateSet& operator=(CertificateSet&&) = default;
    CertificateSet(const CertificateSet&) = delete;
    CertificateSet& operator=(const CertificateSet&) = delete;

    bool empty() const { return certificates_.empty(); }
    // subjectName is in canonical form.
    std::span<const Certificate> bySubject(const std::string& subjectName) const;
    // By all that is signed: a signature may be rewritten and still hold (ECDSA).
    bool holds(const Certificate& certificate) const;

private:
    std::vector<std::vector<uint8_t>> ders_;  // what the certificates point into
    std::vector<Certificate> certificates_;   // in the order of their subjects
};

}  // namespace tv::x509
