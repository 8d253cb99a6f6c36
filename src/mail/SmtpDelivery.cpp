// How the recipients of a send are spread over transactions. A server takes so many in one and says
// 452 to the others (RFC 5321 section 4.5.3.1.10); those get the message after it.
#include "mail/SmtpDelivery.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "mail/SmtpCommand.h"

namespace tv {
namespace {

// What each server has room for in one transaction (RFC 5321 section 4.5.3.1.8).
constexpr size_t kLeastRoom = 100;

void append(std::vector<std::string>& list, std::vector<std::string>& more) {
    list.insert(list.end(), std::make_move_iterator(more.begin()),
                std::make_move_iterator(more.end()));
    more.clear();
}

}  // namespace

bool SmtpDelivery::deliver() {
    send_.retryAllowed = false;
    send_.goodRecipients.clear();
    send_.badRecipients.clear();
    send_.fromAddress = smtp::bareAddress(send_.fromAddress);
    std::vector<std::string> waiting;
    for (const std::string& recipient : send_.recipients) {
        std::string address = smtp::recipientAddress(recipient);
        if (!address.empty()) waiting.push_back(std::move(address));
    }
    if (waiting.empty()) return noRecipients();
    deliverTo(std::move(waiting));
    if (taken_) send_.retryAllowed = false;
    return taken_;
}

bool SmtpDelivery::noRecipients() {
    log_.logError("No SMTP recipients.");
    log_.logError(
        "You have not added any TO, CC, or BCC recipients.  Make sure to call email.AddTo, "
        "AddCC, or AddBcc at least once.");
    connection_.fail(SmtpStatus::NoValidRecipients,
                     "There is no point in trying to send an email if there are no recipients.",
                     log_);
    return false;
}

// Each transaction takes at least one recipient off the list.
void SmtpDelivery::deliverTo(std::vector<std::string> waiting) {
    while (!waiting.empty()) {
        SmtpTransaction transaction = nextOf(waiting);
        if (taken_) connection_.outcome().clear();
        const bool success =
            SmtpTransfer(connection_, send_, transaction, params_, log_).sendSmtpEmail();
        if (taken_ && !success) {
            giveUp(transaction.recipients);
            giveUp(waiting);
            return;
        }
        room_ = std::max(transaction.accepted.size(), kLeastRoom);
        append(send_.goodRecipients, transaction.accepted);
        append(send_.badRecipients, transaction.refused);
        if (!success) {
            append(send_.badRecipients, transaction.tooMany);
            return;
        }
        taken_ = true;
        append(transaction.tooMany, waiting);
        waiting = std::move(transaction.tooMany);
    }
}

// The message did not reach them; that it reached others is the result.
void SmtpDelivery::giveUp(std::vector<std::string>& recipients) {
    for (const std::string& recipient : recipients) {
        log_.logData("undelivered", recipient);
    }
    append(send_.badRecipients, recipients);
}

SmtpTransaction SmtpDelivery::nextOf(std::vector<std::string>& waiting) {
    SmtpTransaction transaction;
    transaction.isFurther = taken_;
    const size_t count = std::min(waiting.size(), room_);
    const auto end = waiting.begin() + static_cast<std::ptrdiff_t>(count);
    transaction.recipients.assign(std::make_move_iterator(waiting.begin()),
                                  std::make_move_iterator(end));
    waiting.erase(waiting.begin(), end);
    if (taken_) {
        send_.progressTotal += send_.mimeSize + SmtpSend::kEnvelopeShare +
                               SmtpSend::kRecipientShare * transaction.recipients.size();
    }
    return transaction;
}

}  // namespace tv
