// A real message, sent as a host program does it: by the 24 functions of the library.
#include <chrono>
#include <memory>

#include "advice/Advice.h"
#include "base/CodePage.h"
#include "emailsend/Process.h"
#include "emailsend/Watched.h"
#include "emailsend/doctor/Walk.h"
#include "platform/SysHost.h"
#include "platform/SysWipe.h"

namespace emailsend::doctor {
namespace {

// Of a whole send: each of its waits has a limit of its own.
constexpr uint32_t kLimits = 4;

// What the library reads in the ANSI code page.
std::string ansi(std::string_view utf8) {
    return tv::utf8ToCodePageLossy(tv::plat::sysHost().ansiCodePage(), utf8);
}

bool compose(const Walk& walk, const Endpoint& endpoint) {
    const PlugIn& plugIn = walk.plugIn;
    const tv::SmtpSettings& settings = endpoint.settings;
    plugIn.Initialise();
    plugIn.setSmtpHost(ansi(settings.smtpHost.utf8()).c_str());
    plugIn.setSmtpPort(endpoint.port);
    if (settings.smtpSsl) plugIn.setUseSSL(1);
    if (!settings.smtpSsl && endpoint.tls) plugIn.setStartTls(1);
    plugIn.setSmtpUser(ansi(walk.options.user).c_str());
    std::string password = walk.password.ansi();
    plugIn.setSmtpPassword(password.c_str());
    tv::plat::wipe(password.data(), password.size());
    plugIn.setSmtpAuthMethod(ansi(walk.options.authMethod).c_str());
    plugIn.setLoginDomain(ansi(walk.options.domain).c_str());
    plugIn.setFromAddress(senderOf(walk).c_str());
    plugIn.setSubject("Test message");
    plugIn.setBody(
        "<html><body><p>This message was sent to see whether mail goes out.</p></body></html>");
    plugIn.setLogo("");
    return plugIn.setRecipient(walk.options.to.c_str()) != 0;
}

}  // namespace

bool sendTestMessage(Walk& walk, const Endpoint& endpoint) {
    const Stopwatch watch;
    if (!compose(walk, endpoint)) {
        walk.report.add(failed(
            "test message", 0, watch.ms(),
            tv::Failure(tv::Cause::NoValidRecipients, "--to is no address: " + walk.options.to)));
        return false;
    }
    const auto accepted = std::make_shared<bool>(false);
    const auto send = [accepted, szBrisko = walk.plugIn.szBrisko] { *accepted = szBrisko() != 0; };
    const std::chrono::milliseconds limit(uint64_t{kLimits} * walk.limitMs());
    if (!runWatched("emailsend: sending a test message", send, limit)) {
        walk.abandoned = true;
        tv::Failure failure(tv::Cause::Timeout, interrupted()
                                                    ? "It was stopped while it went on"
                                                    : "It took too long and still goes on");
        failure.setOutcomeUnknown();
        walk.report.add(failed("test message", endpoint.port, watch.ms(), failure));
        return false;
    }
    Step step{"test message",
              endpoint.port,
              watch.ms(),
              "the server has taken it for " + walk.options.to,
              {}};
    if (!*accepted) {
        const tv::XString told = tv::XString::fromHost(walk.plugIn.getLastError(), false);
        step.state = State::Failure;
        step.finding = tv::advice::findingIn(told.utf8());
        step.found = step.finding.words;
        step.change = tv::advice::whatToChange(tv::advice::adviceOn(step.finding), true);
    }
    walk.report.add(std::move(step));
    return *accepted;
}

}  // namespace emailsend::doctor
