// The record of one send: envelope, message, and what became of it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "log/LogBase.h"
#include "mime/OutputStream.h"

namespace tv {

struct SmtpSend {
    // Renders the prepared e-mail, with utf8 for a transaction with SMTPUTF8; gives the same bytes
    // each time. False if it does not render or out fails.
    using MimeSource = std::function<bool(LogBase&, OutputStream&, bool utf8)>;

    std::string fromAddress;
    std::vector<std::string> recipients;
    MimeSource mimeSource;  // never empty
    bool pipelining = true;
    bool checkRecipientsOnly = false;  // stop after the RCPT commands

    bool utf8 = false;  // the form of the message: UTF-8 in its header (RFC 6532), or ASCII alone

    // Set by measure, of this form.
    uint64_t mimeSize = 0;
    uint64_t stuffedSize = 0;  // with the dots that the transfer adds
    uint64_t progressTotal = 0;

    uint64_t progressDone = 0;
    // Each recipient that the server was asked about is in one of them.
    std::vector<std::string> goodRecipients;
    std::vector<std::string> badRecipients;
    // The code of each reply to a recipient, in the order of the replies; of the message, the last
    // line of the reply to it.
    std::vector<std::pair<std::string, int32_t>> codes;
    std::string finalReply;

    // The share of the progress that each recipient and the rest of the envelope stand for: about
    // the bytes of their commands and replies.
    static constexpr uint64_t kRecipientShare = 80;
    static constexpr uint64_t kEnvelopeShare = 180;

    // Renders once to learn the sizes. False if the message does not render or is empty.
    bool measure(LogBase& log);
};

}  // namespace tv
