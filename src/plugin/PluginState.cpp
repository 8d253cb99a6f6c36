#include "plugin/PluginState.h"

#include <algorithm>

#include "base/XString.h"
#include "mail/ClsMailMan.h"
#include "platform/Replaceable.h"
#include "platform/SysDialog.h"
#include "platform/SysFile.h"
#include "plugin/HtmlLogo.h"

namespace tv {
namespace {

constexpr size_t kLongestDirectory = 260;
// How long a connection that is dropped waits for each of its good-byes. A host does not expect a
// call that only resets things to wait for a server.
constexpr uint32_t kFarewellMs = 500;
constexpr char kSentMailLog[] = "emailsending.log";
// Room for any reason of an exception: reporting one must not need memory.
constexpr size_t kReservedForReason = 255;

class ResetAfterSend {
public:
    explicit ResetAfterSend(PluginState& state) : state_(state) {}
    ~ResetAfterSend() {
        try {
            state_.resetEmail();
        } catch (...) {  // what is being reported matters more
        }
    }
    ResetAfterSend(const ResetAfterSend&) = delete;
    ResetAfterSend& operator=(const ResetAfterSend&) = delete;

private:
    PluginState& state_;
};

}  // namespace

const char* const kErrorTitle = "Hiba t\xF6rt\xE9nt";

PluginState& PluginState::instance() {
    return plat::Replaceable<PluginState>::get<PluginState>();
}

PluginState* PluginState::replaceInstance(PluginState* state) {
    return plat::Replaceable<PluginState>::replace(state);
}

PluginState::PluginState() {
    lastError.reserve(kReservedForReason);
}

void PluginState::initialise() {
    auto mailMan = std::make_unique<TvMailMan>();
    auto email = std::make_unique<TvEmail>();
    email->put_Utf8(true);
    if (mailMan_) {
        uint32_t& limit = mailMan_->impl().settings().idleTimeoutMs;
        limit = limit == 0 ? kFarewellMs : std::min(limit, kFarewellMs);
    }
    mailMan_ = std::move(mailMan);
    email_ = std::move(email);
}

void PluginState::setLogging() {
    if (!mailMan_) return;
    logDirectory = XString(plat::currentDirectory()).ansi();
    if (logDirectory.size() > kLongestDirectory) logDirectory.clear();
    logDirectory += '\\';
    mailMan_->put_DebugLogFilePath(logDirectory.c_str());
    mailMan_->put_SentMailLogFile(kSentMailLog);
}

void PluginState::setLogo(const char* path) {
    if (!email_) return;
    TvString contentId;
    const bool added = *path && email_->AddRelatedFile(path, contentId);
    body = added ? bodyWithLogo(body, contentId.bytes()) : bodyWithoutLogo(body);
    email_->SetHtmlBody(body.c_str());
}

void PluginState::setAttachment(const char* path) {
    if (!email_ || email_->AddFileAttachment(path)) return;
    plat::sysDialog().showError(kErrorTitle, email_->LastErrorText().bytes());
}

bool PluginState::send() {
    if (!mailMan_ || !email_) {
        lastError = "Nothing was sent: Initialise has not been called.";
        return false;
    }
    if (!mailMan_->VerifySmtpConnection()) {
        lastError = mailMan_->LastErrorText().bytes();
        return false;
    }
    lastError.clear();
    mailMan_->ClearSmtpSessionLog();
    const ResetAfterSend reset(*this);
    if (!mailMan_->SendEmail(*email_)) lastError = mailMan_->SmtpSessionLog().bytes();
    return lastError.empty();
}

void PluginState::resetEmail() {
    if (!email_) return;
    email_->ClearBcc();
    email_->ClearCC();
    email_->ClearTo();
    email_->KeepFrom();
    email_->put_Subject("");
    email_->RemovePlainTextAlternative();
    email_->RemoveHtmlAlternative();
    email_->DropAttachments();
    email_->DropRelatedItems();
}

}  // namespace tv
