// What can go wrong, where on a message's way, and what that means for sending it again; with the
// words that the log and the transcript have for it.
#pragma once

#include <cstdint>
#include <string_view>

namespace tv {

// The way of a message, in its order; Local is what never concerned a server.
enum class Stage : uint8_t {
    None,
    NameLookup,
    Connect,
    TlsHandshake,
    Certificate,
    Greeting,
    Ehlo,
    StartTls,
    Login,
    Sender,
    Recipients,
    Data,
    Acceptance,  // the server's word on the whole message
    Rendering,
    Local,
};

// May the message be sent again?
enum class Repeat : uint8_t {
    NothingSent,     // it did not reach anybody
    RefusedForNow,   // the same will be taken later (a reply of 4xx)
    RefusedForGood,  // something has to change first (5xx)
    Unknown,         // it may have been taken: a repetition may deliver it twice
};

enum class Cause : uint8_t {
    None = 0,
    // Connecting. The log shows them under "ConnectFailReason", by number where they have no words:
    // these are part of its language.
    EmptyHostname = 1,
    DnsFailed = 2,
    DnsTimeout = 3,
    Aborted = 4,  // the application asked to stop
    Internal = 5,
    ConnectTimeout = 6,
    Rejected = 7,
    TlsNoServerHello = 103,
    NoServerCertificate = 104,
    CertificateInvalid = 106,
    CertificateRequirement = 108,
    TlsServerHelloUnreadable = 127,
    // TLS, found in what the peer sent.
    TlsUnexpectedMessage = 130,
    TlsUnexpectedCcs = 131,
    TlsBadRecordMac = 132,
    TlsRecordOverflow = 133,
    TlsRecordVersion = 134,
    TlsRecordType = 135,
    TlsUnprotectedRecord = 136,
    TlsMessageTooLong = 137,
    TlsTooManyIdleRecords = 138,
    TlsLeftoverAtKeyChange = 139,
    TlsDecodeError = 140,
    TlsServerHelloTooShort = 141,
    TlsIllegalParameter = 142,
    TlsUnsupportedExtension = 143,
    TlsMissingExtension = 144,
    TlsVersionNotOffered = 145,
    TlsDowngrade = 146,
    TlsSuiteNotOffered = 147,
    TlsGroupNotOffered = 148,
    TlsHelloRetryUnchanged = 149,
    TlsHelloTooLong = 150,
    TlsBadKeyShare = 151,
    TlsBadServerKey = 152,
    TlsWeakDhGroup = 153,
    TlsSchemeNotAllowed = 154,
    TlsBadSignature = 155,
    TlsBadFinished = 156,
    TlsBadRenegotiation = 157,
    TlsTooManyRenegotiations = 158,
    TlsMasterSecretMismatch = 159,
    TlsResumptionMismatch = 160,
    TlsCertificateUnreadable = 161,
    TlsCertificateChanged = 162,
    TlsCertificateMissing = 163,
    TlsKeyUsageLacking = 164,
    TlsCertificateRefused = 165,
    TlsPeerAlert = 166,
    // TLS, found on our side.
    TlsNoUsableVersion = 167,
    TlsRandomFailed = 168,
    TlsNoKeys = 169,
    TlsInternal = 170,
    // An open connection.
    ConnectionLost = 200,
    Timeout = 201,
    LineTooLong = 202,
    OutOfMemory = 203,
    BadReply = 204,  // no line of an SMTP server, or too many of them
    // A login.
    NoCredentials = 210,
    MechanismUnavailable = 211,  // this system does not have it: another may serve
    ChallengeUnanswerable = 212,
    OAuth2Description = 213,
    OAuth2Answer = 214,
    // A send, by the words that its transcript ends with.
    NoSmtpHostname = 220,
    ConnectFailed = 221,
    GreetingError = 222,
    StartTlsRefused = 223,
    StartTlsFailed = 224,
    AuthFailure = 225,
    FromFailure = 226,
    NoValidRecipients = 227,
    SomeBadRecipients = 228,
    DataFailure = 229,
    RenderFailed = 230,
    SettingsUnusable = 231,  // what the settings file says, or that it cannot be read
    MessageTooLarge = 232,   // for what the server announced, where that is heeded
};

// The stage that a cause belongs to; None where it can come at any.
Stage stageOf(Cause cause);
// The word for a send that failed by it; "Success" for None.
std::string_view statusWord(Cause cause);
// The words under "ConnectFailReason"; empty where there are none.
std::string_view connectWords(Cause cause);
// What TLS has to say of it, as a sentence; empty where that is somebody else's to say.
std::string_view tlsSentence(Cause cause);

}  // namespace tv
