// The parsers of the messages behind the hellos, each of which takes its whole body or fails.
#include "net/tls/HandshakeMessages.h"

#include "base/ByteReader.h"
#include "base/ByteWriter.h"
#include "net/tls/ExtensionBlock.h"

namespace tv::tls {
namespace {

Signature readSignature(ByteReader& r, Version version) {
    Signature signature;
    if (version >= Version::Tls12) signature.scheme = static_cast<SignatureScheme>(r.u16());
    signature.bytes = r.vector16();
    return signature;
}

// The status of a certificate: an OCSP response, which nobody reads (RFC 6066, 8).
bool isCertificateStatus(std::span<const uint8_t> body) {
    ByteReader r(body);
    const bool ocsp = r.u8() == 1;
    const bool empty = r.vector24().empty();
    return r.complete() && ocsp && !empty;
}

// Pairs of bytes, at least one.
bool isSchemeList(std::span<const uint8_t> body) {
    ByteReader r(body);
    const size_t size = r.vector16().size();
    return r.complete() && size != 0 && size % 2 == 0;
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

Cause parseCertificate13(std::span<const uint8_t> body, CertificateList& out) {
    ByteReader outer(body);
    const std::span<const uint8_t> context = outer.vector8();
    ByteReader list(outer.vector24());
    if (!outer.complete()) return Cause::TlsDecodeError;
    if (!context.empty()) return Cause::TlsIllegalParameter;
    while (list.ok() && !list.atEnd()) {
        const std::span<const uint8_t> certificate = list.vector24();
        const std::span<const uint8_t> extensions = list.vector16();
        if (certificate.empty() || out.size() == kMaxCertificates) return Cause::TlsDecodeError;
        const Cause failure = walkExtensions(extensions, [](ExtensionType type, auto status) {
            if (type != ExtensionType::StatusRequest) return Cause::TlsUnsupportedExtension;
            return isCertificateStatus(status) ? Cause::None : Cause::TlsDecodeError;
        });
        if (failure != Cause::None) return failure;
        out.push_back(certificate);
    }
    return list.complete() ? Cause::None : Cause::TlsDecodeError;
}

bool parseCertificateStatus12(std::span<const uint8_t> body) {
    return isCertificateStatus(body);
}

bool parseCertificateRequest12(std::span<const uint8_t> body, Version version) {
    ByteReader r(body);
    const bool hasTypes = !r.vector8().empty();
    if (version >= Version::Tls12 && r.vector16().size() % 2 != 0) return false;
    r.vector16();  // names of authorities
    return r.complete() && hasTypes;
}

Cause parseCertificateRequest13(std::span<const uint8_t> body, std::span<const uint8_t>& context) {
    ByteReader r(body);
    context = r.vector8();
    const std::span<const uint8_t> extensions = r.vector16();
    if (!r.complete()) return Cause::TlsDecodeError;
    bool hasSchemes = false;
    const Cause failure = walkExtensions(extensions, [&](ExtensionType type, auto list) {
        if (type != ExtensionType::SignatureAlgorithms) return Cause::None;
        hasSchemes = isSchemeList(list);
        return hasSchemes ? Cause::None : Cause::TlsDecodeError;
    });
    if (failure != Cause::None) return failure;
    return hasSchemes ? Cause::None : Cause::TlsMissingExtension;
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

Cause parseNewSessionTicket13(std::span<const uint8_t> body, NewSessionTicket13& out) {
    ByteReader r(body);
    out.lifetimeSeconds = r.u32();
    out.ageAdd = r.u32();
    out.nonce = r.vector8();
    out.ticket = r.vector16();
    const std::span<const uint8_t> extensions = r.vector16();
    if (!r.complete() || out.ticket.empty()) return Cause::TlsDecodeError;
    return walkExtensions(extensions, [](ExtensionType, auto) { return Cause::None; });
}

bool parseNewSessionTicket12(std::span<const uint8_t> body) {
    ByteReader r(body);
    r.u32();  // a lifetime; the ticket behind it is not kept
    r.vector16();
    return r.complete();
}

std::vector<uint8_t> handshakeMessage(HandshakeType type, std::span<const uint8_t> body) {
    ByteWriter w;
    w.u8(static_cast<uint8_t>(type));
    w.u24(body.size());
    w.append(body);
    return w.take();
}

}  // namespace tv::tls
