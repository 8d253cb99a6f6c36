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
};

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
    {Cause::ConnectionLost, Stage::None, "ConnectionLost"},
    {Cause::Timeout, Stage::None, "Timeout"},
    {Cause::LineTooLong, Stage::None, "Failed"},
    {Cause::OutOfMemory, Stage::None, "Failed"},
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

}  // namespace tv
