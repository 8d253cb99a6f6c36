// A mechanism's exchange on the wire: AUTH, challenges and responses, to the server's verdict.
#pragma once

#include "base/Failure.h"
#include "mail/sasl/Sasl.h"
#include "net/stream/CallContext.h"

namespace tv {

class SmtpConnImpl;

// Runs the mechanism to its end. A refusal leaves the connection open, with no exchange under way.
// MechanismUnavailable: another mechanism may serve, so the log does not call that an error.
Failure runSasl(CallContext& call, SaslMechanism& mechanism, SmtpConnImpl& connection);

}  // namespace tv
