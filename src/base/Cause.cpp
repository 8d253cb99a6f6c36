// The one table of words: a row for each cause.
#include "base/Cause.h"

#include <algorithm>
#include <iterator>

namespace tv {
namespace {

struct Row {
    Cause cause;
    Stage stage;
    std::string_view status;
    std::string_view connect = {};
    std::string_view sentence = {};
};

// What ends a TLS connection.
constexpr Row tlsRow(Cause cause, std::string_view sentence, Stage stage = Stage::TlsHandshake) {
    return {cause, stage, "ConnectFailed", {}, sentence};
}

constexpr Row kRows[] = {
    {Cause::None, Stage::None, "Success"},
    {Cause::EmptyHostname, Stage::NameLookup, "ConnectFailed", "Empty hostname"},
    {Cause::DnsFailed, Stage::NameLookup, "ConnectFailed", "DNS lookup failed"},
    {Cause::DnsTimeout, Stage::NameLookup, "ConnectFailed", "DNS timeout"},
    {Cause::Aborted, Stage::None, "Aborted", "App aborted in event callback"},
    {Cause::Internal, Stage::Local, "InternalFailure", "Internal error"},
    {Cause::ConnectTimeout, Stage::Connect, "ConnectFailed", "Timeout"},
    {Cause::Rejected, Stage::Connect, "ConnectFailed", "Connection rejected"},
    {Cause::TlsNoServerHello, Stage::TlsHandshake, "ConnectFailed"},
    {Cause::NoServerCertificate, Stage::Certificate, "ConnectFailed", "No server certificate"},
    {Cause::CertificateInvalid, Stage::Certificate, "ConnectFailed",
     "Server certificate validation failed"},
    {Cause::CertificateRequirement, Stage::Certificate, "ConnectFailed",
     "App-defined server certificate requirements failure"},
    {Cause::TlsServerHelloUnreadable, Stage::TlsHandshake, "ConnectFailed"},
    tlsRow(Cause::TlsUnexpectedMessage,
           "Received a handshake message that is not allowed at this point."),
    tlsRow(Cause::TlsUnexpectedCcs,
           "Sending fatal alert because we received a ChangeCipherSpec before more handshake "
           "messages.."),
    tlsRow(Cause::TlsBadRecordMac, "A received record failed its integrity check."),
    tlsRow(Cause::TlsRecordOverflow, "A received record is too long."),
    tlsRow(Cause::TlsRecordVersion,
           "The peer does not speak TLS on this connection (bad record version)."),
    tlsRow(Cause::TlsRecordType,
           "The peer does not speak TLS on this connection (bad record type)."),
    tlsRow(Cause::TlsUnprotectedRecord, "A record came in clear where protection is due."),
    tlsRow(Cause::TlsMessageTooLong,
           "A received handshake message announces more bytes than are accepted."),
    tlsRow(Cause::TlsTooManyIdleRecords, "The peer sent too many records that carry nothing."),
    tlsRow(Cause::TlsLeftoverAtKeyChange, "Handshake bytes were left over when the keys changed."),
    tlsRow(Cause::TlsDecodeError, "A received handshake message is malformed."),
    tlsRow(Cause::TlsServerHelloTooShort, "The ServerHello is malformed."),
    tlsRow(Cause::TlsIllegalParameter, "A received handshake message holds an impossible value."),
    tlsRow(Cause::TlsUnsupportedExtension,
           "The server answered an extension that was not offered."),
    tlsRow(Cause::TlsMissingExtension, "The server left out a required extension."),
    tlsRow(Cause::TlsVersionNotOffered,
           "The server chose a protocol version that was not offered."),
    tlsRow(Cause::TlsDowngrade,
           "The server's random says that somebody lowered the protocol version on the way."),
    tlsRow(Cause::TlsSuiteNotOffered,
           "The server chose a cipher suite that was not offered or does not fit the version."),
    tlsRow(Cause::TlsGroupNotOffered, "Unexpected key_share group"),
    tlsRow(Cause::TlsHelloRetryUnchanged, "The HelloRetryRequest asks for nothing new."),
    tlsRow(Cause::TlsHelloTooLong,
           "The server's cookie is so long that it does not fit into a ClientHello."),
    tlsRow(Cause::TlsBadKeyShare, "The server's public key for the key exchange is not valid."),
    tlsRow(Cause::TlsBadServerKey, "The key in the server's certificate cannot be used."),
    tlsRow(Cause::TlsWeakDhGroup, "The server's Diffie-Hellman group is too small."),
    tlsRow(Cause::TlsSchemeNotAllowed,
           "The server signed with an algorithm that was not offered or does not fit its key."),
    tlsRow(Cause::TlsBadSignature,
           "Failed to verify server key exchange signature with server certificate's public key."),
    tlsRow(Cause::TlsBadFinished, "The server's Finished message is wrong."),
    tlsRow(Cause::TlsBadRenegotiation, "The server's renegotiation_info is wrong."),
    tlsRow(Cause::TlsTooManyRenegotiations, "The server asked for too many renegotiations."),
    tlsRow(Cause::TlsMasterSecretMismatch,
           "The server changed whether the extended master secret is used."),
    tlsRow(Cause::TlsResumptionMismatch,
           "The server resumed a session with other parameters than it was made with."),
    tlsRow(Cause::TlsCertificateUnreadable, "The server's certificate cannot be read.",
           Stage::Certificate),
    tlsRow(Cause::TlsCertificateChanged,
           "The server showed another certificate in the renegotiation.", Stage::Certificate),
    tlsRow(Cause::TlsCertificateMissing, "No server certificate is available.", Stage::Certificate),
    tlsRow(Cause::TlsKeyUsageLacking,
           "The server's certificate does not fit the key exchange of the renegotiation.",
           Stage::Certificate),
    tlsRow(Cause::TlsCertificateRefused, "SSL server certificate verification failed.",
           Stage::Certificate),
    tlsRow(Cause::TlsPeerAlert, "Closing connection in response to fatal SSL/TLS alert."),
    tlsRow(Cause::TlsNoUsableVersion,
           "No protocol version is left to offer: SSL 3.0 is not supported."),
    tlsRow(Cause::TlsRandomFailed, "Failed to generate 32 random bytes."),
    tlsRow(Cause::TlsNoKeys, "No current output security params for sending application data."),
    tlsRow(Cause::TlsInternal, "Internal error in the TLS layer."),
    {Cause::ConnectionLost, Stage::None, "ConnectionLost"},
    {Cause::Timeout, Stage::None, "Timeout"},
    {Cause::LineTooLong, Stage::None, "Failed"},
    {Cause::OutOfMemory, Stage::None, "Failed", {}, "Out of memory in the TLS layer."},
    {Cause::BadReply, Stage::None, "Failed"},
    {Cause::NoCredentials, Stage::Login, "NoCredentials"},
    {Cause::MechanismUnavailable, Stage::Login, "AuthFailure"},
    {Cause::ChallengeUnanswerable, Stage::Login, "AuthFailure"},
    {Cause::OAuth2Description, Stage::Login, "AuthFailure"},
    {Cause::OAuth2Answer, Stage::Login, "AuthFailure"},
    {Cause::NoSmtpHostname, Stage::Local, "NoSmtpHostname"},
    {Cause::ConnectFailed, Stage::Connect, "ConnectFailed"},
    {Cause::GreetingError, Stage::Greeting, "GreetingError"},
    {Cause::StartTlsRefused, Stage::StartTls, "StartTlsFailed"},
    {Cause::StartTlsFailed, Stage::StartTls, "StartTlsFailed"},
    {Cause::AuthFailure, Stage::Login, "AuthFailure"},
    {Cause::FromFailure, Stage::Sender, "FromFailure"},
    {Cause::NoValidRecipients, Stage::Recipients, "NoValidRecipients"},
    {Cause::SomeBadRecipients, Stage::Recipients, "SomeBadRecipients"},
    {Cause::DataFailure, Stage::Data, "DataFailure"},
    {Cause::RenderFailed, Stage::Rendering, "RenderFailed"},
    {Cause::SettingsUnusable, Stage::Local, "SettingsUnusable"},
    {Cause::MessageTooLarge, Stage::Ehlo, "MessageTooLarge"},
};

const Row& rowOf(Cause cause) {
    const Row* row = std::find_if(std::begin(kRows), std::end(kRows),
                                  [cause](const Row& r) { return r.cause == cause; });
    return row == std::end(kRows) ? kRows[0] : *row;
}

}  // namespace

Stage stageOf(Cause cause) {
    return rowOf(cause).stage;
}

std::string_view statusWord(Cause cause) {
    return rowOf(cause).status;
}

std::string_view connectWords(Cause cause) {
    return rowOf(cause).connect;
}

std::string_view tlsSentence(Cause cause) {
    return rowOf(cause).sentence;
}

}  // namespace tv
