// One port of the server: who takes a connection there, what is said in clear and over TLS, and
// what the server offers.
#include <algorithm>
#include <string_view>

#include "base/Ascii.h"
#include "emailsend/doctor/Walk.h"
#include "mail/AutoFix.h"
#include "mail/smtp/SmtpAuth.h"
#include "net/Socket2.h"
#include "net/stream/SChannelTolvane.h"
#include "net/tls/CipherSuites.h"
#include "net/tls/KeyShare.h"

namespace emailsend::doctor {
namespace {

using tv::Cause;
using tv::Failure;
using tv::Stage;

constexpr size_t kMostAddresses = 8;
constexpr uint32_t kConnectLimitMs = 10000;
// The other way of TLS is a guess: who speaks it does so at once.
constexpr uint32_t kGuessLimitMs = 5000;
constexpr uint64_t kSlowMs = 5000;

// One look at an endpoint: a connection as far as the introduction.
struct Look {
    Look(const Walk& walk, tv::SmtpSettings settings, uint32_t limitMs) : seen(limitMs) {
        connection.settings = std::move(settings);
        connection.settings.connectTimeoutMs = connectTimeoutMs(limitMs);
        connection.settings.idleTimeoutMs = idleTimeoutMs(limitMs);
        // What verification says is found out without ending the connection for it.
        connection.settings.requireSslCertVerify = false;
        connection.settings.pinnedKeys.clear();
        tv::CallContext call = walk.call(seen);
        failure = seen.end(connection.smtpConnect(call));
    }
    bool isImplicit() const { return connection.settings.smtpSsl; }
    // TLS stands, or what came in clear was the beginning of a greeting at least.
    bool isRightWay() const {
        if (isImplicit()) return failure.stage() != Stage::TlsHandshake;
        const auto& lines = seen.of(Stage::Greeting).replies;
        const bool isGreeting = !lines.empty() && lines.front().starts_with("2");
        return failure.stage() != Stage::Greeting || isGreeting;
    }

    Observer seen;
    tv::SmtpConnImpl connection;
    Failure failure;
};

std::string joined(const std::vector<std::string>& words, std::string_view between) {
    std::string all;
    for (const std::string& word : words) {
        all += (all.empty() ? "" : std::string(between)) + word;
    }
    return all;
}

bool failedAt(const Look& look, std::initializer_list<Stage> stages) {
    return look.failure && std::ranges::find(stages, look.failure.stage()) != stages.end();
}

// A step of a look: what failed there, or what was found. True where nothing failed.
bool tell(Walk& walk, const Look& look, Step step, std::initializer_list<Stage> stages) {
    for (const Stage stage : stages) {
        step.ms += look.seen.of(stage).ms;
    }
    if (failedAt(look, stages)) {
        walk.report.add(failed(step.name, step.port, step.ms, look.failure));
        return false;
    }
    if (step.state == State::Ok && step.ms >= kSlowMs) {
        step.state = State::Warning;
        step.change = "That was slow: look at the server's log and its name servers.";
    }
    walk.report.add(std::move(step));
    return true;
}

bool tellGreeting(Walk& walk, const Look& look, int32_t port) {
    const std::string said = joined(look.seen.of(Stage::Greeting).replies, " ");
    return tell(walk, look, {"greeting", port, 0, said, {}}, {Stage::Greeting});
}

bool tellEhlo(Walk& walk, const Look& look, int32_t port) {
    constexpr size_t kCode = 4;  // with what stands behind it
    std::vector<std::string> offers;
    for (const std::string& line : look.seen.of(Stage::Ehlo).replies) {
        offers.push_back(line.substr(std::min(line.size(), kCode)));
    }
    Step step{"EHLO", port, 0, joined(offers, ", "), {}};
    const std::string refusal = joined(look.seen.refusedEhlo(), " ");
    if (!refusal.empty()) {
        step.state = State::Warning;
        step.found =
            "the server refuses EHLO and takes HELO alone, which offers neither encryption "
            "nor logins: " +
            refusal;
        step.change = "Have the server, or the firewall in front of it, take EHLO.";
    }
    return tell(walk, look, std::move(step), {Stage::Ehlo});
}

Step tlsStep(const tv::tls::Negotiated& tls, bool isImplicit, int32_t port) {
    std::string what(tv::tls::versionName(tls.version));
    if (tls.suite) what += ", " + std::string(tls.suite->name);
    if (tls.group != tv::tls::Group::None) {
        what += ", " + std::string(tv::tls::groupName(tls.group));
    }
    what += isImplicit ? ", from the first byte" : ", by STARTTLS";
    Step step{"encryption", port, 0, what, {}};
    const bool isOld = tls.version < tv::tls::Version::Tls12;
    if (isOld || (tls.suite && tls.suite->isOld())) {
        step.state = State::Warning;
        step.found = (isOld ? "the server speaks no version of TLS that is still safe: "
                            : "the server chose a suite that is no longer safe: ") +
                     what;
        step.change = "Have the server speak TLS 1.2 or 1.3 with suites of today.";
    }
    return step;
}

Step clearStep(const Look& look, int32_t port) {
    Step step{"encryption", port, 0, "nothing is encrypted: ", {}, State::Warning};
    const auto& refusal = look.seen.of(Stage::StartTls).replies;
    if (!refusal.empty()) {
        step.found += "the server offers STARTTLS and refuses it: " + joined(refusal, " ");
        step.change = "Mend the certificate setup of the server.";
    } else if (look.connection.capabilities().hasStartTls) {
        step.found += "the server offers STARTTLS, which is not asked for";
        step.change = "Say encryption = starttls in [server] of the settings file.";
    } else {
        step.found += "the server offers no STARTTLS";
        step.change = "Have the server offer STARTTLS, or TLS at another port (465).";
    }
    return step;
}

bool tellTls(Walk& walk, const Look& look, int32_t port) {
    const tv::tls::Negotiated* tls = look.connection.negotiated();
    Step step{"encryption", port, 0, "it stands", {}};
    if (tls) {
        step = tlsStep(*tls, look.isImplicit(), port);
    } else if (!look.failure) {
        step = clearStep(look, port);
    }
    return tell(walk, look, std::move(step),
                {Stage::StartTls, Stage::TlsHandshake, Stage::Certificate});
}

// The mechanism that a user and a password would go by; empty where there is none.
std::string_view methodFor(const tv::SmtpSettings& settings, const tv::SmtpCapabilities& offer,
                           bool isTls) {
    for (const std::string& wanted : settings.methods) {
        const bool offered = std::ranges::any_of(offer.authNames, [&](const std::string& name) {
            return tv::equalsIgnoreCase(name, wanted);
        });
        if (offered) return wanted;
    }
    if (!settings.methods.empty()) return {};
    if (settings.cramMd5InClear && !isTls && offer.auth.cramMd5) return "CRAM-MD5";
    switch (tv::smtp::chooseMechanism(offer.auth, true, false)) {
        case tv::AuthMechanism::Login:
            return "LOGIN";
        case tv::AuthMechanism::Ntlm:
            return "NTLM";
        case tv::AuthMechanism::CramMd5:
            return "CRAM-MD5";
        case tv::AuthMechanism::Plain:
            return "PLAIN";
        default:
            return {};
    }
}

std::string sizeText(uint64_t limit) {
    constexpr uint64_t kKilo = 1024;
    if (limit == 0) return "no limit of size";
    const bool isMega = limit % (kKilo * kKilo) == 0;
    return "messages up to " + (isMega ? std::to_string(limit / kKilo / kKilo) + " MB"
                                       : std::to_string(limit / kKilo) + " KB");
}

void tellOffer(Walk& walk, const Endpoint& endpoint) {
    const tv::SmtpCapabilities& offer = endpoint.offer;
    const std::string_view method = methodFor(endpoint.settings, offer, endpoint.tls.has_value());
    Step login{"login methods", endpoint.port, 0, joined(offer.authNames, ", "), {}};
    if (offer.authNames.empty()) {
        login.found = "the server offers no login here";
    } else {
        login.found += method.empty() ? "; none of them would be used"
                                      : "; " + std::string(method) + " would be used";
    }
    walk.report.add(std::move(login));
    const std::pair<const char*, bool> kExtensions[] = {{"PIPELINING", offer.hasPipelining},
                                                        {"SMTPUTF8", offer.hasSmtpUtf8},
                                                        {"DSN", offer.hasDsn}};
    std::string all = sizeText(offer.sizeLimit);
    for (const auto& [name, has] : kExtensions) {
        all += std::string(has ? ", " : ", no ") + name;
    }
    walk.report.add({"extensions", endpoint.port, 0, all, {}});
}

void tellWrongWay(Walk& walk, const Look& wrong, int32_t port) {
    const Stage stage = wrong.failure.stage();
    Step step = failed("encryption", port, wrong.seen.of(stage).ms, wrong.failure);
    step.saysAll = true;
    step.finding.stage = Stage::TlsHandshake;
    step.found = wrong.isImplicit()
                     ? "the port speaks clear text first, and TLS was asked for from the first byte"
                     : "the port expects TLS from the first byte, and was spoken to in clear";
    step.change = wrong.isImplicit()
                      ? "Say encryption = starttls in [server] of the settings file, or have the "
                        "host program call setUseSSL(0) and setStartTls(1)."
                      : "Say encryption = implicit in [server] of the settings file, or have the "
                        "host program call setUseSSL(1).";
    walk.report.add(std::move(step));
}

// As the host program would ask for it, with the corrections of the library.
tv::SmtpSettings settingsFor(const Walk& walk, int32_t port) {
    tv::SmtpSettings settings = walk.settings;
    settings.smtpPort = port;
    settings.password.clear();
    if (settings.autoFix) tv::smtp::autoFix(settings);
    tv::smtp::settleTlsFlags(settings);
    return settings;
}

tv::SmtpSettings otherWay(tv::SmtpSettings settings) {
    settings.smtpSsl = !settings.smtpSsl;
    settings.startTls = false;
    settings.startTlsIfPossible = true;
    return settings;
}

void tellAll(Walk& walk, const Look& look, Endpoint& endpoint) {
    if (failedAt(look, {Stage::NameLookup, Stage::Connect})) {
        walk.report.add(
            failed("connection", endpoint.port, look.seen.of(Stage::Connect).ms, look.failure));
        return;
    }
    const bool isImplicit = look.isImplicit();
    const bool good = (!isImplicit || tellTls(walk, look, endpoint.port)) &&
                      tellGreeting(walk, look, endpoint.port) &&
                      tellEhlo(walk, look, endpoint.port) &&
                      (isImplicit || tellTls(walk, look, endpoint.port));
    if (endpoint.tls) judgeCertificate(walk, endpoint);
    if (good) tellOffer(walk, endpoint);
}

}  // namespace

bool tryAddresses(Walk& walk, int32_t port) {
    std::vector<Step> steps;
    const size_t count = std::min(walk.addresses.size(), kMostAddresses);
    for (size_t i = 0; i < count; ++i) {
        const Stopwatch watch;
        const std::string address = tv::plat::toText(walk.addresses[i]);
        Observer observer(walk.limitMs());
        tv::CallContext call = walk.call(observer);
        tv::Socket2 socket;
        socket.setConnectTimeoutMs(std::min(walk.limitMs(), kConnectLimitMs));
        socket.setLocalAddress(walk.settings.localAddress.utf8());
        const Failure failure = socket.connect2(call, address, port, false);
        Step step{"connection", port, watch.ms(), address, {}};
        if (failure) {
            step = failed("connection", port, watch.ms(), failure);
            step.found = address + ": " + step.found;
        }
        steps.push_back(std::move(step));
    }
    const bool any =
        std::ranges::any_of(steps, [](const Step& step) { return step.state == State::Ok; });
    for (Step& step : steps) {
        if (any && step.state == State::Failure) step.state = State::Warning;
        walk.report.add(std::move(step));
    }
    return any;
}

void lookAt(Walk& walk, int32_t port) {
    const tv::SmtpSettings settings = settingsFor(walk, port);
    auto look = std::make_unique<Look>(walk, settings, walk.limitMs());
    if (look->failure && !look->isRightWay()) {
        auto other = std::make_unique<Look>(walk, otherWay(settings),
                                            std::min(walk.limitMs(), kGuessLimitMs));
        const bool found = !other->failure || (other->isRightWay() && other->seen.hasReplies());
        if (found) {
            tellWrongWay(walk, *look, port);
            look = std::move(other);
        }
    }
    Endpoint endpoint;
    endpoint.port = port;
    endpoint.settings = settings;
    endpoint.settings.smtpSsl = look->connection.settings.smtpSsl;
    endpoint.settings.startTls = look->connection.settings.startTls;
    endpoint.greeted = !look->failure;
    endpoint.offer = look->connection.capabilities();
    endpoint.sessions = look->connection.tlsSessions();
    if (const auto* tls = look->connection.negotiated()) endpoint.tls = *tls;
    tellAll(walk, *look, endpoint);
    walk.endpoints.push_back(std::move(endpoint));
}

Endpoint* bestEndpoint(Walk& walk) {
    Endpoint* best = nullptr;
    int most = 0;
    for (Endpoint& endpoint : walk.endpoints) {
        if (!endpoint.greeted) continue;
        const bool canLogIn = walk.logsIn() && !endpoint.offer.authNames.empty();
        const int merit = 1 + 4 * !endpoint.distrusted + 2 * canLogIn + endpoint.tls.has_value();
        if (merit > most) best = &endpoint;
        most = std::max(most, merit);
    }
    return best;
}

}  // namespace emailsend::doctor
