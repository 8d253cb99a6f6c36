// What became of a send: the outcome, its status word and the sentence that goes with it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tv {

enum class SmtpStatus : uint8_t {
    Success,
    InternalFailure,
    RenderFailed,
    NoRecipients,
    Aborted,
    ConnectFailed,
    AuthFailure,
    NoFrom,
    FromFailure,
    NoValidRecipients,
    SomeBadRecipients,
    DataFailure,
    Timeout,
    ConnectionLost,
    NoSmtpHostname,
    GreetingError,
    StartTlsFailed,
    NoCredentials,
    Failed,
};

std::string_view statusWord(SmtpStatus status);

// The first failure of an attempt names its outcome; what merely follows from it (a lost RSET after
// a refusal) changes nothing. NoFrom is a remark that any failure replaces.
class SmtpOutcome {
public:
    void clear();
    void fail(SmtpStatus status, std::string reason);
    // What comes next is judged anew; the hints stay.
    void forgetFailure();
    // What else is to be said of the failure, as a sentence of its own.
    void addToReason(std::string_view sentence);
    // What may lie behind the failure; the last lines of the transcript, one each, also where a
    // refusal of the server says the rest.
    void addHint(std::string sentence);
    // A send that ended without naming a reason is "Failed"; one that succeeded is "Success".
    void settle(bool success);

    SmtpStatus status() const { return status_; }
    const std::string& reason() const { return reason_; }
    const std::vector<std::string>& hints() const { return hints_; }

private:
    SmtpStatus status_ = SmtpStatus::Success;
    std::string reason_;
    std::vector<std::string> hints_;
};

}  // namespace tv
