// The ServerHello in its three kinds and EncryptedExtensions, and which extension may stand where.
#include "net/tls/ServerHello.h"

#include <algorithm>
#include <cstring>

#include "base/ByteReader.h"
#include "net/tls/ExtensionBlock.h"

namespace tv::tls {
namespace {

// SHA-256 of "HelloRetryRequest" (RFC 8446, 4.1.3).
constexpr uint8_t kRetryRandom[kRandomSize] = {
    0xCF, 0x21, 0xAD, 0x74, 0xE5, 0x9A, 0x61, 0x11, 0xBE, 0x1D, 0x8C, 0x02, 0x1E, 0x65, 0xB8, 0x91,
    0xC2, 0xA2, 0x11, 0x16, 0x7A, 0xBB, 0x8C, 0x5E, 0x07, 0x9E, 0x09, 0xE2, 0xC8, 0xA8, 0x33, 0x9C};

struct Place {
    ExtensionType type;
    bool serverHello;    // TLS 1.2 and before
    bool serverHello13;  // TLS 1.3
    bool retry;
    bool encrypted;
};

// Where an answer to an offered extension may stand. supported_groups in a ServerHello of TLS 1.2
// stands in no RFC, but deployed servers send it.
constexpr Place kPlaces[] = {
    {ExtensionType::ServerName, true, false, false, true},
    {ExtensionType::StatusRequest, true, false, false, false},
    {ExtensionType::SupportedGroups, true, false, false, true},
    {ExtensionType::EcPointFormats, true, false, false, false},
    {ExtensionType::ExtendedMasterSecret, true, false, false, false},
    {ExtensionType::RecordSizeLimit, true, false, false, true},
    {ExtensionType::SessionTicket, true, false, false, false},
    {ExtensionType::RenegotiationInfo, true, false, false, false},
    {ExtensionType::SupportedVersions, false, true, true, false},
    {ExtensionType::KeyShare, false, true, true, false},
    {ExtensionType::PreSharedKey, false, true, false, false},
    {ExtensionType::Cookie, false, false, true, false},
};

bool allowed(const Place& place, HelloKind kind) {
    switch (kind) {
        case HelloKind::ServerHello:
            return place.serverHello;
        case HelloKind::ServerHello13:
            return place.serverHello13;
        case HelloKind::HelloRetryRequest:
            return place.retry;
        case HelloKind::Encrypted:
            return place.encrypted;
    }
    return false;
}

// Unknown or not offered: unsupported_extension. Offered, but in the wrong message:
// illegal_parameter (RFC 8446, 4.2).
Cause checkPlace(ExtensionType type, HelloKind kind, const ClientHello& offered) {
    // A cookie is the one extension that a server may send first.
    const bool mayComeFirst = type == ExtensionType::Cookie && kind == HelloKind::HelloRetryRequest;
    if (!mayComeFirst && !offered.offers(type)) return Cause::TlsUnsupportedExtension;
    for (const Place& place : kPlaces) {
        if (place.type == type) {
            return allowed(place, kind) ? Cause::None : Cause::TlsIllegalParameter;
        }
    }
    return Cause::TlsIllegalParameter;
}

void readKeyShare(ByteReader& r, HelloKind kind, ServerExtensions& out) {
    out.hasKeyShare = true;
    out.keyShareGroup = static_cast<Group>(r.u16());
    if (kind == HelloKind::HelloRetryRequest) return;
    out.keyShare = r.vector16();
    if (out.keyShare.empty()) r.fail();
}

// Reads one body into out.
Cause readExtension(ExtensionType type, std::span<const uint8_t> body, HelloKind kind,
                    ServerExtensions& out) {
    ByteReader r(body);
    switch (type) {
        case ExtensionType::SupportedVersions:
            out.selectedVersion = static_cast<Version>(r.u16());
            break;
        case ExtensionType::KeyShare:
            readKeyShare(r, kind, out);
            break;
        case ExtensionType::PreSharedKey:
            out.selectedPsk = r.u16();
            break;
        case ExtensionType::Cookie:
            out.cookie = r.vector16();
            if (out.cookie->empty()) r.fail();
            break;
        case ExtensionType::RenegotiationInfo:
            out.renegotiationInfo = r.vector8();
            break;
        case ExtensionType::RecordSizeLimit:
            out.recordSizeLimit = r.u16();
            break;
        case ExtensionType::ExtendedMasterSecret:
            out.extendedMasterSecret = true;
            break;
        case ExtensionType::StatusRequest:
            out.statusRequest = true;
            break;
        case ExtensionType::SessionTicket:
            out.sessionTicket = true;
            break;
        case ExtensionType::EcPointFormats: {
            const auto formats = r.vector8();
            if (formats.empty()) r.fail();
            // Without uncompressed points there is nothing in common (RFC 8422, 5.1.2).
            const bool common = std::find(formats.begin(), formats.end(), 0) != formats.end();
            if (r.complete() && !common) return Cause::TlsIllegalParameter;
            break;
        }
        case ExtensionType::SupportedGroups: {
            const auto groups = r.vector16();
            if (groups.empty() || groups.size() % 2 != 0) r.fail();
            break;
        }
        default:
            break;  // server_name: empty
    }
    return r.complete() ? Cause::None : Cause::TlsDecodeError;
}

Cause readExtensions(std::span<const uint8_t> block, HelloKind kind, const ClientHello& offered,
                     ServerExtensions& out) {
    return walkExtensions(block, [&](ExtensionType type, std::span<const uint8_t> body) {
        const Cause failure = checkPlace(type, kind, offered);
        return failure == Cause::None ? readExtension(type, body, kind, out) : failure;
    });
}

// The version that supported_versions selects, found before the extensions are judged by it.
std::optional<Version> findSelectedVersion(std::span<const uint8_t> block) {
    ByteReader r(block);
    while (r.ok() && !r.atEnd()) {
        const ExtensionType type = static_cast<ExtensionType>(r.u16());
        ByteReader body(r.vector16());
        if (r.ok() && type == ExtensionType::SupportedVersions) {
            return static_cast<Version>(body.u16());
        }
    }
    return std::nullopt;
}

}  // namespace

Cause parseServerHello(std::span<const uint8_t> body, const ClientHello& offered, ServerHello& out,
                       int& tooShort) {
    ByteReader r(body);
    tooShort = 0;
    const auto shortAt = [&](int place) {
        if (!r.ok() && tooShort == 0) tooShort = place;
    };
    out.legacyVersion = static_cast<Version>(r.u16());
    out.random = r.bytes(kRandomSize);
    shortAt(1);
    out.sessionId = r.vector8();
    shortAt(2);
    out.suite = r.u16();
    const uint8_t compression = r.u8();
    shortAt(3);
    std::span<const uint8_t> block;
    if (r.ok() && !r.atEnd()) block = r.vector16();
    shortAt(4);
    if (!r.complete()) {
        return tooShort != 0 ? Cause::TlsServerHelloTooShort : Cause::TlsDecodeError;
    }
    if (out.sessionId.size() > 32) return Cause::TlsDecodeError;  // RFC 8446, 4.1.3
    if (compression != 0) return Cause::TlsIllegalParameter;

    out.isRetry = std::equal(out.random.begin(), out.random.end(), std::begin(kRetryRandom));
    const std::optional<Version> selected = findSelectedVersion(block);
    out.version = selected.value_or(out.legacyVersion);
    HelloKind kind = selected ? HelloKind::ServerHello13 : HelloKind::ServerHello;
    if (out.isRetry) kind = HelloKind::HelloRetryRequest;
    return readExtensions(block, kind, offered, out.extensions);
}

Cause parseEncryptedExtensions(std::span<const uint8_t> body, const ClientHello& offered,
                               ServerExtensions& out) {
    ByteReader r(body);
    const std::span<const uint8_t> block = r.vector16();
    if (!r.complete()) return Cause::TlsDecodeError;
    return readExtensions(block, HelloKind::Encrypted, offered, out);
}

DowngradeMark downgradeMark(std::span<const uint8_t> random) {
    // RFC 8446, 4.1.3: "DOWNGRD" and 01 or 00.
    static constexpr uint8_t kMark[] = {'D', 'O', 'W', 'N', 'G', 'R', 'D'};
    if (random.size() != kRandomSize) return DowngradeMark::None;
    const uint8_t* tail = random.data() + kRandomSize - 8;
    if (std::memcmp(tail, kMark, sizeof kMark) != 0) return DowngradeMark::None;
    if (tail[7] == 1) return DowngradeMark::FromTls13ToTls12;
    return tail[7] == 0 ? DowngradeMark::ToTls11OrBelow : DowngradeMark::None;
}

}  // namespace tv::tls
