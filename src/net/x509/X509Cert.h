// A certificate read whole and strictly (RFC 5280), for connections that verify.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "net/x509/DerReader.h"
#include "net/x509/X509Algorithm.h"
#include "net/x509/X509Key.h"

namespace tv::x509 {

// Bits of KeyUsage, counted from the first (RFC 5280, 4.2.1.3).
constexpr uint16_t kDigitalSignature = 1 << 0;
constexpr uint16_t kKeyEncipherment = 1 << 2;
constexpr uint16_t kKeyCertSign = 1 << 5;

// One name of a SubjectAltName or of a name constraint; an address constraint holds address and
// mask.
struct GeneralName {
    // The numbers of the tags (RFC 5280, 4.2.1.6).
    enum class Kind : uint8_t {
        Other = 0,
        Email = 1,
        Dns = 2,
        X400 = 3,
        Directory = 4,
        EdiParty = 5,
        Uri = 6,
        Ip = 7,
        RegisteredId = 8,
    };
    Kind kind = Kind::Other;
    Bytes value;
    std::string directory;  // in canonical form
};

// All views point into the DER that was parsed.
struct Certificate {
    Bytes whole;
    Bytes tbs;  // what is signed
    Bytes serial;
    Bytes issuer;  // names with tag and length
    Bytes subject;
    std::string issuerName;  // in the form in which names are compared
    std::string subjectName;
    int64_t notBefore = 0;  // seconds since 1970-01-01 UTC
    int64_t notAfter = 0;
    Bytes subjectPublicKeyInfo;
    PublicKey key;
    SignatureAlgorithm signatureAlgorithm;
    Bytes signature;

    bool isCa = false;
    std::optional<uint32_t> pathLength;
    std::optional<uint16_t> keyUsage;
    bool limitsExtendedUsage = false;
    bool allowsServerAuth = false;
    bool hasAltNames = false;
    std::vector<GeneralName> altNames;
    bool hasNameConstraints = false;
    bool hasBadConstraints = false;  // empty, or of a form that RFC 5280 rules out
    std::vector<GeneralName> permitted;
    std::vector<GeneralName> excluded;
    Bytes subjectKeyId;
    Bytes authorityKeyId;
    bool hasUnknownCritical = false;
    bool isSelfIssued = false;  // the same name twice
};

// False where anything but the values of unknown extensions is malformed.
bool parseCertificate(Bytes der, Certificate& out);

}  // namespace tv::x509
