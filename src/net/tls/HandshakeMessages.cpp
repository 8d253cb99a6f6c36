#include "net/tls/HandshakeMessages.h"

#include "base/ByteReader.h"
#include "base/ByteWriter.h"

namespace tv::tls {
namespace {

Signature readSignature(ByteReader& r, Version version) {
    Signature signature;
    if (version >= Version::Tls12) signature.scheme = static_cast<SignatureScheme>(r.u16());
    signature.bytes = r.vector16();
    return signature;
}

// A list of (type, length, body); true if well-formed.
template <class Visit>
bool walkExtensions(std::span<const uint8_t> block, Visit visit) {
    ByteReader r(block);
    while (r.ok() && !r.atEnd()) {
        const ExtensionType type = static_cast<ExtensionType>(r.u16());
        r.vector16();
        if (r.ok()) visit(type);
    }
    return r.complete();
}

}  // namespace

bool parseCertificate12(std::span<const uint8_t> body, CertificateList& out) {
    ByteReader outer(body);
    ByteReader list(outer.vector24());
    if (!outer.complete()) return false;
    while (list.ok() && !list.atEnd()) {
        const std::span<const uint8_t> certificate = list.vector24();
        if (certificate.empty() || out.size() == kMaxCertificates) return false;
        out.push_back(certificate);
    }
    return list.complete();
}

bool parseCertificate13(std::span<const uint8_t> body, CertificateList& out, bool& unsolicited) {
    unsolicited = false;
    ByteReader outer(body);
    const std::span<const uint8_t> context = outer.vector8();
    ByteReader list(outer.vector24());
    if (!outer.complete() || !context.empty()) return false;
    while (list.ok() && !list.atEnd()) {
        const std::span<const uint8_t> certificate = list.vector24();
        const std::span<const uint8_t> extensions = list.vector16();
        if (certificate.empty() || out.size() == kMaxCertificates) return false;
        const bool wellFormed = walkExtensions(extensions, [&](ExtensionType type) {
            unsolicited |= type != ExtensionType::StatusRequest;
        });
        if (!wellFormed) return false;
        out.push_back(certificate);
    }
    return list.complete();
}

bool parseCertificateRequest12(std::span<const uint8_t> body, Version version) {
    ByteReader r(body);
    const bool hasTypes = !r.vector8().empty();
    if (version >= Version::Tls12 && r.vector16().size() % 2 != 0) return false;
    r.vector16();  // names of authorities
    return r.complete() && hasTypes;
}

bool parseCertificateRequest13(std::span<const uint8_t> body, CertificateRequest13& out) {
    ByteReader r(body);
    out.context = r.vector8();
    const std::span<const uint8_t> extensions = r.vector16();
    return r.complete() && walkExtensions(extensions, [&](ExtensionType type) {
               out.hasSignatureAlgorithms |= type == ExtensionType::SignatureAlgorithms;
           });
}

bool parseCertificateVerify(std::span<const uint8_t> body, Signature& out) {
    ByteReader r(body);
    out = readSignature(r, Version::Tls13);
    return r.complete();
}

bool parseServerKeyExchange(std::span<const uint8_t> body, Version version, EcdheParameters& out) {
    constexpr uint8_t kNamedCurve = 3;  // RFC 8422, 5.4
    ByteReader r(body);
    const uint8_t curveType = r.u8();
    const Group group = static_cast<Group>(r.u16());
    out.group = curveType == kNamedCurve ? group : Group::None;
    out.publicKey = r.vector8();
    out.parameters = body.first(body.size() - r.left());
    out.signature = readSignature(r, version);
    return r.complete() && !out.publicKey.empty();
}

bool parseServerKeyExchange(std::span<const uint8_t> body, Version version, DheParameters& out) {
    ByteReader r(body);
    out.p = r.vector16();
    out.g = r.vector16();
    out.publicKey = r.vector16();
    out.parameters = body.first(body.size() - r.left());
    out.signature = readSignature(r, version);
    return r.complete() && !out.p.empty() && !out.g.empty() && !out.publicKey.empty();
}

bool parseNewSessionTicket13(std::span<const uint8_t> body, NewSessionTicket13& out) {
    ByteReader r(body);
    out.lifetimeSeconds = r.u32();
    out.ageAdd = r.u32();
    out.nonce = r.vector8();
    out.ticket = r.vector16();
    const std::span<const uint8_t> extensions = r.vector16();
    return r.complete() && !out.ticket.empty() && walkExtensions(extensions, [](ExtensionType) {});
}

std::vector<uint8_t> handshakeMessage(HandshakeType type, std::span<const uint8_t> body) {
    ByteWriter w;
    w.u8(static_cast<uint8_t>(type));
    w.u24(body.size());
    w.append(body);
    return w.take();
}

}  // namespace tv::tls
