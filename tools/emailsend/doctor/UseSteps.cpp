// The second connection, to the endpoint that serves best: whether the TLS session is resumed, one
// login, and whether the server takes sender and recipient.
#include <algorithm>
#include <string_view>
#include <tuple>

#include "base/Ascii.h"
#include "emailsend/doctor/Walk.h"
#include "mail/smtp/SmtpAuth.h"
#include "mail/smtp/SmtpCommand.h"
#include "mail/smtp/SmtpFailure.h"

namespace emailsend::doctor {
namespace {

using tv::Cause;
using tv::Failure;
using tv::Stage;

struct Use {
    Walk& walk;
    Endpoint& endpoint;
    Observer seen{walk.limitMs()};
    tv::SmtpConnImpl connection = {};

    uint64_t ms(Stage stage) const { return seen.of(stage).ms; }
    bool tell(const char* name, Stage stage, const Failure& failure, std::string found);
};

// True where nothing failed.
bool Use::tell(const char* name, Stage stage, const Failure& failure, std::string found) {
    if (failure) {
        const bool loggedIn = !connection.peer().login.empty() && stage != Stage::Login;
        walk.report.add(failed(name, endpoint.port, ms(stage), failure, loggedIn));
    } else {
        walk.report.add({name, endpoint.port, ms(stage), std::move(found), {}});
    }
    return !failure;
}

bool connectAgain(Use& use) {
    tv::SmtpSettings settings = use.endpoint.settings;
    settings.password = use.walk.settings.password;
    settings.connectTimeoutMs = connectTimeoutMs(use.walk.limitMs());
    settings.idleTimeoutMs = idleTimeoutMs(use.walk.limitMs());
    settings.requireSslCertVerify = false;  // the verdict is known
    settings.pinnedKeys.clear();
    use.connection.settings = std::move(settings);
    use.connection.lendTlsSessions(use.endpoint.sessions);
    tv::CallContext call = use.walk.call(use.seen);
    const Failure failure = use.seen.end(use.connection.smtpConnect(call));
    if (!failure) return true;
    return use.tell("second connection", failure.stage(), failure, {});
}

// Whom the first verdict was about is who is there now. True where that is so.
bool tellResumption(Use& use) {
    const tv::tls::Negotiated* tls = use.connection.negotiated();
    if (!tls && !use.endpoint.tls) return true;
    const bool isSame =
        tls && use.endpoint.tls && (tls->resumed || tls->leaf == use.endpoint.tls->leaf);
    Step step{"resumption", use.endpoint.port, use.ms(Stage::TlsHandshake), {}, {}};
    if (!isSame) {
        step.state = State::Warning;
        step.found = "the second connection shows another certificate than the first";
        step.change = "Pins and logins want one certificate on all servers behind this name.";
    } else {
        step.found = tls->resumed ? "the session is resumed" : "a full handshake once more";
    }
    use.walk.report.add(std::move(step));
    return isSame;
}

// Whoever listens would have the password.
bool refuseInClear(Use& use) {
    const Failure failure(Cause::AuthFailure, "No login was made: the connection is not encrypted");
    Step step = failed("login", use.endpoint.port, 0, failure);
    step.change = "Have the server offer TLS; --login-in-clear logs in all the same.";
    use.walk.report.add(std::move(step));
    return false;
}

// Nobody knows whose the other one is.
bool refuseUnlike(Use& use) {
    const Failure failure(Cause::AuthFailure,
                          "No login was made: the second connection shows another certificate than "
                          "the first");
    Step step = failed("login", use.endpoint.port, 0, failure);
    step.change =
        "Give all servers behind this name one certificate, or name one of them with --host.";
    use.walk.report.add(std::move(step));
    return false;
}

// What the file asks for before a password is sent, as a pin, nobody knows.
bool refuseUnsettled(Use& use) {
    Step step{"login", use.endpoint.port, 0, "none was made: the settings file cannot be used", {}};
    step.state = State::Warning;
    use.walk.report.add(std::move(step));
    return false;
}

bool tellLogin(Use& use, bool isSame) {
    if (!use.walk.settingsUsable) return refuseUnsettled(use);
    if (!isSame) return refuseUnlike(use);
    const bool hasOffer = !use.endpoint.offer.authNames.empty();
    if (!use.connection.isTls() && hasOffer && !use.walk.options.loginInClear) {
        return refuseInClear(use);
    }
    tv::CallContext call = use.walk.call(use.seen);
    Failure failure = use.seen.end(tv::smtpAuthenticate(call, use.connection));
    const std::string& noLogin = use.connection.noLogin();
    if (!failure && !noLogin.empty()) failure = Failure(Cause::AuthFailure, noLogin);
    const std::string who = use.connection.peer().login;
    const size_t blank = std::min(who.find(' '), who.size());
    const std::string method = tv::replaceAll(who.substr(0, blank), "_", "-");
    if (!failure) use.endpoint.method = method;
    return use.tell("login", Stage::Login, failure, "by " + method + " as" + who.substr(blank));
}

// A command of the envelope, and what its reply means.
Failure say(Use& use, const std::string& command, Cause cause, Stage stage) {
    tv::CallContext call = use.walk.call(use.seen);
    tv::SmtpResponse reply;
    Failure failure = use.seen.end(use.connection.smtpSendGet2(call, command, reply));
    if (failure) return std::move(failure).at(stage);
    if (reply.isSuccess()) return {};
    return tv::smtp::refused(use.seen, cause,
                             "The server refused " + std::string(tv::trimmed(command)) + ": ",
                             reply)
        .at(stage);
}

bool tellEnvelope(Use& use) {
    const Options& options = use.walk.options;
    const std::string sender = tv::smtp::bareAddress(senderOf(use.walk));
    const std::string recipient = tv::smtp::recipientAddress(options.to);
    const Failure refusedSender =
        say(use, tv::smtp::mailFromCommand(sender, {}), Cause::FromFailure, Stage::Sender);
    bool good = use.tell("sender", Stage::Sender, refusedSender, sender + " is taken");
    if (good) {
        const Failure refusedRecipient = say(use, tv::smtp::rcptToCommand(recipient, {}),
                                             Cause::NoValidRecipients, Stage::Recipients);
        good = use.tell("recipient", Stage::Recipients, refusedRecipient, recipient + " is taken");
    }
    tv::CallContext call = use.walk.call(use.seen);
    use.connection.smtpRset(call);
    // It follows what is to be told, and says no more itself.
    std::ignore = use.seen.end({});
    return good;
}

}  // namespace

std::string senderOf(const Walk& walk) {
    const Options& options = walk.options;
    if (walk.file && walk.file->fromAlways) return *walk.file->fromAlways;
    if (!options.from.empty()) return options.from;
    if (walk.file && walk.file->from) return *walk.file->from;
    const std::string user(walk.settings.userName.utf8());
    return user.find('@') == std::string::npos ? options.to : user;
}

bool useEndpoint(Walk& walk, Endpoint& endpoint) {
    if (endpoint.distrusted) return false;
    Use use{walk, endpoint};
    if (!connectAgain(use)) return false;
    const bool isSame = tellResumption(use);
    if (walk.logsIn() && !tellLogin(use, isSame)) return false;
    return walk.options.to.empty() || tellEnvelope(use);
}

}  // namespace emailsend::doctor
