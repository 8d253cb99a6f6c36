// The message object itself: its root, its subject, and what the mail manager asks it for: envelope
// and prepared copy.
#include "mime/ClsEmail.h"

#include "mime/CharsetChoice.h"

namespace tv {

ClsEmail::ClsEmail() : root_(std::make_unique<Email2>(log_, std::make_shared<_tvEmailCommon>())) {}

ClsEmail::~ClsEmail() {
    *static_cast<volatile uint32_t*>(&alive_) = 0;
}

Email2* ClsEmail::root(LogBase& log) {
    if (!root_) {
        log.logError("No internal email object");
    } else if (!root_->isValid()) {
        log.logError("Internal email object is corrupt.");
        static_cast<void>(root_.release());  // what it points to cannot be trusted to be freed
    }
    return root_.get();
}

void ClsEmail::put_Subject(const XString& subject) {
    Operation operation(*this, "put_Subject");
    Email2* message = root(operation.log());
    if (!message) return;
    message->header().set("Subject", subject.utf8());
    chooseCharset(operation.log(), *message, subject.utf8());
    startAfreshIfEmpty(operation.log(), *message);
    operation.finish(true);
}

// An emptied message is a new one: its charset is chosen by its sender and by what comes next, not
// by what was there.
void ClsEmail::startAfreshIfEmpty(LogBase& log, Email2& root) {
    using enum Email2::Recipients;
    const bool addressed = !root.recipients(To).empty() || !root.recipients(Cc).empty() ||
                           !root.recipients(Bcc).empty();
    if (addressed || !root.isPlaceholder() || root.header().has("Subject")) return;
    root.common().codePage = 0;
    chooseCharset(log, root, root.from().name());
}

std::string ClsEmail::getSmtpReversePath(LogBase& log) const {
    const std::lock_guard guard(lock_);
    return root_ && root_->isValid() ? root_->getSmtpReversePath(log) : std::string();
}

std::vector<std::string> ClsEmail::getAllRecipientAddressesA() const {
    using enum Email2::Recipients;
    const std::lock_guard guard(lock_);
    std::vector<std::string> addresses;
    if (!root_ || !root_->isValid()) return addresses;
    for (const Email2::Recipients kind : {To, Cc, Bcc}) {
        for (const _tvEmailAddress& mailbox : root_->recipients(kind)) {
            addresses.push_back(mailbox.address());
        }
    }
    return addresses;
}

std::unique_ptr<Email2> ClsEmail::createEmailForSending(LogBase& log, bool autoMessageId) const {
    const std::lock_guard guard(lock_);
    if (!root_ || !root_->isValid()) {
        log.logError("No internal email object");
        return nullptr;
    }
    return root_->createForSending(log, autoMessageId);
}

}  // namespace tv
