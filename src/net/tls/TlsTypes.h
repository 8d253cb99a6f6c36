// Numbers of the TLS wire: content types, handshake types, versions, alerts, groups, signature
// schemes, extensions (RFC 5246, RFC 8446 and the IANA registries).
#pragma once

#include <cstdint>
#include <string_view>

namespace tv::tls {

enum class ContentType : uint8_t {
    ChangeCipherSpec = 20,
    Alert = 21,
    Handshake = 22,
    ApplicationData = 23,
};

enum class HandshakeType : uint8_t {
    HelloRequest = 0,
    ClientHello = 1,
    ServerHello = 2,
    NewSessionTicket = 4,
    EncryptedExtensions = 8,
    Certificate = 11,
    ServerKeyExchange = 12,
    CertificateRequest = 13,
    ServerHelloDone = 14,
    CertificateVerify = 15,
    ClientKeyExchange = 16,
    Finished = 20,
    CertificateStatus = 22,
    KeyUpdate = 24,
    MessageHash = 254,
};

// Wire values; the order of versions is the order of numbers.
enum class Version : uint16_t {
    None = 0,
    Ssl30 = 0x0300,
    Tls10 = 0x0301,
    Tls11 = 0x0302,
    Tls12 = 0x0303,
    Tls13 = 0x0304,
};

// "TLS 1.2" and so on; "NONE" for anything else.
std::string_view versionName(Version version);

enum class AlertLevel : uint8_t { Warning = 1, Fatal = 2 };

enum class Alert : uint8_t {
    CloseNotify = 0,
    UnexpectedMessage = 10,
    BadRecordMac = 20,
    DecryptionFailed = 21,
    RecordOverflow = 22,
    DecompressionFailure = 30,
    HandshakeFailure = 40,
    NoCertificate = 41,
    BadCertificate = 42,
    UnsupportedCertificate = 43,
    CertificateRevoked = 44,
    CertificateExpired = 45,
    CertificateUnknown = 46,
    IllegalParameter = 47,
    UnknownCa = 48,
    AccessDenied = 49,
    DecodeError = 50,
    DecryptError = 51,
    ExportRestriction = 60,
    ProtocolVersion = 70,
    InsufficientSecurity = 71,
    InternalError = 80,
    InappropriateFallback = 86,
    UserCanceled = 90,
    NoRenegotiation = 100,
    MissingExtension = 109,
    UnsupportedExtension = 110,
    UnrecognizedName = 112,
    BadCertificateStatusResponse = 113,
    UnknownPskIdentity = 115,
    CertificateRequired = 116,
    NoApplicationProtocol = 120,
};

// The words of the log for an alert; "unknown alert" for one without words.
std::string_view alertName(Alert alert);

enum class Group : uint16_t {
    None = 0,
    Secp256r1 = 23,
    Secp384r1 = 24,
    Secp521r1 = 25,
    BrainpoolP256r1 = 26,
    BrainpoolP384r1 = 27,
    BrainpoolP512r1 = 28,
    X25519 = 29,
};

// In TLS 1.2 two bytes, hash and signature; the values of TLS 1.3 continue the same space.
enum class SignatureScheme : uint16_t {
    None = 0,
    RsaPkcs1Md5 = 0x0101,
    RsaPkcs1Sha1 = 0x0201,
    EcdsaSha1 = 0x0203,
    RsaPkcs1Sha256 = 0x0401,
    EcdsaSecp256r1Sha256 = 0x0403,
    RsaPkcs1Sha384 = 0x0501,
    EcdsaSecp384r1Sha384 = 0x0503,
    RsaPkcs1Sha512 = 0x0601,
    EcdsaSecp521r1Sha512 = 0x0603,
    RsaPssRsaeSha256 = 0x0804,
    RsaPssRsaeSha384 = 0x0805,
    RsaPssRsaeSha512 = 0x0806,
};

enum class ExtensionType : uint16_t {
    ServerName = 0,
    StatusRequest = 5,
    SupportedGroups = 10,
    EcPointFormats = 11,
    SignatureAlgorithms = 13,
    Alpn = 16,
    ExtendedMasterSecret = 23,
    RecordSizeLimit = 28,
    SessionTicket = 35,
    PreSharedKey = 41,
    EarlyData = 42,
    SupportedVersions = 43,
    Cookie = 44,
    PskKeyExchangeModes = 45,
    PostHandshakeAuth = 49,
    KeyShare = 51,
    RenegotiationInfo = 0xFF01,
};

constexpr size_t kMaxPlaintext = 16384;            // RFC 8446, 5.1
constexpr size_t kMaxCiphertext12 = 16384 + 2048;  // RFC 5246, 6.2.3
// With the content type and the tag; padding counts as text (RFC 8446, 5.4).
constexpr size_t kMaxCiphertext13 = 16384 + 1 + 16;
constexpr size_t kRecordHeaderSize = 5;     // RFC 8446, 5.1
constexpr size_t kHandshakeHeaderSize = 4;  // RFC 8446, 4
constexpr size_t kRandomSize = 32;          // RFC 8446, 4.1.2

}  // namespace tv::tls
