// The certificate's own fields; extensions stand in a file of theirs.
#include "net/x509/X509Cert.h"

#include "net/x509/X509Extensions.h"
#include "net/x509/X509Name.h"
#include "net/x509/X509Time.h"

namespace tv::x509 {
namespace {

bool readValidity(DerReader validity, Certificate& out) {
    const DerItem from = validity.any();
    const DerItem until = validity.any();
    return validity.complete() && parseTime(from, out.notBefore) && parseTime(until, out.notAfter);
}

bool readTbs(DerReader tbs, Bytes outerAlgorithm, Certificate& out) {
    uint32_t version = 0;  // v1
    if (const auto field = tbs.optional(der::contextConstructed(0))) {
        DerReader number(*field);
        version = number.smallInteger();
        // RFC 5280, 4.1.2.1: v1 is the default and not written, v3 has the number 2.
        if (!number.complete() || version == 0 || version > 2) return false;
    }
    out.serial = tbs.unsignedInteger();
    const DerItem innerAlgorithm = tbs.item(der::kSequence);
    out.issuer = tbs.item(der::kSequence).whole;
    const DerReader validity = tbs.sequence();
    out.subject = tbs.item(der::kSequence).whole;
    out.subjectPublicKeyInfo = tbs.item(der::kSequence).whole;
    // RFC 5280, 4.1.1.2: the signature algorithm stands in the signed part, too.
    if (!tbs.ok() || !sameBytes(innerAlgorithm.whole, outerAlgorithm)) return false;
    if (!canonicalName(out.issuer, out.issuerName)) return false;
    if (!canonicalName(out.subject, out.subjectName)) return false;
    out.isSelfIssued = out.issuerName == out.subjectName;
    if (!readValidity(validity, out)) return false;
    if (!parsePublicKey(out.subjectPublicKeyInfo, out.key)) return false;
    tbs.optional(der::context(1));  // unique identifiers
    tbs.optional(der::context(2));
    if (const auto extensions = tbs.optional(der::contextConstructed(3))) {
        // RFC 5280, 4.1.2.9: extensions in v3 alone.
        if (version != 2 || !parseExtensions(*extensions, out)) return false;
    }
    return tbs.complete();
}

}  // namespace

bool parseCertificate(Bytes der, Certificate& out) {
    out = {};
    out.whole = der;
    DerReader outer(der);
    DerReader cert = outer.sequence();
    const DerItem tbs = cert.item(der::kSequence);
    const DerItem algorithm = cert.item(der::kSequence);
    out.signature = cert.bitString();
    if (!outer.complete() || !cert.complete()) return false;
    out.tbs = tbs.whole;
    out.signatureAlgorithm = readSignatureAlgorithm(algorithm.content);
    return readTbs(DerReader(tbs.content), algorithm.whole, out);
}

}  // namespace tv::x509
