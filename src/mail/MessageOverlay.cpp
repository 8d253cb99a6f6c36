// Key by key, from what the file says to header and envelope.
#include "mail/MessageOverlay.h"

#include <string>

#include "base/CodePage.h"

namespace tv {
namespace {

_tvEmailAddress mailboxOf(const std::string& text) {
    const auto all = parseMailboxes(text);
    return all.empty() ? _tvEmailAddress() : all.front();
}

void layOverSender(const settings::Settings& file, Email2& message) {
    const bool named = !message.from().empty();
    const auto& wanted = file.fromAlways ? file.fromAlways : named ? std::nullopt : file.from;
    if (!wanted) return;
    const _tvEmailAddress host = message.from();
    message.from() = mailboxOf(*wanted);
    message.rebuildFromField();
    if (named && host.address() != message.from().address()) {
        message.header().set("Reply-To", formatAddressList({&host, 1}, kCodePageUtf8));
    }
}

}  // namespace

bool layOverMessage(LogBase& log, const settings::Settings& file, Email2& message) {
    layOverSender(file, message);
    MimeHeader& header = message.header();
    if (file.replyTo) header.set("Reply-To", *file.replyTo);
    const std::string& from = message.from().address();
    const size_t at = from.rfind('@');
    if (file.messageIdDomain == settings::IdDomain::Sender && at != std::string::npos) {
        const std::string id(header.get("Message-ID"));
        header.set("Message-ID", id.substr(0, id.rfind('@')) + from.substr(at) + '>');
    }
    if (file.logoDisposition == settings::LogoDisposition::Inline) message.showRelatedInline();
    if (file.textFiles == settings::TextFiles::Exact) message.keepTextFilesExact();
    if (file.emptySubject == settings::EmptySubject::Keep) header.addEmpty("Subject");
    for (const std::string& field : file.fields) {
        const size_t colon = field.find(':');
        header.set(field.substr(0, colon), field.substr(colon + 1));
    }
    return !file.textAlternative.value_or(false) || message.addTextAlternative(log);
}

void layOverEnvelope(LogBase& log, const settings::Settings& file, const Email2& message,
                     SmtpSend& send) {
    if (file.fromAlways || send.fromAddress.empty()) send.fromAddress = message.from().address();
    if (file.envelopeSender) send.fromAddress = firstAddress(*file.envelopeSender);
    for (const std::string& address : file.bcc) {
        send.recipients.push_back(firstAddress(address));
    }
    if (!file.redirect || send.recipients.empty()) return;
    for (const std::string& recipient : send.recipients) {
        log.logData("redirected", recipient);
    }
    log.logInfo(
        "Warning: a test. The message goes to \"redirect\" of [test] in the settings file, "
        "to none of its recipients.");
    send.recipients = {firstAddress(*file.redirect)};
}

}  // namespace tv
