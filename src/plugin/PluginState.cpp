// The steps of the exports that are more than a single setter: Initialise, the body with its logo,
// attachments, the send.
#include "plugin/PluginState.h"

#include <memory>
#include <utility>

#include "advice/Advice.h"
#include "base/XString.h"
#include "mail/ClsMailMan.h"
#include "mail/SendRecord.h"
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

// Empties the message when it goes out of scope, unless it is to be kept.
class ResetAfterSend {
public:
    explicit ResetAfterSend(Workbench& bench) : bench_(bench) {}
    ~ResetAfterSend() {
        if (kept_) return;
        try {
            bench_.resetEmail();
        } catch (...) {  // what is being reported matters more; the next turn makes up for it
        }
    }
    ResetAfterSend(const ResetAfterSend&) = delete;
    ResetAfterSend& operator=(const ResetAfterSend&) = delete;

    void keep() { kept_ = true; }

private:
    Workbench& bench_;
    bool kept_ = false;
};

using settings::Trial;

Trial trialOf(const settings::Settings* file) {
    if (file && file->testFolder) return Trial::Never;  // there is nothing to connect to
    return file ? file->trial.value_or(Trial::Always) : Trial::Always;
}

void keepLog(const settings::Settings* file, TvMailMan& mailMan) {
    if (!file || !file->failures) return;
    constexpr uint32_t kUsual = 100;  // as the table of keys says
    keepFailure(*file->failures, file->keep.value_or(kUsual), mailMan.LastErrorText().bytes());
}

// What failed and what to change before all else, where the settings file asks for that; ANSI.
std::string told(const settings::Settings* file, const advice::Finding& finding, std::string text) {
    if (file && file->firstLine.value_or(false)) {
        text.insert(0, "\r\n");
        text.insert(0, XString(advice::oneSentence(finding)).ansi());
    }
    return text;
}

bool refusesWithout(const settings::Settings* file) {
    using settings::MissingAttachment;
    return file && file->missingAttachment == MissingAttachment::Refuse;
}

bool needsTrial(Trial trial, ClsMailMan& mailMan) {
    return trial == Trial::Always || (trial == Trial::First && !mailMan.seemsConnected());
}

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
        turn->missingAttachment = path;
        const auto file = turn->settingsFile.current();
        if (file && !file->messageBox.value_or(true)) return;
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
    ClsMailMan& inner = mailMan.impl();
    const ClsEmail& email = turn->email.impl();
    if (const Failure unusable = turn->settingsFile.refresh()) {
        inner.noteUnsent(email, unusable);  // where the last file that could be used has its log
        lastError.set(XString(unusable.text()).ansi());
        return false;
    }
    const auto file = turn->settingsFile.current();
    inner.useSettings(file);
    const Trial trial = trialOf(file.get());
    if (needsTrial(trial, inner) && !mailMan.VerifySmtpConnection(turn->email)) {
        keepLog(file.get(), mailMan);
        lastError.set(told(file.get(), advice::findingOf(inner.trialFailure()),
                           mailMan.LastErrorText().bytes()));
        return false;
    }
    mailMan.ClearSmtpSessionLog();
    ResetAfterSend reset(*turn);
    if (!turn->missingAttachment.empty() && refusesWithout(file.get())) {
        const Failure missing(Cause::RenderFailed,
                              "Nothing was sent: the attachment " + turn->missingAttachment +
                                  " could not be read, and the settings file " + file->file +
                                  " has \"missing-attachment = refuse\" in [message].");
        inner.noteUnsent(email, missing);
        lastError.set(XString(missing.text()).ansi());
        return false;
    }
    std::string failure;
    const bool sent = mailMan.SendEmail(turn->email);
    if (!sent) keepLog(file.get(), mailMan);
    if (!sent && trial != Trial::Always && inner.failedBeforeMessage()) {
        reset.keep();  // where no trial came before, this was one
        failure = mailMan.LastErrorText().bytes();
    } else if (!sent) {
        failure = mailMan.SmtpSessionLog().bytes();
    }
    if (!sent) {
        const auto finding = advice::findingOf(inner.sendFailure(), inner.wasLoggedIn());
        failure = told(file.get(), finding, std::move(failure));
    }
    if (file && !file->reuse.value_or(true)) inner.closeConnection();
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
