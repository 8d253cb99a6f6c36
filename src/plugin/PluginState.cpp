// The steps of the exports that are more than a single setter: Initialise, the body with its logo,
// attachments, the send.
#include "plugin/PluginState.h"

#include <memory>
#include <utility>

#include "base/XString.h"
#include "platform/Replaceable.h"
#include "platform/SysDialog.h"
#include "platform/SysFile.h"
#include "plugin/HtmlLogo.h"

namespace tv {
namespace {

using Turn = WorkbenchSlot::Turn;

// MAX_PATH of Windows.
constexpr size_t kLongestDirectory = 260;
constexpr char kSentMailLog[] = "emailsending.log";

class ResetAfterSend {
public:
    explicit ResetAfterSend(Workbench& bench) : bench_(bench) {}
    ~ResetAfterSend() {
        try {
            bench_.resetEmail();
        } catch (...) {  // what is being reported matters more; the next turn makes up for it
        }
    }
    ResetAfterSend(const ResetAfterSend&) = delete;
    ResetAfterSend& operator=(const ResetAfterSend&) = delete;

private:
    Workbench& bench_;
};

}  // namespace

const char* const kErrorTitle = "Hiba t\xF6rt\xE9nt";

PluginState& PluginState::instance() {
    return plat::Replaceable<PluginState>::get<PluginState>();
}

PluginState* PluginState::replaceInstance(PluginState* state) {
    return plat::Replaceable<PluginState>::replace(state);
}

void PluginState::initialise() {
    workbench.replace(std::make_shared<Workbench>());
}

void PluginState::setLogging() {
    const Turn turn(workbench);
    if (!turn) return;
    std::string directory = XString(plat::currentDirectory()).ansi();
    if (directory.size() > kLongestDirectory) directory.clear();
    directory += '\\';
    turn->mailMan.put_DebugLogFilePath(directory.c_str());
    turn->mailMan.put_SentMailLogFile(kSentMailLog);
    const std::lock_guard guard(lock_);
    logDirectory_ = std::move(directory);
}

void PluginState::setBody(const char* text) {
    std::string body(text);
    const std::lock_guard guard(lock_);
    body_.swap(body);
}

void PluginState::setLogo(const char* path) {
    const Turn turn(workbench);
    if (!turn) return;
    TvString contentId;
    const bool added = *path && turn->email.AddRelatedFile(path, contentId);
    std::string html;
    {
        const std::lock_guard guard(lock_);
        html = added ? bodyWithLogo(body_, contentId.bytes()) : bodyWithoutLogo(body_);
        body_ = html;
    }
    turn->email.SetHtmlBody(html.c_str());
}

void PluginState::setAttachment(const char* path) {
    TvString reason;
    {
        const Turn turn(workbench);
        if (!turn || turn->email.AddFileAttachment(path)) return;
        reason = turn->email.LastErrorText();
    }
    plat::sysDialog().showError(kErrorTitle, reason.bytes());
}

bool PluginState::send() {
    const Turn turn(workbench);
    if (!turn) {
        lastError.set("Nothing was sent: Initialise has not been called.");
        return false;
    }
    TvMailMan& mailMan = turn->mailMan;
    if (!mailMan.VerifySmtpConnection()) {
        lastError.set(mailMan.LastErrorText().bytes());
        return false;
    }
    mailMan.ClearSmtpSessionLog();
    const ResetAfterSend reset(*turn);
    std::string failure;
    if (!mailMan.SendEmail(turn->email)) failure = mailMan.SmtpSessionLog().bytes();
    const bool sent = failure.empty();
    lastError.set(std::move(failure));
    return sent;
}

void PluginState::resetEmail() {
    const Turn turn(workbench);
    if (turn) turn->resetEmail();
}

std::string PluginState::body() const {
    const std::lock_guard guard(lock_);
    return body_;
}

std::string PluginState::logDirectory() const {
    const std::lock_guard guard(lock_);
    return logDirectory_;
}

}  // namespace tv
