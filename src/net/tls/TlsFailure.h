// Why a TLS connection ended, the alert that tells the peer, and the text that tells the log.
#pragma once

#include <cstdint>
#include <string_view>

#include "net/tls/TlsTypes.h"

namespace tv::tls {

enum class TlsFailure : uint8_t {
    None,
    // Found in what the peer sent.
    UnexpectedMessage,
    UnexpectedCcs,
    BadRecordMac,
    RecordOverflow,
    RecordVersion,
    RecordType,
    UnprotectedRecord,
    MessageTooLong,
    TooManyIdleRecords,
    LeftoverAtKeyChange,
    DecodeError,
    ServerHelloTooShort,
    IllegalParameter,
    UnsupportedExtension,
    MissingExtension,
    VersionNotOffered,
    Downgrade,
    SuiteNotOffered,
    GroupNotOffered,
    HelloRetryUnchanged,
    HelloTooLong,
    BadKeyShare,
    BadServerKey,
    WeakDhGroup,
    SchemeNotAllowed,
    BadSignature,
    BadFinished,
    BadRenegotiation,
    TooManyRenegotiations,
    MasterSecretMismatch,
    ResumptionMismatch,
    CertificateUnreadable,
    CertificateChanged,
    CertificateMissing,
    KeyUsageLacking,
    CertificateRefused,
    PeerAlert,
    // Found on our side.
    NoUsableVersion,
    RandomFailed,
    NoKeys,
    OutOfMemory,
    Internal,
};

// The alert that the peer is sent; PeerAlert sends none.
Alert alertOf(TlsFailure failure);
std::string_view textOf(TlsFailure failure);

}  // namespace tv::tls
