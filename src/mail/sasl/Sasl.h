// One SASL mechanism as SMTP uses it: a challenge comes in, a response goes out. What goes over the
// wire between the two is SaslExchange's matter.
#pragma once

#include <cstdint>
#include <string_view>

#include "base/Failure.h"
#include "base/SecureBuffer.h"
#include "log/LogBase.h"

namespace tv {

// What has to answer a line for the exchange to go on.
enum class SaslWanted : uint8_t {
    Challenge,           // 334
    ChallengeOrSuccess,  // 334, or any 2xx; another line follows
    Success,             // any 2xx ends it
    SuccessOrError,      // the same, or a 334 with an account of the error: another line follows
    Success235,          // 235 ends it
};

// One line of the client and how its answer is taken.
struct SaslTurn {
    SecureBuffer text;  // base64; without its line end
    bool secret = true;
    SaslWanted wanted = SaslWanted::Challenge;
    std::string_view replyName;    // what the answer is called
    std::string_view context;      // log context around the turn; empty: none
    std::string_view sendFailure;  // log lines; empty: none
    std::string_view refusal;
    std::string_view success;
};

class SaslMechanism {
public:
    struct Names {
        std::string_view auth;     // as AUTH names it
        std::string_view method;   // as the log names it
        std::string_view context;  // log context of the exchange
        std::string_view failure;  // log line after any failure; empty: none
    };

    explicit SaslMechanism(const Names& names) : names_(names) {}
    virtual ~SaslMechanism() = default;
    SaslMechanism(const SaslMechanism&) = delete;
    SaslMechanism& operator=(const SaslMechanism&) = delete;

    const Names& names() const { return names_; }
    // The turn of the AUTH command; its text is the initial response, where there is one. Fails
    // with NoCredentials where something needed is missing or cannot be sent, with
    // MechanismUnavailable where another mechanism may serve.
    virtual Failure begin(LogBase& log, SaslTurn& turn) = 0;
    // The answer to a challenge, given as the server wrote it.
    virtual Failure respond(LogBase& log, std::string_view challenge, SaslTurn& turn) = 0;
    // What helps a reader of the log once the answer to the last turn was not what was wanted.
    virtual void explainRefusal(LogBase&, std::string_view /*log*/) {}

protected:
    // The turn that every mechanism without an initial response begins with.
    static Failure bareCommand(SaslTurn& turn, std::string_view replyName,
                               std::string_view refusal);

private:
    const Names names_;
};

// Texts of the wire and of the mechanisms' buffers.
std::string_view saslText(const SecureBuffer& buffer);
// The text can stand in a login: no line end, no NUL.
bool saslSendable(std::string_view text);

}  // namespace tv
