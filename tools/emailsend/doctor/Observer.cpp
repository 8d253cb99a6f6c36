// Where one stage ends and the next begins.
#include "emailsend/doctor/Observer.h"

#include <utility>

#include "emailsend/ExitCodes.h"
#include "emailsend/Process.h"
#include "platform/SysClock.h"

namespace emailsend::doctor {
namespace {

using tv::Stage;

constexpr uint32_t kHeartbeatMs = 100;

// Of a command as the dialogue shows it; a login goes on in lines of its own.
Stage stageOfCommand(std::string_view shown, Stage before) {
    constexpr std::pair<std::string_view, Stage> kVerbs[] = {
        {"EHLO", Stage::Ehlo},  {"HELO", Stage::Ehlo},   {"STARTTLS", Stage::StartTls},
        {"AUTH", Stage::Login}, {"MAIL", Stage::Sender}, {"RCPT", Stage::Recipients},
        {"RSET", Stage::Data},  {"QUIT", Stage::Data},
    };
    for (const auto& [verb, stage] : kVerbs) {
        if (shown.starts_with(verb)) return stage;
    }
    return before == Stage::None ? Stage::Login : before;
}

std::string inSeconds(uint32_t ms) {
    return std::to_string(ms / 1000) + " s";
}

}  // namespace

void endStopped() {
    printError("emailsend: stopped; no message was being sent\n");
    endNow(kStopped);
}

uint64_t Observer::elapsedMs() const {
    return tv::plat::sysClock().tickMs() - begunMs_;
}

void Observer::begin(Stage stage) {
    parts_[static_cast<size_t>(stage_)].ms += elapsedMs();
    stage_ = stage;
    begunMs_ = tv::plat::sysClock().tickMs();
}

tv::Failure Observer::end(tv::Failure failure) {
    begin(Stage::None);
    const Stage stage = std::exchange(overdue_, Stage::None);
    if (!failure || stage == Stage::None) return failure;
    const bool any = !of(stage).replies.empty() ||
                     failure.text().find("a line without its end") != std::string::npos;
    return tv::Failure(tv::Cause::Timeout,
                       any ? "The server was too slow (overload, or a tarpit): its reply was not "
                             "complete after " +
                                 inSeconds(limitMs_)
                           : "The server said nothing for " + inSeconds(limitMs_))
        .at(stage);
}

bool Observer::enterContext(std::string_view name, int) {
    contexts_.emplace_back(name);
    if (name == "connectSocket_v2") {
        greeted_ = false;
        for (Part& part : parts_) {
            part.replies.clear();
        }
        begin(Stage::Connect);
    }
    if (name == "SslHandshake") begin(Stage::TlsHandshake);
    return true;
}

bool Observer::leaveContext() {
    if (contexts_.empty()) return true;
    const std::string name = std::move(contexts_.back());
    contexts_.pop_back();
    if (name == "SslHandshake" || name == "connectSocket_v2") {
        begin(greeted_ ? Stage::Ehlo : Stage::Greeting);
    }
    return true;
}

bool Observer::abortRequested() {
    if (interrupted()) endStopped();
    // How long a connection may take the engine knows itself, which has several addresses to try.
    const bool isTimed = overdue_ == Stage::None && stage_ != Stage::Connect;
    if (isTimed && elapsedMs() >= limitMs_) overdue_ = stage_;
    return overdue_ != Stage::None;
}

uint32_t Observer::heartbeatMs() const {
    return kHeartbeatMs;
}

void Observer::textEvent(std::string_view name, std::string_view text) {
    if (name == "SmtpCmdSent" && text.starts_with("HELO")) refusedEhlo_ = of(Stage::Ehlo).replies;
    if (name == "SmtpCmdSent") {
        begin(stageOfCommand(text, stage_));
        parts_[static_cast<size_t>(stage_)].replies.clear();
    }
    if (name != "SmtpCmdResp") return;
    greeted_ = true;
    parts_[static_cast<size_t>(stage_)].replies.emplace_back(text);
}

}  // namespace emailsend::doctor
