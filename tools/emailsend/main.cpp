// Sends one message through the plug-in's exports alone. Whatever the command line names is looked
// at before the first export is called: a mistyped path is no message without its file.

#include <algorithm>
#include <string>
#include <string_view>

#include "advice/Advice.h"
#include "base/CodePage.h"
#include "base/XString.h"
#include "emailsend/Arguments.h"
#include "emailsend/ErrorsCommand.h"
#include "emailsend/ExitCodes.h"
#include "emailsend/Files.h"
#include "emailsend/PlugIn.h"
#include "emailsend/Process.h"
#include "emailsend/Recipients.h"
#include "emailsend/SettingsCommand.h"
#include "emailsend/Watched.h"
#include "emailsend/doctor/DoctorCommand.h"
#include "platform/SysHost.h"
#include "platform/SysWipe.h"
#include "settings/SettingsFile.h"

namespace emailsend {
namespace {

class Secret {
public:
    Secret() = default;
    ~Secret() { tv::plat::wipe(text.data(), text.capacity()); }
    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;

    std::string text;
};

// What the command line stands for, read and converted, ready for the exports.
struct Job {
    Arguments arguments;
    std::string body;
    uint64_t size = 0;  // of the body and the files
    // In the ANSI code page, which the server settings are read in.
    std::string host;
    std::string user;
    std::string authMethod;
    std::string domain;
    Secret password;
};

bool readBody(const std::string& path, std::string& body, std::string& error) {
    if (path.empty()) return true;
    if (path == "-") {
        if (!readInput(body)) error = "cannot read the body from stdin";
    } else if (!readFile(path, body, error)) {
        return false;
    }
    if (!error.empty()) return false;
    dropByteOrderMark(body);
    if (body.find('\0') == std::string::npos && tv::isValidUtf8(body)) return true;
    error = "the body is no UTF-8 text: " + path;
    return false;
}

bool toAnsi(const char* what, const std::string& utf8, std::string& ansi, std::string& error) {
    if (tv::utf8ToCodePage(tv::plat::sysHost().ansiCodePage(), utf8, ansi)) return true;
    error = std::string(what) + " has characters that this system's code page does not hold";
    return false;
}

bool readFiles(Job& job, std::string& error) {
    const Arguments& arguments = job.arguments;
    if (!readBody(arguments.htmlFile, job.body, error)) return false;
    job.size = job.body.size();
    std::vector<std::string> paths = arguments.attachments;
    for (const std::string& path : paths) {
        if (path.empty()) error = "--attach names no file";
    }
    if (!arguments.logoFile.empty()) paths.push_back(arguments.logoFile);
    return error.empty() && tryFiles(paths, job.size, error);
}

bool convertCredentials(Job& job, const Secret& utf8, std::string& error) {
    const Arguments& arguments = job.arguments;
    // Without one the plug-in would not log in at all.
    if (!arguments.user.empty() && utf8.text.empty() && !logsInAsWindowsUser(arguments)) {
        error = "--user needs a password: --password-file, or EMAILSEND_PASSWORD";
        return false;
    }
    return toAnsi("the password", utf8.text, job.password.text, error) &&
           toAnsi("--host", arguments.host, job.host, error) &&
           toAnsi("--user", arguments.user, job.user, error) &&
           toAnsi("--auth", arguments.authMethod, job.authMethod, error) &&
           toAnsi("--domain", arguments.domain, job.domain, error);
}

// One that cannot be used says that itself, when the plug-in reads it.
bool settingsNameHost(const std::string& library) {
    tv::settings::SettingsFile file(library);
    return file.refresh() || (file.current() && file.current()->host);
}

void setServer(const PlugIn& plugIn, const Job& job) {
    const Arguments& arguments = job.arguments;
    plugIn.setSmtpHost(job.host.c_str());
    plugIn.setSmtpPort(arguments.port);
    if (arguments.tls == Tls::Implicit) plugIn.setUseSSL(1);
    if (arguments.tls == Tls::StartTls) plugIn.setStartTls(1);
    if (arguments.tls == Tls::None) plugIn.setStartTls(0);
    plugIn.setSmtpUser(job.user.c_str());
    plugIn.setSmtpPassword(job.password.text.c_str());
    plugIn.setSmtpAuthMethod(job.authMethod.c_str());
    plugIn.setLoginDomain(job.domain.c_str());
    if (arguments.ntlmVersion) plugIn.setDefaultNtlmVersion(*arguments.ntlmVersion);
    if (arguments.log) plugIn.setLogging();
    if (arguments.verbose) plugIn.setVerboseLogging();
}

bool addRecipients(decltype(&::setRecipient) add, const std::vector<std::string>& addresses,
                   std::string& error) {
    for (const std::string& address : addresses) {
        if (!add(address.c_str())) {
            error = "no recipient: \"" + address + "\"";
            return false;
        }
    }
    return true;
}

// The plug-in has no result for this; it tells a user, or nobody.
bool attach(const PlugIn& plugIn, const Arguments& arguments, std::string& error) {
    const std::vector<std::string>& paths = arguments.attachments;
    if (paths.empty()) return true;
    Overheard plugInSays;
    for (const std::string& path : paths) {
        if (plugInSays.listens()) plugIn.setAttachment(path.c_str());
        const std::string complaint = plugInSays.text();
        if (plugInSays.listens() && complaint.empty()) continue;
        error = "could not attach the file " + path + (arguments.verbose ? "\n" + complaint : "");
        return false;
    }
    return true;
}

bool setMessage(const PlugIn& plugIn, const Job& job, std::string& error) {
    const Arguments& arguments = job.arguments;
    plugIn.setFromAddress(arguments.from.c_str());
    plugIn.setSubject(arguments.subject.c_str());
    if (!addRecipients(plugIn.setRecipient, arguments.to, error) ||
        !addRecipients(plugIn.setCC, arguments.cc, error) ||
        !addRecipients(plugIn.setBCC, arguments.bcc, error)) {
        return false;
    }
    if (!arguments.htmlFile.empty()) {
        plugIn.setBody(job.body.c_str());
        plugIn.setLogo(arguments.logoFile.c_str());
    }
    return true;
}

int report(int exitCode, const std::string& error) {
    const bool colours = errorsHaveColours();
    printError((colours ? "\x1b[1;31memailsend:\x1b[0m " : "emailsend: ") + error + "\n");
    return exitCode;
}

// Servers may say anything: a terminal is to take it for text, whose lines end in one way.
std::string asText(std::string_view log) {
    std::string out;
    while (!log.empty()) {
        const char c = log.front();
        const bool isLayout = c == '\n' || c == '\t';
        const size_t obeyed = isLayout ? 0 : tv::advice::obeyedByTerminals(log);
        if (c != '\r') out += obeyed > 0 ? ' ' : c;
        log.remove_prefix(std::max<size_t>(obeyed, 1));
    }
    return out;
}

int reportFailure(const Job& job, const char* lastError) {
    const tv::XString text = tv::XString::fromHost(lastError, false);
    const tv::advice::Finding finding = tv::advice::findingIn(text.utf8());
    report(exitCodeOf(finding), oneSentence(finding));
    if (job.arguments.verbose) printError(asText(text.utf8()));
    return exitCodeOf(finding);
}

int reportAccepted(const RecipientWatch& watch) {
    for (const auto& [address, code] : watch.refused()) {
        report(kAccepted, "not for " + address + ": the server answered " + std::to_string(code));
    }
    return kAccepted;
}

int send(const PlugIn& plugIn, const Job& job) {
    std::string error;
    watchForInterrupt();  // what the watch leaves on the disk is taken away in any case
    RecipientWatch watch(fileOfCode(reinterpret_cast<const void*>(plugIn.Initialise)));
    plugIn.Initialise();
    setServer(plugIn, job);
    if (!setMessage(plugIn, job, error)) return report(kUsageError, error);
    if (!attach(plugIn, job.arguments, error)) return report(kLocalFile, error);
    if (interrupted()) return report(kStopped, "stopped; no message was being sent");
    bool accepted = false;
    const std::string what =
        "emailsend: sending " + std::to_string((job.size + 1023) / 1024) + " KB to " +
        (job.arguments.host.empty() ? "the server of the settings file" : job.arguments.host);
    if (!runWatched(what, [&] { accepted = plugIn.szBrisko() != 0; })) {
        watch.tidyUp();
        endNow(report(kOutcomeUnknown, "stopped; the server may or may not have the message"));
    }
    return accepted ? reportAccepted(watch) : reportFailure(job, plugIn.getLastError());
}

int runSend(const std::vector<std::string>& words) {
    Job job;
    PlugIn plugIn;
    std::string error;
    if (!parseArguments(words, job.arguments, error)) {
        return report(kUsageError, error + " (--help shows all options)");
    }
    if (job.arguments.help || job.arguments.version) {
        printOut(job.arguments.help ? kUsage : "emailsend " EMAILSEND_VERSION "\n");
        return kAccepted;
    }
    const std::string& chosen = job.arguments.library;
    const std::string library = chosen.empty() ? libraryBesideProgram() : chosen;
    if (job.arguments.host.empty() && !settingsNameHost(library)) {
        return report(kUsageError, "--host is missing, and no settings file names the server");
    }
    Secret password;
    if (!readFiles(job, error) || !readPassword(job.arguments.passwordFile, password.text, error)) {
        return report(kLocalFile, error);
    }
    if (!convertCredentials(job, password, error)) return report(kUsageError, error);
    if (!plugIn.load(library, error)) {
        return report(kLocalFile, error);
    }
    return send(plugIn, job);
}

int run(const std::vector<std::string>& words) {
    settleIn();
    const std::string first = words.empty() ? std::string() : words.front();
    if (first != "settings" && first != "errors" && first != "doctor") return runSend(words);
    const std::vector<std::string> rest(words.begin() + 1, words.end());
    if (first == "doctor") return runDoctor(rest);
    return first == "settings" ? runSettings(rest) : runErrors(rest);
}

}  // namespace
}  // namespace emailsend

int main(int argc, char** argv) {
    return emailsend::withOutput(emailsend::run(emailsend::commandLine(argc, argv)));
}
