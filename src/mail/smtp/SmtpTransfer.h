// One mail transaction on a greeted connection: MAIL FROM, RCPT TO, DATA, the message, its end.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "log/LogBase.h"
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

    // True if the server has taken the message. A refusal leaves the connection open after RSET,
    // everything else that fails closes it. send.retryAllowed is set only where the server cannot
    // have the message.
    bool sendSmtpEmail();

private:
    enum class Mail { Accepted, Refused, Unusable };
    class DataSink;

    // The envelope; true when the server waits for the message (or has the recipients checked).
    bool sendNonPipelining();
    bool sendWithPipelining();

    bool queueMailFrom();
    bool queueRcptTo(const std::string& recipient);
    bool sendRcptTo(const std::string& recipient);
    bool readRcptTo(const std::string& recipient);
    bool sendFlight();
    size_t queueFlight(size_t first);
    Mail readPipelinedMailReply();
    bool readFlightReplies(size_t first, size_t end, bool mailRefused);
    bool readPipelinedDataReply(bool mailRefused);
    bool endEmptyMessage();
    bool strange354(SmtpStatus status);

    bool smtpMailFrom();
    bool sendRecipients();
    bool checkAccepted();
    bool smtpData();

    bool transferMessage();
    bool sendDataToSmtp();
    bool streamMessage();
    bool hasWords();
    bool answeredTooEarly();
    std::optional<SmtpResponse> replyToEnd();
    bool finishMessage();
    bool judgeFinalReply(const SmtpResponse& reply);

    bool refuse(SmtpStatus status, const std::string& what);
    bool noValidRecipients();
    bool noteLostCommand();
    void close() { connection_.closeSmtpConnection(call_); }
    void advance(uint64_t amount);
    std::string senderStep() const;
    std::string recipientStep(const std::string& recipient) const;

    SmtpConnImpl& connection_;
    SmtpSend& send_;
    SmtpTransaction& transaction_;
    CallContext& call_;
    std::string lastRefusal_;  // of a recipient
};

}  // namespace tv
