// The hello's extensions, their order, and their bytes.
#include "net/tls/ClientHello.h"

#include <algorithm>
#include <utility>

#include "base/Ascii.h"
#include "base/ByteWriter.h"

namespace tv::tls {
namespace {

constexpr uint16_t kRecordSizeLimit = 16385;  // RFC 8449: with the content type of TLS 1.3
// RFC 8446, 4.1.2: their length is a number of two bytes.
constexpr size_t kMaxExtensionBytes = 0xFFFF;
constexpr uint16_t kFallbackScsv = 0x5600;  // RFC 7507, 2: a signal, no suite

std::vector<uint8_t> statusRequest() {
    return {1, 0, 0, 0, 0};  // OCSP, no responders, no request extensions (RFC 6066, 8)
}

std::vector<uint8_t> serverName(std::string_view name) {
    ByteWriter w;
    w.vector(2, [&] {
        w.u8(0);  // host_name
        w.vector16({bytesOf(name), name.size()});
    });
    return w.take();
}

template <class Values>
std::vector<uint8_t> u16List(const Values& values) {
    ByteWriter w;
    w.vector(2, [&] {
        for (const auto value : values) {
            w.u16(static_cast<uint16_t>(value));
        }
    });
    return w.take();
}

std::vector<uint8_t> keyShares(std::span<const OfferedShare> shares) {
    ByteWriter w;
    w.vector(2, [&] {
        for (const OfferedShare& share : shares) {
            w.u16(static_cast<uint16_t>(share.group));
            w.vector16(share.publicKey);
        }
    });
    return w.take();
}

std::vector<uint8_t> supportedVersions(const VersionRange& versions) {
    ByteWriter w;
    w.vector(1, [&] {
        for (const Version v : {Version::Tls13, Version::Tls12, Version::Tls11, Version::Tls10}) {
            if (versions.contains(v)) w.u16(static_cast<uint16_t>(v));
        }
    });
    return w.take();
}

std::vector<uint8_t> vector8(std::span<const uint8_t> bytes) {
    ByteWriter w;
    w.vector8(bytes);
    return w.take();
}

std::vector<uint8_t> vector16(std::span<const uint8_t> bytes) {
    ByteWriter w;
    w.vector16(bytes);
    return w.take();
}

// With zeros in the place of the binder.
std::vector<uint8_t> preSharedKey(const OfferedPsk& psk) {
    ByteWriter w;
    w.vector(2, [&] {
        w.vector16(psk.ticket);
        w.u32(psk.obfuscatedAge);
    });
    w.vector(2, [&] { w.vector(1, [&] { w.zeros(psk.binderSize); }); });
    return w.take();
}

bool looksLikeAddress(std::string_view name) {
    const bool digitsAndDots =
        std::all_of(name.begin(), name.end(), [](char c) { return isAsciiDigit(c) || c == '.'; });
    return digitsAndDots || name.find(':') != std::string_view::npos;
}

}  // namespace

bool mayBeServerName(std::string_view name, const TlsOptions& options) {
    // 255: the longest name of DNS.
    if (!options.sni || name.empty() || name.size() > 255 || looksLikeAddress(name)) return false;
    return options.sniLocalhost || !equalsIgnoreCase(name, "localhost");
}

std::vector<Group> offeredGroups(const HelloParameters& parameters) {
    std::vector<Group> groups;
    if (parameters.options.brainpool) groups.push_back(Group::BrainpoolP256r1);
    groups.insert(groups.end(),
                  {Group::X25519, Group::Secp256r1, Group::Secp384r1, Group::Secp521r1});
    if (parameters.moreCurves) {
        groups.insert(groups.end(), {Group::BrainpoolP384r1, Group::BrainpoolP512r1});
    }
    return groups;
}

std::vector<SignatureScheme> offeredSignatures(const VersionRange& versions) {
    const bool older = versions.lowest < Version::Tls13;
    std::vector<SignatureScheme> schemes = {
        SignatureScheme::RsaPkcs1Sha256,   SignatureScheme::RsaPkcs1Sha384,
        SignatureScheme::RsaPkcs1Sha512,   SignatureScheme::RsaPssRsaeSha256,
        SignatureScheme::RsaPssRsaeSha384, SignatureScheme::RsaPssRsaeSha512};
    if (older) schemes.push_back(SignatureScheme::RsaPkcs1Sha1);
    schemes.insert(schemes.end(),
                   {SignatureScheme::EcdsaSecp256r1Sha256, SignatureScheme::EcdsaSecp384r1Sha384,
                    SignatureScheme::EcdsaSecp521r1Sha512});
    if (older) {
        schemes.insert(schemes.end(), {SignatureScheme::EcdsaSha1, SignatureScheme::RsaPkcs1Md5});
    }
    return schemes;
}

std::vector<HelloExtension> helloExtensions(const HelloParameters& p) {
    const bool tls13 = p.versions.highest >= Version::Tls13;
    std::vector<HelloExtension> list;
    const auto add = [&](ExtensionType type, std::vector<uint8_t> body) {
        list.push_back({type, std::move(body)});
    };
    add(ExtensionType::StatusRequest, statusRequest());
    add(ExtensionType::SupportedGroups, u16List(offeredGroups(p)));
    add(ExtensionType::EcPointFormats, {1, 0});  // uncompressed
    if (p.versions.highest >= Version::Tls12) {  // RFC 5246, 7.4.1.4.1
        add(ExtensionType::SignatureAlgorithms, u16List(offeredSignatures(p.versions)));
    }
    add(ExtensionType::ExtendedMasterSecret, {});
    if (p.options.zeroLengthTicket) add(ExtensionType::SessionTicket, {});
    if (p.options.postHandshakeAuth) add(ExtensionType::PostHandshakeAuth, {});
    if (tls13) {
        add(ExtensionType::KeyShare, keyShares(p.shares));
        add(ExtensionType::SupportedVersions, supportedVersions(p.versions));
    }
    add(ExtensionType::RenegotiationInfo, vector8(p.renegotiationVerify));
    if (mayBeServerName(p.serverName, p.options)) {
        add(ExtensionType::ServerName, serverName(p.serverName));
    }
    if (tls13) add(ExtensionType::PskKeyExchangeModes, {2, 1, 0});  // psk_dhe_ke, psk_ke
    add(ExtensionType::RecordSizeLimit, {kRecordSizeLimit >> 8, kRecordSizeLimit & 0xFF});
    if (!p.cookie.empty()) add(ExtensionType::Cookie, vector16(p.cookie));
    if (p.psk.binderSize != 0) add(ExtensionType::PreSharedKey, preSharedKey(p.psk));
    return list;
}

void shuffleExtensions(std::vector<HelloExtension>& extensions, const DrawBelow& draw) {
    size_t count = extensions.size();
    if (count != 0 && extensions.back().type == ExtensionType::PreSharedKey) --count;
    for (size_t i = count; i > 1; --i) {
        std::swap(extensions[i - 1], extensions[draw(static_cast<uint32_t>(i))]);
    }
}

bool ClientHello::offers(ExtensionType type) const {
    return std::any_of(extensions.begin(), extensions.end(),
                       [&](const HelloExtension& e) { return e.type == type; });
}

bool ClientHello::offersSuite(uint16_t id) const {
    return std::any_of(suites.begin(), suites.end(),
                       [&](const CipherSuite* suite) { return suite->id == id; });
}

bool ClientHello::fits() const {
    size_t size = 0;
    for (const HelloExtension& extension : extensions) {
        if (extension.body.size() > kMaxExtensionBytes) return false;
        size += 4 + extension.body.size();
    }
    return size <= kMaxExtensionBytes;
}

std::vector<uint8_t> ClientHello::encode() const {
    ByteWriter w;
    w.u8(static_cast<uint8_t>(HandshakeType::ClientHello));
    w.vector(3, [&] {
        w.u16(static_cast<uint16_t>(legacyVersion));
        w.append(random);
        w.vector8(sessionId);
        w.vector(2, [&] {
            for (const CipherSuite* suite : suites) {
                w.u16(suite->id);
            }
            if (fallback) w.u16(kFallbackScsv);
        });
        w.u8(1);  // compression methods: null alone
        w.u8(0);
        w.vector(2, [&] {
            for (const HelloExtension& extension : extensions) {
                w.u16(static_cast<uint16_t>(extension.type));
                w.vector16(extension.body);
            }
        });
    });
    return w.take();
}

}  // namespace tv::tls
