// The status words, in the order of their enumerators, and the rule that the first failure of an
// attempt names its outcome.
#include "mail/smtp/SmtpStatus.h"

#include <utility>

namespace tv {

std::string_view statusWord(SmtpStatus status) {
    static constexpr std::string_view kWords[] = {
        "Success",
        "InternalFailure",
        "RenderFailed",
        "NoRecipients",
        "Aborted",
        "ConnectFailed",
        "AuthFailure",
        "NoFrom",
        "FromFailure",
        "NoValidRecipients",
        "SomeBadRecipients",
        "DataFailure",
        "Timeout",
        "ConnectionLost",
        "NoSmtpHostname",
        "GreetingError",
        "StartTlsFailed",
        "NoCredentials",
        "Failed",
    };
    static_assert(std::size(kWords) == static_cast<size_t>(SmtpStatus::Failed) + 1);
    return kWords[static_cast<size_t>(status)];
}

void SmtpOutcome::clear() {
    forgetFailure();
    hints_.clear();
}

void SmtpOutcome::fail(SmtpStatus status, std::string reason) {
    if (status_ != SmtpStatus::Success && status_ != SmtpStatus::NoFrom) return;
    status_ = status;
    reason_ = std::move(reason);
}

void SmtpOutcome::forgetFailure() {
    status_ = SmtpStatus::Success;
    reason_.clear();
}

void SmtpOutcome::addToReason(std::string_view sentence) {
    if (!reason_.empty()) reason_ += reason_.back() == '.' ? " " : ". ";
    reason_ += sentence;
}

void SmtpOutcome::addHint(std::string sentence) {
    hints_.push_back(std::move(sentence));
}

void SmtpOutcome::settle(bool success) {
    if (success) {
        clear();
    } else if (status_ == SmtpStatus::Success) {
        status_ = SmtpStatus::Failed;
    }
}

}  // namespace tv
