// Which hash, and of what. The certificate may be one that a strict reader refuses: nobody verifies
// it here.
#include "net/x509/ServerEndPoint.h"

#include "base/ByteWriter.h"
#include "net/x509/X509Algorithm.h"

namespace tv::x509 {
namespace {

// That of the certificate's signature, but none older than SHA-256. RFC 5929 leaves open what
// counts for signatures without one hash of their own (Ed25519): SHA-256, as servers have it.
crypto::HashId endPointHash(Bytes certificate) {
    DerReader outer(certificate);
    DerReader fields = outer.sequence();
    fields.any();  // what is signed
    const SignatureAlgorithm algorithm = readSignatureAlgorithm(fields.content(der::kSequence));
    const bool isOld =
        algorithm.hash == crypto::HashId::kMd5 || algorithm.hash == crypto::HashId::kSha1;
    const bool isKnown = algorithm.kind != SignatureKind::Unknown;
    return isKnown && !isOld ? algorithm.hash : crypto::HashId::kSha256;
}

}  // namespace

std::vector<uint8_t> serverEndPoint(Bytes certificate) {
    ByteWriter out;
    out.append("tls-server-end-point:");
    out.append(crypto::Hash::of(endPointHash(certificate), certificate).bytes());
    return out.take();
}

}  // namespace tv::x509
