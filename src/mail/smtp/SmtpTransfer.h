// One mail transaction on a greeted connection: MAIL FROM, RCPT TO, DATA, the message, its end.
#pragma once

#include <string>
#include <vector>

#include "base/Failure.h"
#include "mail/smtp/SmtpConnImpl.h"
#include "mail/smtp/SmtpSend.h"
#include "net/stream/CallContext.h"

namespace tv {

// Whom it is for, and what the server said of each.
struct SmtpTransaction {
    std::vector<std::string> recipients;  // bare addresses
    bool isFurther = false;               // the server has the message for others already

    std::vector<std::string> accepted;
    std::vector<std::string> refused;
    std::vector<std::string> tooMany;  // no room for them in this one
};

class SmtpTransfer {
public:
    // send has been measured.
    SmtpTransfer(CallContext& call, SmtpConnImpl& connection, SmtpSend& send,
                 SmtpTransaction& transaction)
        : connection_(connection), send_(send), transaction_(transaction), call_(call) {}

    // Nothing where the server has taken the message. A refusal leaves the connection open after
    // RSET, everything else that fails closes it.
    Failure sendSmtpEmail();

private:
    class DataSink;

    // The envelope, to where the server waits for the message (or has the recipients checked).
    Failure sendNonPipelining();
    Failure sendWithPipelining();

    Failure queueMailFrom();
    Failure queueRcptTo(const std::string& recipient);
    Failure sendRcptTo(const std::string& recipient);
    Failure readRcptTo(const std::string& recipient, SmtpResponse& reply);
    Failure sendFlights();
    Failure sendFlight();
    bool dataIsPipelined() const;
    size_t queueFlight(size_t first);
    Failure readPipelinedMailReply();
    Failure readFlightReplies(size_t first, size_t end);
    Failure readPipelinedDataReply();
    Failure endEmptyMessage();
    Failure strange354(Cause cause);

    Failure smtpMailFrom();
    Failure sendRecipients();
    Failure checkAccepted();
    Failure smtpData();

    Failure transferMessage();
    Failure sendDataToSmtp();
    Failure streamMessage();
    Failure earlyWords();
    Failure answeredTooEarly();
    Failure replyToEnd(SmtpResponse& reply);
    Failure finishMessage();
    Failure judgeFinalReply(const SmtpResponse& reply);

    Failure refuse(Cause cause, const std::string& what, const SmtpResponse& reply);
    Failure answeredWith(Cause cause, const std::string& what, const SmtpResponse& reply);
    Failure recipientsRefused(Cause cause, const std::string& sentence);
    Failure noValidRecipients();
    Failure lostCommand(Failure failure);
    void close() { connection_.closeSmtpConnection(call_); }
    void advance(uint64_t amount);
    std::string senderStep() const;
    std::string recipientStep(const std::string& recipient) const;

    SmtpConnImpl& connection_;
    SmtpSend& send_;
    SmtpTransaction& transaction_;
    CallContext& call_;
    std::string lastRefusal_;  // of a recipient, and the reply that it was
    SmtpResponse refusedReply_;
    Failure senderRefusal_;      // in a flight whose other replies are still to be read
    bool mayReconnect_ = false;  // nothing of the message has left, and a new connection may do
};

}  // namespace tv
