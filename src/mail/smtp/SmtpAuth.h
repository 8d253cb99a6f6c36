// Logging in: which mechanism serves, and the exchange.
#pragma once

#include <cstdint>

#include "base/Failure.h"
#include "mail/smtp/SmtpCapabilities.h"
#include "net/stream/CallContext.h"

namespace tv {

class SmtpConnImpl;

enum class AuthMechanism : uint8_t {
    None,  // nothing to do: no mechanism fits, and the server decides at MAIL FROM
    Xoauth2,
    Login,
    Ntlm,
    Msn,
    ScramSha256,
    ScramSha1,
    CramMd5,
    Plain,
    DigestMd5,
    Gssapi,
    KerberosV4,
    Anonymous,
};

namespace smtp {

// The first mechanism of the order of preference that is offered and has its credentials.
AuthMechanism chooseMechanism(const AuthMechanisms& offered, bool havePassword, bool haveToken);

}  // namespace smtp

// Logs in over a greeted connection, or finds that there is nothing to log in with, which is no
// failure. A refused login leaves the connection open.
Failure smtpAuthenticate(CallContext& call, SmtpConnImpl& connection);

}  // namespace tv
