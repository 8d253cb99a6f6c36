// Each failure with its text and the alert that goes with it.
#include "net/tls/TlsFailure.h"

namespace tv::tls {
namespace {

struct Row {
    TlsFailure failure;
    Alert alert;
    std::string_view text;
};

constexpr Row kRows[] = {
    {TlsFailure::None, Alert::InternalError, "No failure."},
    {TlsFailure::UnexpectedMessage, Alert::UnexpectedMessage,
     "Received a handshake message that is not allowed at this point."},
    {TlsFailure::UnexpectedCcs, Alert::UnexpectedMessage,
     "Sending fatal alert because we received a ChangeCipherSpec before more handshake "
     "messages.."},
    {TlsFailure::BadRecordMac, Alert::BadRecordMac,
     "A received record failed its integrity check."},
    {TlsFailure::RecordOverflow, Alert::RecordOverflow, "A received record is too long."},
    {TlsFailure::RecordVersion, Alert::ProtocolVersion,
     "The peer does not speak TLS on this connection (bad record version)."},
    {TlsFailure::RecordType, Alert::UnexpectedMessage,
     "The peer does not speak TLS on this connection (bad record type)."},
    {TlsFailure::UnprotectedRecord, Alert::UnexpectedMessage,
     "A record came in clear where protection is due."},
    {TlsFailure::MessageTooLong, Alert::IllegalParameter,
     "A received handshake message announces more bytes than are accepted."},
    {TlsFailure::TooManyIdleRecords, Alert::UnexpectedMessage,
     "The peer sent too many records that carry nothing."},
    {TlsFailure::LeftoverAtKeyChange, Alert::UnexpectedMessage,
     "Handshake bytes were left over when the keys changed."},
    {TlsFailure::DecodeError, Alert::DecodeError, "A received handshake message is malformed."},
    {TlsFailure::ServerHelloTooShort, Alert::DecodeError, "The ServerHello is malformed."},
    {TlsFailure::IllegalParameter, Alert::IllegalParameter,
     "A received handshake message holds an impossible value."},
    {TlsFailure::UnsupportedExtension, Alert::UnsupportedExtension,
     "The server answered an extension that was not offered."},
    {TlsFailure::MissingExtension, Alert::MissingExtension,
     "The server left out a required extension."},
    {TlsFailure::VersionNotOffered, Alert::ProtocolVersion,
     "The server chose a protocol version that was not offered."},
    {TlsFailure::Downgrade, Alert::IllegalParameter,
     "The server's random says that somebody lowered the protocol version on the way."},
    {TlsFailure::SuiteNotOffered, Alert::IllegalParameter,
     "The server chose a cipher suite that was not offered or does not fit the version."},
    {TlsFailure::GroupNotOffered, Alert::IllegalParameter, "Unexpected key_share group"},
    {TlsFailure::HelloRetryUnchanged, Alert::IllegalParameter,
     "The HelloRetryRequest asks for nothing new."},
    {TlsFailure::HelloTooLong, Alert::IllegalParameter,
     "The server's cookie is so long that it does not fit into a ClientHello."},
    {TlsFailure::BadKeyShare, Alert::IllegalParameter,
     "The server's public key for the key exchange is not valid."},
    {TlsFailure::BadServerKey, Alert::IllegalParameter,
     "The key in the server's certificate cannot be used."},
    {TlsFailure::WeakDhGroup, Alert::InsufficientSecurity,
     "The server's Diffie-Hellman group is too small."},
    {TlsFailure::SchemeNotAllowed, Alert::IllegalParameter,
     "The server signed with an algorithm that was not offered or does not fit its key."},
    {TlsFailure::BadSignature, Alert::DecryptError,
     "Failed to verify server key exchange signature with server certificate's public key."},
    {TlsFailure::BadFinished, Alert::DecryptError, "The server's Finished message is wrong."},
    {TlsFailure::BadRenegotiation, Alert::HandshakeFailure,
     "The server's renegotiation_info is wrong."},
    {TlsFailure::TooManyRenegotiations, Alert::HandshakeFailure,
     "The server asked for too many renegotiations."},
    {TlsFailure::MasterSecretMismatch, Alert::HandshakeFailure,
     "The server changed whether the extended master secret is used."},
    {TlsFailure::ResumptionMismatch, Alert::IllegalParameter,
     "The server resumed a session with other parameters than it was made with."},
    {TlsFailure::CertificateUnreadable, Alert::BadCertificate,
     "The server's certificate cannot be read."},
    {TlsFailure::CertificateChanged, Alert::BadCertificate,
     "The server showed another certificate in the renegotiation."},
    {TlsFailure::CertificateMissing, Alert::DecodeError, "No server certificate is available."},
    {TlsFailure::KeyUsageLacking, Alert::UnsupportedCertificate,
     "The server's certificate does not fit the key exchange of the renegotiation."},
    {TlsFailure::CertificateRefused, Alert::BadCertificate,
     "SSL server certificate verification failed."},
    {TlsFailure::PeerAlert, Alert::CloseNotify,
     "Closing connection in response to fatal SSL/TLS alert."},
    {TlsFailure::NoUsableVersion, Alert::ProtocolVersion,
     "No protocol version is left to offer: SSL 3.0 is not supported."},
    {TlsFailure::RandomFailed, Alert::InternalError, "Failed to generate 32 random bytes."},
    {TlsFailure::NoKeys, Alert::InternalError,
     "No current output security params for sending application data."},
    {TlsFailure::OutOfMemory, Alert::InternalError, "Out of memory in the TLS layer."},
    {TlsFailure::Internal, Alert::InternalError, "Internal error in the TLS layer."},
};

const Row& rowOf(TlsFailure failure) {
    for (const Row& row : kRows) {
        if (row.failure == failure) return row;
    }
    return kRows[0];
}

}  // namespace

Alert alertOf(TlsFailure failure) {
    return rowOf(failure).alert;
}

std::string_view textOf(TlsFailure failure) {
    return rowOf(failure).text;
}

}  // namespace tv::tls
