// Who a message is from and to.
#include "base/Ascii.h"
#include "mime/AddressList.h"
#include "mime/ClsEmail.h"

namespace tv {
namespace {

using enum Email2::Recipients;

constexpr std::string_view kUseBccHeader = "UseBccHeader";

}  // namespace

bool ClsEmail::AddTo(const XString& name, const XString& address) {
    Operation operation(*this, "AddTo");
    return operation.finish(addRecipients(operation.log(), To, name, address));
}

bool ClsEmail::AddCC(const XString& name, const XString& address) {
    Operation operation(*this, "AddCC");
    return operation.finish(addRecipients(operation.log(), Cc, name, address));
}

bool ClsEmail::AddBcc(const XString& name, const XString& address) {
    Operation operation(*this, "AddBcc");
    return operation.finish(addRecipients(operation.log(), Bcc, name, address));
}

// One text may hold several mailboxes; a name that is given goes to the first. Blind recipients are
// for the envelope only and have no say in the message's charset.
bool ClsEmail::addRecipients(LogBase& log, Email2::Recipients kind, const XString& name,
                             const XString& address) {
    Email2* message = root(log);
    if (!message) return false;
    const std::string_view given = trimmed(address.utf8());
    std::string_view friendly = trimmed(name.utf8());
    if (kind != Bcc && friendly == given) friendly = {};
    const auto logBoth = [&] {
        log.logData("name", friendly);
        log.logData("address", given);
    };
    if (kind != Cc || log.isVerbose()) logBoth();
    if (given.empty()) {
        log.logError("No Email Address was provided");
        return false;
    }
    std::vector<std::string_view> leftOut;
    std::vector<_tvEmailAddress> added = parseMailboxes(given, leftOut);
    if (added.empty()) {
        log.logError("invalid email address");
        logBoth();
        return false;
    }
    for (const std::string_view piece : leftOut) {
        log.logData("leftOutAsNoAddress", piece);
    }
    if (!friendly.empty()) added.front().setName(friendly);
    std::vector<_tvEmailAddress>& list = message->recipients(kind);
    for (_tvEmailAddress& mailbox : added) {
        if (kind != Bcc) chooseCharset(log, *message, mailbox.name());
        list.push_back(std::move(mailbox));
    }
    if (kind != Bcc || log.hasOption(kUseBccHeader)) message->rebuildRecipientField(kind);
    return true;
}

void ClsEmail::put_FromAddress(const XString& address) {
    Operation operation(*this, "put_FromAddress");
    Email2* message = root(operation.log());
    if (!message) return;
    operation.finish(true);
    if (address.utf8().find('@') == std::string_view::npos) return;
    const std::vector<_tvEmailAddress> mailboxes = parseMailboxes(address.utf8());
    _tvEmailAddress sender;
    unusableFrom_ = mailboxes.empty() ? trimmed(address.utf8()) : std::string_view();
    if (mailboxes.empty()) {
        operation.log().logError("invalid email address");
        operation.finish(false);
    } else {
        sender = mailboxes.front();
        if (sender.name().empty() && !fromIsKept_) sender.setName(message->from().name());
    }
    fromIsKept_ = false;
    message->from() = std::move(sender);
    chooseCharset(operation.log(), *message, message->from().name());
    message->rebuildFromField();
}

template <class Change>
void ClsEmail::change(std::string_view name, Change change) {
    Operation operation(*this, name);
    Email2* message = root(operation.log());
    if (!message) return;
    change(*message);
    startAfreshIfEmpty(operation.log(), *message);
    operation.finish(true);
}

void ClsEmail::clearRecipients(Email2::Recipients kind, std::string_view name) {
    change(name, [kind](Email2& message) {
        message.recipients(kind).clear();
        message.rebuildRecipientField(kind);
    });
}

void ClsEmail::ClearTo() {
    clearRecipients(To, "ClearTo");
}
void ClsEmail::ClearCC() {
    clearRecipients(Cc, "ClearCC");
}
void ClsEmail::ClearBcc() {
    clearRecipients(Bcc, "ClearBcc");
}

void ClsEmail::KeepFrom() {
    change("KeepFrom", [this](Email2&) { fromIsKept_ = true; });
}

void ClsEmail::DropAttachments() {
    change("DropAttachments", [](Email2& message) { message.dropAttachments(); });
}

void ClsEmail::DropRelatedItems() {
    change("DropRelatedItems", [](Email2& message) { message.dropRelatedItems(); });
}

void ClsEmail::RemovePlainTextAlternative() {
    change("RemovePlainTextAlternative", [](Email2& message) { message.removeBody("text/plain"); });
}

void ClsEmail::RemoveHtmlAlternative() {
    change("RemoveHtmlAlternative", [](Email2& message) { message.removeBody("text/html"); });
}

}  // namespace tv
