// Each cause that the peer is to know of; the others are our own affair.
#include "net/tls/CauseAlert.h"

#include <algorithm>
#include <iterator>

namespace tv::tls {
namespace {

struct Row {
    Cause cause;
    Alert alert;
};

constexpr Row kRows[] = {
    {Cause::TlsUnexpectedMessage, Alert::UnexpectedMessage},
    {Cause::TlsUnexpectedCcs, Alert::UnexpectedMessage},
    {Cause::TlsBadRecordMac, Alert::BadRecordMac},
    {Cause::TlsRecordOverflow, Alert::RecordOverflow},
    {Cause::TlsRecordVersion, Alert::ProtocolVersion},
    {Cause::TlsRecordType, Alert::UnexpectedMessage},
    {Cause::TlsUnprotectedRecord, Alert::UnexpectedMessage},
    {Cause::TlsMessageTooLong, Alert::IllegalParameter},
    {Cause::TlsTooManyIdleRecords, Alert::UnexpectedMessage},
    {Cause::TlsLeftoverAtKeyChange, Alert::UnexpectedMessage},
    {Cause::TlsDecodeError, Alert::DecodeError},
    {Cause::TlsServerHelloTooShort, Alert::DecodeError},
    {Cause::TlsIllegalParameter, Alert::IllegalParameter},
    {Cause::TlsUnsupportedExtension, Alert::UnsupportedExtension},
    {Cause::TlsMissingExtension, Alert::MissingExtension},
    {Cause::TlsVersionNotOffered, Alert::ProtocolVersion},
    {Cause::TlsDowngrade, Alert::IllegalParameter},
    {Cause::TlsSuiteNotOffered, Alert::IllegalParameter},
    {Cause::TlsGroupNotOffered, Alert::IllegalParameter},
    {Cause::TlsHelloRetryUnchanged, Alert::IllegalParameter},
    {Cause::TlsHelloTooLong, Alert::IllegalParameter},
    {Cause::TlsBadKeyShare, Alert::IllegalParameter},
    {Cause::TlsBadServerKey, Alert::IllegalParameter},
    {Cause::TlsWeakDhGroup, Alert::InsufficientSecurity},
    {Cause::TlsSchemeNotAllowed, Alert::IllegalParameter},
    {Cause::TlsBadSignature, Alert::DecryptError},
    {Cause::TlsBadFinished, Alert::DecryptError},
    {Cause::TlsBadRenegotiation, Alert::HandshakeFailure},
    {Cause::TlsTooManyRenegotiations, Alert::HandshakeFailure},
    {Cause::TlsMasterSecretMismatch, Alert::HandshakeFailure},
    {Cause::TlsResumptionMismatch, Alert::IllegalParameter},
    {Cause::TlsCertificateUnreadable, Alert::BadCertificate},
    {Cause::TlsCertificateChanged, Alert::BadCertificate},
    {Cause::TlsCertificateMissing, Alert::DecodeError},
    {Cause::TlsKeyUsageLacking, Alert::UnsupportedCertificate},
    {Cause::TlsCertificateRefused, Alert::BadCertificate},
    {Cause::TlsPeerAlert, Alert::CloseNotify},
    {Cause::TlsNoUsableVersion, Alert::ProtocolVersion},
};

}  // namespace

Alert alertOf(Cause cause) {
    const Row* row = std::find_if(std::begin(kRows), std::end(kRows),
                                  [cause](const Row& r) { return r.cause == cause; });
    return row == std::end(kRows) ? Alert::InternalError : row->alert;
}

}  // namespace tv::tls
