// The settings file that --write asks for: tried by a connection that goes by nothing else, before
// anything of it is on disk.
#include <algorithm>

#include "base/Ascii.h"
#include "base/Base64.h"
#include "emailsend/doctor/SettingsWriter.h"
#include "emailsend/doctor/Walk.h"
#include "log/LogNull.h"
#include "net/resolve/NameSource.h"
#include "net/tls/CipherSuites.h"
#include "platform/SysError.h"
#include "platform/SysFile.h"
#include "platform/SysProtect.h"
#include "platform/SysWipe.h"
#include "settings/SettingsFile.h"
#include "settings/SettingsParser.h"

namespace emailsend::doctor {
namespace {

using tv::Cause;
using tv::Failure;
using Seen = std::vector<std::pair<std::string, tv::plat::FileStamp>>;

// A settings file starts relative paths at its own folder, a command line at the current one.
std::string fromAnywhere(const std::string& path) {
    if (path.empty()) return path;
    return tv::settings::besides(tv::plat::currentDirectory() + '/', path);
}

// On Windows no other machine can use what is written; elsewhere nobody else can read it.
tv::XString passwordAsWritten(const tv::XString& password) {
    std::string blob;
    tv::XString out = password;
    if (!password.empty() && tv::plat::protectForMachine(password.utf8(), blob)) {
        out.setUtf8("dpapi:" + tv::base64Encode(blob));
    }
    return out;
}

// The login is to be made again as it was, not by what the server offers first.
void addLogin(const Walk& walk, const Endpoint& endpoint, Strictest& seen) {
    constexpr const char* kBindings[] = {"", "if-possible", "required"};
    const tv::SmtpSettings& settings = walk.settings;
    seen.user = settings.userName.utf8();
    seen.method = endpoint.method;
    seen.domain = settings.loginDomain.utf8();
    if (settings.ntlmVersion) seen.ntlm = std::to_string(*settings.ntlmVersion);
    seen.channelBinding = kBindings[static_cast<size_t>(settings.channelBinding)];
    const bool isOfCommandLine = settings.password == walk.password;
    if (isOfCommandLine) seen.passwordFile = fromAnywhere(walk.options.passwordFile);
    if (seen.passwordFile.empty()) seen.password = passwordAsWritten(settings.password);
}

// A login that stood and that the file could not make.
Failure cannotBeWritten(const Walk& walk, const Endpoint& endpoint) {
    if (!walk.logsIn()) return {};
    const std::string& method = endpoint.method;
    if (method == "XOAUTH2") {
        return Failure(Cause::SettingsUnusable,
                       "Nothing was written: the login was made by a token, which is not copied");
    }
    const bool isOffered = std::ranges::any_of(
        endpoint.offer.authNames,
        [&](const std::string& name) { return tv::equalsIgnoreCase(name, method); });
    if (isOffered) return {};
    return Failure(Cause::SettingsUnusable, "Nothing was written: the login was made by " + method +
                                                ", which the server does not offer, and a settings "
                                                "file goes by what is offered");
}

Strictest strictest(const Walk& walk, const Endpoint& endpoint) {
    Strictest seen;
    seen.host = walk.settings.smtpHost.utf8();
    seen.port = endpoint.settings.smtpPort;
    seen.implicitTls = endpoint.settings.smtpSsl;
    if (endpoint.tls) {
        seen.version = endpoint.tls->version;
        seen.oldSuite = endpoint.tls->suite && endpoint.tls->suite->isOld();
    }
    seen.verified = endpoint.trusted;
    seen.roots = walk.settings.trustAnchorsFile.utf8();
    seen.rootsAlso = walk.settings.furtherAnchorsFile.utf8();
    seen.pin = endpoint.pin;
    if (const tv::NameSource* names = walk.names()) {
        for (const tv::NameServer& server : names->servers) {
            seen.nameServers += (seen.nameServers.empty() ? "" : ", ") + toText(server);
        }
        seen.hosts = names->hostsPath;
    }
    if (walk.file) seen.helo = walk.file->helo.value_or("");
    addLogin(walk, endpoint, seen);
    return seen;
}

// By the text alone, without a login: there is one in all.
Failure tryText(const Walk& walk, const std::string& path, const std::string& text) {
    tv::settings::Settings file;
    Seen seen;
    if (Failure failure = tv::settings::settingsOf(text, path, file, seen)) return failure;
    file.revision = 1;
    tv::SmtpConnImpl connection;
    connection.settings.connectTimeoutMs = connectTimeoutMs(walk.limitMs());
    connection.settings.idleTimeoutMs = idleTimeoutMs(walk.limitMs());
    tv::SettingsOverlay overlay(connection.settings, &file);
    tv::LogNull quiet;
    if (Failure failure = overlay.lay(quiet)) return failure;
    Observer observer(walk.limitMs());
    tv::CallContext call = walk.call(observer);
    call.names = overlay.names();
    Failure failure = observer.end(connection.smtpConnect(call));
    connection.sayGoodbye();
    return failure;
}

// Nothing that was there is touched, and nothing is left that a send would refuse.
Failure write(const std::string& path, const std::string& text) {
    tv::plat::SysFile file;
    if (!file.openNew(path)) {
        return Failure(Cause::SettingsUnusable, path +
                                                    " cannot be made (what exists is not "
                                                    "overwritten): " +
                                                    tv::plat::lastErrorWords());
    }
    const bool good = file.write(text.data(), text.size());
    Failure failure;
    tv::settings::Settings read;
    Seen seen;
    if (file.close() && good) {
        failure = tv::settings::readSettings(path, read, seen);
    } else {
        failure = Failure(Cause::SettingsUnusable, path + " cannot be written");
    }
    if (failure) tv::plat::removeFile(path);
    return failure;
}

}  // namespace

void writeSettings(Walk& walk, const Endpoint& endpoint) {
    const Stopwatch watch;
    if (const Failure failure = cannotBeWritten(walk, endpoint)) {
        Step step = failed("settings written", 0, watch.ms(), failure);
        step.change = "Write the file by hand, with that login in [login].";
        walk.report.add(std::move(step));
        return;
    }
    const std::string path = fromAnywhere(walk.options.write);
    std::string text = settingsText(strictest(walk, endpoint));
    const Failure untrue = tryText(walk, path, text);
    const Failure unwritten = untrue ? Failure() : write(path, text);
    tv::plat::wipe(text.data(), text.size());
    if (untrue || unwritten) {
        Step step = failed("settings written", 0, watch.ms(), untrue ? untrue : unwritten);
        if (unwritten) step.change = "Name another file with --write.";
        walk.report.add(std::move(step));
        return;
    }
    if (!endpoint.trusted && !endpoint.pin.empty()) {
        walk.report.settle("certificate", endpoint.port,
                           "The file that was written pins it: with that in force the pin holds.");
    }
    walk.report.add({"settings written",
                     0,
                     watch.ms(),
                     path + ", and a connection that goes by it alone stands",
                     {}});
}

}  // namespace emailsend::doctor
