// The words that a log has for versions and alerts.
#include "net/tls/TlsTypes.h"

namespace tv::tls {

std::string_view versionName(Version version) {
    switch (version) {
        case Version::Ssl30:
            return "SSL 3.0";
        case Version::Tls10:
            return "TLS 1.0";
        case Version::Tls11:
            return "TLS 1.1";
        case Version::Tls12:
            return "TLS 1.2";
        case Version::Tls13:
            return "TLS 1.3";
        case Version::None:
            break;
    }
    return "NONE";
}

std::string_view alertName(Alert alert) {
    static constexpr struct {
        Alert alert;
        std::string_view name;
    } kNames[] = {
        {Alert::CloseNotify, "close notify"},
        {Alert::UnexpectedMessage, "unexpected message"},
        {Alert::BadRecordMac, "bad record mac"},
        {Alert::DecryptionFailed, "decryption failed"},
        {Alert::RecordOverflow, "record overflow"},
        {Alert::DecompressionFailure, "decompression failure"},
        {Alert::HandshakeFailure, "handshake failure"},
        {Alert::BadCertificate, "bad certificate"},
        {Alert::UnsupportedCertificate, "unsupported certificate"},
        {Alert::CertificateRevoked, "certificate revoked"},
        {Alert::CertificateExpired, "certificate expired"},
        {Alert::CertificateUnknown, "certificate unknown"},
        {Alert::IllegalParameter, "illegal parameter"},
        {Alert::UnknownCa, "unknown certificate authority"},
        {Alert::AccessDenied, "access denied"},
        {Alert::DecodeError, "decode error"},
        {Alert::DecryptError, "decrypt error"},
        {Alert::ExportRestriction, "export restriction"},
        {Alert::ProtocolVersion, "protocol version"},
        {Alert::InsufficientSecurity, "insufficient security"},
        {Alert::InternalError, "internal error"},
        {Alert::UserCanceled, "user canceled"},
        {Alert::NoRenegotiation, "no renegotiation"},
        {Alert::UnrecognizedName, "SNI unrecognized name"},
        // Younger than the list above; worded in the same way.
        {Alert::InappropriateFallback, "inappropriate fallback"},
        {Alert::MissingExtension, "missing extension"},
        {Alert::UnsupportedExtension, "unsupported extension"},
        {Alert::BadCertificateStatusResponse, "bad certificate status response"},
        {Alert::UnknownPskIdentity, "unknown psk identity"},
        {Alert::CertificateRequired, "certificate required"},
        {Alert::NoApplicationProtocol, "no application protocol"},
    };
    for (const auto& row : kNames) {
        if (row.alert == alert) return row.name;
    }
    return "unknown alert";
}

}  // namespace tv::tls
