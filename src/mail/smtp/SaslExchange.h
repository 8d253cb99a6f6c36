// A mechanism's exchange on the wire: AUTH, challenges and responses, to the server's verdict.
#pragma once

#include <string>

#include "log/LogBase.h"
#include "mail/sasl/Sasl.h"
#include "net/stream/CallContext.h"

namespace tv {

class SmtpConnImpl;

struct SaslOutcome {
    bool success = false;
    bool unavailable = false;    // this system does not have the mechanism: another may serve
    std::string firstReplyLine;  // of the reply that decided; empty if none came
};

// Runs the mechanism to its end. A refusal leaves the connection open, with no exchange under way;
// it and everything else that fails is noted as the connection's outcome.
SaslOutcome runSasl(CallContext& call, SaslMechanism& mechanism, SmtpConnImpl& connection);

}  // namespace tv
