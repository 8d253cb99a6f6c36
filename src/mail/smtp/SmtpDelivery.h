// One send on an open session: the transactions it takes until each recipient was asked about.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/Failure.h"
#include "mail/smtp/SmtpConnImpl.h"
#include "mail/smtp/SmtpSend.h"
#include "mail/smtp/SmtpTransfer.h"
#include "net/stream/CallContext.h"

namespace tv {

// The first transaction gives the result. Once the server has taken the message for somebody, what
// fails later stands in the log alone, and nothing allows the whole to be sent again.
class SmtpDelivery {
public:
    // send has been measured; its result lists start anew.
    SmtpDelivery(CallContext& call, SmtpConnImpl& connection, SmtpSend& send)
        : connection_(connection), send_(send), call_(call) {}

    // Nothing where the server has taken the message for at least one recipient.
    Failure deliver();

private:
    struct Groups;

    Failure senderFits();
    Failure sortRecipients(Groups& groups);
    std::string_view obstacle(std::string_view address) const;
    Failure noRecipients();
    bool nobodyAccepted(const Failure& failure) const;
    Failure deliverTo(std::vector<std::string> waiting, bool utf8);
    Failure deliverToUtf8(std::vector<std::string> waiting, Failure before);
    std::vector<std::string> withoutServed(std::vector<std::string> waiting) const;
    Failure takeForm(bool utf8);
    SmtpTransaction nextOf(std::vector<std::string>& waiting);
    void giveUp(std::vector<std::string>& recipients);

    SmtpConnImpl& connection_;
    SmtpSend& send_;
    CallContext& call_;
    bool taken_ = false;      // the server has the message for somebody
    size_t room_ = SIZE_MAX;  // recipients that are tried in one transaction
};

}  // namespace tv
