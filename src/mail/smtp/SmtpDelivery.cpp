// How the recipients of a send are spread over transactions. Those whose addresses need SMTPUTF8
// (RFC 6531) get the message in another form, so in another transaction. And a server takes so many
// in one and says 452 to the others (RFC 5321 section 4.5.3.1.10); those get the message after it.
#include "mail/smtp/SmtpDelivery.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <utility>

#include "base/Ascii.h"
#include "log/Fail.h"
#include "mail/smtp/SmtpCommand.h"
#include "mime/tvEmailAddress.h"

namespace tv {
namespace {

// What each server has room for in one transaction (RFC 5321 section 4.5.3.1.8).
constexpr size_t kLeastRoom = 100;

void append(std::vector<std::string>& list, std::vector<std::string>& more) {
    list.insert(list.end(), std::make_move_iterator(more.begin()),
                std::make_move_iterator(more.end()));
    more.clear();
}

// What is the same mailbox: domains know no case (RFC 5321 section 2.4).
std::string mailboxKey(std::string_view address) {
    const size_t at = std::min(address.rfind('@'), address.size());
    return std::string(address.substr(0, at)) + asciiLower(address.substr(at));
}

}  // namespace

// Who goes into which transactions, and what stands against those that go into none.
struct SmtpDelivery::Groups {
    std::vector<std::string> ascii;
    std::vector<std::string> utf8;
    std::string unreachable;  // the last of those, and why
    bool any = false;         // there are recipients at all
};

Failure SmtpDelivery::deliver() {
    send_.goodRecipients.clear();
    send_.badRecipients.clear();
    Groups groups;
    if (Failure failure = senderFits()) return failure;
    if (Failure failure = sortRecipients(groups)) return failure;
    Failure failure = deliverTo(std::move(groups.ascii), false);
    if (!failure || nobodyAccepted(failure)) {
        failure = deliverToUtf8(std::move(groups.utf8), std::move(failure));
    } else if (!failure.mayReconnect()) {
        giveUp(groups.utf8);
    }
    return taken_ ? Failure() : std::move(failure);
}

// Why an address cannot stand in the envelope here; empty if it can.
std::string_view SmtpDelivery::obstacle(std::string_view address) const {
    if (isAscii(address)) return {};
    if (!_tvEmailAddress::needsSmtpUtf8(address)) return "its domain has no ASCII form.";
    if (connection_.capabilities().hasSmtpUtf8) return {};
    return "letters outside ASCII before the \"@\" need SMTPUTF8, which this server does not "
           "offer.";
}

Failure SmtpDelivery::senderFits() {
    send_.fromAddress = smtp::bareAddress(send_.fromAddress);
    const std::string_view why = obstacle(send_.fromAddress);
    if (why.empty()) return {};
    return fail(call_.log, Cause::FromFailure,
                "<" + send_.fromAddress + "> cannot be the sender: " + std::string(why));
}

// Fails where nothing is left to be sent to.
Failure SmtpDelivery::sortRecipients(Groups& groups) {
    const bool senderNeedsUtf8 = !isAscii(send_.fromAddress);
    for (const std::string& recipient : send_.recipients) {
        std::string address = smtp::recipientAddress(recipient);
        if (address.empty()) continue;
        groups.any = true;
        if (const std::string_view why = obstacle(address); !why.empty()) {
            groups.unreachable = "<" + address + "> cannot be reached: " + std::string(why);
            call_.log.logError(groups.unreachable);
            call_.log.logData("bad_address", address);
            send_.badRecipients.push_back(std::move(address));
        } else {
            const bool needsUtf8 = senderNeedsUtf8 || !isAscii(address);
            (needsUtf8 ? groups.utf8 : groups.ascii).push_back(std::move(address));
        }
    }
    if (!groups.any) return noRecipients();
    if (groups.ascii.empty() && groups.utf8.empty()) {
        return fail(call_.log, Cause::NoValidRecipients,
                    "No recipient was accepted. " + groups.unreachable);
    }
    if (!groups.unreachable.empty() && connection_.settings.requireAllRecipients) {
        return fail(call_.log, Cause::SomeBadRecipients,
                    "Not all recipients were accepted. " + groups.unreachable);
    }
    return {};
}

Failure SmtpDelivery::noRecipients() {
    call_.log.logError("No SMTP recipients.");
    call_.log.logError(
        "You have not added any TO, CC, or BCC recipients.  Make sure to call email.AddTo, "
        "AddCC, or AddBcc at least once.");
    return fail(call_.log, Cause::NoValidRecipients,
                "There is no point in trying to send an email if there are no recipients.");
}

// A failure here is told before that of the others, of whom nobody was accepted.
Failure SmtpDelivery::deliverToUtf8(std::vector<std::string> waiting, Failure before) {
    if (waiting.empty()) return before;
    Failure failure = deliverTo(std::move(waiting), true);
    if (failure && before) failure.addSentence("Before that: " + before.text());
    return failure;
}

// Each transaction takes at least one recipient off the list. Once somebody was served, what fails
// is told to the log alone.
Failure SmtpDelivery::deliverTo(std::vector<std::string> waiting, bool utf8) {
    while (!waiting.empty()) {
        Failure failure = takeForm(utf8);
        // The next transaction of the same message goes over another connection.
        if (!failure && connection_.isUsedUp()) {
            failure = connection_.smtpConnectAndAuthenticate(call_, false);
        }
        SmtpTransaction transaction = nextOf(waiting);
        if (!failure) {
            failure = SmtpTransfer(call_, connection_, send_, transaction).sendSmtpEmail();
        }
        if (taken_ && failure) {
            giveUp(transaction.recipients);
            giveUp(waiting);
            return {};
        }
        room_ = std::max(transaction.accepted.size(), kLeastRoom);
        append(send_.goodRecipients, transaction.accepted);
        append(send_.badRecipients, transaction.refused);
        if (failure) {
            append(send_.badRecipients, transaction.tooMany);
            return failure;
        }
        taken_ = true;
        append(transaction.tooMany, waiting);
        waiting = withoutServed(std::move(transaction.tooMany));
    }
    return {};
}

// A server that is told of a mailbox twice in one transaction gives it one message; in two it would
// give it two.
std::vector<std::string> SmtpDelivery::withoutServed(std::vector<std::string> waiting) const {
    if (waiting.empty()) return waiting;
    std::set<std::string> served;
    for (const std::string& address : send_.goodRecipients) {
        served.insert(mailboxKey(address));
    }
    std::erase_if(waiting, [&](const std::string& address) {
        return !served.insert(mailboxKey(address)).second;
    });
    return waiting;
}

// Of one form: that says nothing of the others.
bool SmtpDelivery::nobodyAccepted(const Failure& failure) const {
    return failure.is(Cause::NoValidRecipients) && !failure.mayReconnect() &&
           connection_.isConnected();
}

// The message in the form of the next transaction, and how large it is.
Failure SmtpDelivery::takeForm(bool utf8) {
    if (send_.utf8 == utf8) return {};
    send_.utf8 = utf8;
    const uint64_t total = send_.progressTotal;
    const bool rendered = send_.measure(call_.log);
    if (taken_) send_.progressTotal = total;
    if (rendered) return {};
    return fail(call_.log, Cause::RenderFailed, "The message could not be rendered.");
}

// The message did not reach them; that it reached others is the result.
void SmtpDelivery::giveUp(std::vector<std::string>& recipients) {
    for (const std::string& recipient : recipients) {
        call_.log.logData("undelivered", recipient);
    }
    append(send_.badRecipients, recipients);
}

SmtpTransaction SmtpDelivery::nextOf(std::vector<std::string>& waiting) {
    SmtpTransaction transaction;
    transaction.isFurther = taken_;
    size_t room = room_;
    const uint64_t limit = connection_.capabilities().recipientLimit;
    if (connection_.settings.heedLimits && limit > 0) {
        room = static_cast<size_t>(std::min<uint64_t>(room, limit));
    }
    const size_t count = std::min(waiting.size(), room);
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
