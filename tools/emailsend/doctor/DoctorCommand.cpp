// The order of the steps, and what is said where all of them went well.
#include "emailsend/doctor/DoctorCommand.h"

#include "emailsend/ExitCodes.h"
#include "emailsend/Files.h"
#include "emailsend/Process.h"
#include "emailsend/doctor/Walk.h"
#include "mail/AutoFix.h"
#include "platform/SysWipe.h"

namespace emailsend {
namespace doctor {
namespace {

// Those that mail goes to and is handed in at.
constexpr int32_t kUsualPorts[] = {25, 465, 587};

std::vector<int32_t> portsOf(const Walk& walk) {
    const bool isNamed = walk.options.port != 0 || (walk.file && walk.file->port);
    if (isNamed) {
        tv::SmtpSettings corrected = walk.settings;
        if (corrected.autoFix) tv::smtp::autoFix(corrected);
        return {corrected.smtpPort};
    }
    return {std::begin(kUsualPorts), std::end(kUsualPorts)};
}

std::string allIsWell(const Walk& walk, const Endpoint& endpoint) {
    const tv::SmtpSettings& settings = endpoint.settings;
    std::string sentence = "Nothing is amiss: mail can go to " +
                           std::string(settings.smtpHost.utf8()) + ", port " +
                           std::to_string(endpoint.port);
    if (endpoint.tls) {
        sentence +=
            std::string(settings.smtpSsl ? ", by TLS from the first byte" : ", by STARTTLS") +
            " (" + std::string(tv::tls::versionName(endpoint.tls->version)) + ")";
    }
    if (walk.logsIn()) sentence += ", with a login";
    return harmless(sentence) + '.';
}

void refuseToWrite(Walk& walk) {
    Step step{"settings written", 0, 0, "nothing was, because not all worked", {}};
    step.state = State::Warning;
    walk.report.add(std::move(step));
}

int walkAll(Walk& walk) {
    findLibrary(walk);
    const bool hasAddresses = findHost(walk) && findAddresses(walk);
    if (hasAddresses) {
        for (const int32_t port : portsOf(walk)) {
            if (tryAddresses(walk, port)) lookAt(walk, port);
        }
    }
    Endpoint* const best = bestEndpoint(walk);
    bool good = best && useEndpoint(walk, *best);
    const bool sends = walk.options.send && walk.hasLibrary && walk.settingsUsable;
    if (good && sends) good = sendTestMessage(walk, *best);
    if (!walk.options.write.empty()) {
        if (good) {
            writeSettings(walk, *best);
        } else {
            refuseToWrite(walk);
        }
    }
    return walk.report.finish(best ? allIsWell(walk, *best) : "", best ? best->port : 0);
}

}  // namespace
}  // namespace doctor

int runDoctor(const std::vector<std::string>& words) {
    doctor::Options options;
    std::string error;
    if (!doctor::parseOptions(words, options, error)) {
        printError("emailsend: " + error + " (emailsend doctor --help shows all options)\n");
        return kUsageError;
    }
    if (options.help) {
        printOut(doctor::kUsage);
        return kAccepted;
    }
    tv::XString password;
    password.markSecret();
    if (!options.user.empty()) {
        std::string read;
        const bool good = readPassword(options.passwordFile, read, error);
        password.setUtf8(read);
        tv::plat::wipe(read.data(), read.size());
        if (!good) {
            printError("emailsend: " + error + "\n");
            return kLocalFile;
        }
    }
    doctor::Report report(options.json);
    doctor::Walk walk{options, password, report,
                      options.library.empty() ? libraryBesideProgram() : options.library};
    const int code = doctor::walkAll(walk);
    if (walk.abandoned) endNow(withOutput(code));
    return code;
}

}  // namespace emailsend
