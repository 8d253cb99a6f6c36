// What lies on this machine: the library, the settings file that counts for it, and what both make
// of the command line.
#include "emailsend/Process.h"
#include "emailsend/doctor/Walk.h"
#include "log/LogNull.h"
#include "mail/MailManText.h"
#include "platform/SysHost.h"
#include "settings/SettingsFile.h"

namespace emailsend::doctor {
namespace {

using tv::settings::SettingsFile;

// What the host program would set.
tv::SmtpSettings settingsOf(const Options& options, const tv::XString& password) {
    tv::SmtpSettings settings;
    settings.smtpHost =
        tv::smtp::tidySmtpHost(tv::XString(options.host), tv::plat::sysHost().ansiCodePage());
    if (options.port != 0) settings.smtpPort = options.port;
    settings.smtpSsl = options.tls == Tls::Implicit;
    settings.startTls = options.tls == Tls::StartTls;
    settings.userName.setUtf8(options.user);
    settings.password = password;
    settings.authMethod = tv::smtp::tidyAuthMethod(tv::XString(options.authMethod));
    settings.loginDomain.setUtf8(options.domain);
    return settings;
}

std::string whereLookedFor(const std::string& library) {
    std::string all;
    for (const std::string& place : SettingsFile::places(library)) {
        all += (all.empty() ? "" : ", ") + place;
    }
    return all;
}

void tellFile(Walk& walk, uint64_t ms) {
    const tv::settings::Settings& file = *walk.file;
    Step step{"settings file", 0, ms, realPath(file.file), {}};
    for (const std::string& line : file.inForce) {
        step.found += (&line == &file.inForce.front() ? ": " : "; ") + line;
    }
    const bool otherHost = file.host && !walk.options.host.empty() &&
                           !(walk.settings.smtpHost == tv::XString(*file.host));
    if (otherHost) {
        step.state = State::Warning;
        step.change = "Take --host away or correct the file: what the file says counts.";
    }
    walk.report.add(std::move(step));
}

// The walk goes on by the command line alone, for what can be seen all the same.
void tellUnusable(Walk& walk, uint64_t ms, const tv::Failure& failure) {
    Step step = failed("settings file", 0, ms, failure);
    step.change = "Correct it first: until then a send is refused, and nothing goes out.";
    walk.report.add(std::move(step));
}

}  // namespace

void findLibrary(Walk& walk) {
    const Stopwatch watch;
    std::string error;
    walk.hasLibrary = walk.plugIn.load(walk.library, error);
    if (walk.hasLibrary) {
        walk.report.add({"library", 0, watch.ms(), realPath(walk.library), {}});
        return;
    }
    Step step = failed("library", 0, watch.ms(), tv::Failure(tv::Cause::Internal, error));
    step.change = "Name the plug-in with --library, or put it beside this program.";
    walk.report.add(std::move(step));
}

bool findHost(Walk& walk) {
    const Stopwatch watch;
    tv::LogNull quiet;
    walk.settings = settingsOf(walk.options, walk.password);
    SettingsFile file(walk.library);
    const tv::Failure unreadable = file.refresh();
    walk.file = file.current();
    if (walk.file) tellFile(walk, watch.ms());
    walk.overlay = std::make_unique<tv::SettingsOverlay>(walk.settings, walk.file.get());
    const tv::Failure unusable = walk.overlay->lay(quiet);
    walk.settingsUsable = !unreadable && !unusable;
    if (!walk.settingsUsable) {
        tellUnusable(walk, watch.ms(), unreadable ? unreadable : unusable);
    } else if (!walk.file) {
        walk.report.add({"settings file",
                         0,
                         watch.ms(),
                         "there is none; looked for " + whereLookedFor(walk.library),
                         {}});
    }
    if (!walk.settings.smtpHost.empty()) return true;
    Step step =
        failed("server", 0, 0, tv::Failure(tv::Cause::NoSmtpHostname, "No mail server is named"));
    step.change = "Name the mail server: --host, or host in [server] of the settings file.";
    walk.report.add(std::move(step));
    return false;
}

}  // namespace emailsend::doctor
