// The certificate that a server showed: whose it is, how long it lasts, what verification says of
// it, and the pin to write down.
#include <algorithm>

#include "base/Base64.h"
#include "emailsend/doctor/Walk.h"
#include "log/LogNull.h"
#include "net/resolve/HostName.h"
#include "net/stream/Deadline.h"
#include "net/stream/ServerVerdict.h"
#include "net/x509/X509Name.h"
#include "platform/SysClock.h"

namespace emailsend::doctor {
namespace {

using tv::x509::Certificate;
using tv::x509::ChainRule;
using tv::x509::GeneralName;

constexpr size_t kMostNames = 5;
constexpr int64_t kDay = 86400;
constexpr int64_t kFewDays = 14;                   // in which a new one has to be got
constexpr uint64_t kFileTimeOf1970 = 11644473600;  // in seconds since 1601

int64_t nowSeconds() {
    constexpr uint64_t kTicksPerSecond = 10000000;
    return static_cast<int64_t>(tv::plat::sysClock().fileTimeUtc() / kTicksPerSecond -
                                kFileTimeOf1970);
}

std::string namesOf(const Certificate& leaf) {
    std::string all;
    size_t count = 0;
    for (const GeneralName& name : leaf.altNames) {
        if (name.kind != GeneralName::Kind::Dns || ++count > kMostNames) continue;
        all += (all.empty() ? "" : ", ") +
               std::string(reinterpret_cast<const char*>(name.value.data()), name.value.size());
    }
    if (count > kMostNames) all += " and " + std::to_string(count - kMostNames) + " more";
    return all.empty() ? tv::x509::nameText(leaf.subject) : all;
}

std::string describe(const Certificate& leaf, int64_t now) {
    const int64_t days = (leaf.notAfter - now) / kDay;
    const bool isOwn = leaf.isSelfIssued;
    return "for " + namesOf(leaf) + (isOwn ? ", signed by itself" : ", issued by ") +
           (isOwn ? std::string() : tv::x509::nameText(leaf.issuer)) +
           (leaf.notAfter < now ? ", out of date" : ", " + std::to_string(days) + " days left");
}

// By the chain and by what the settings file asks for.
struct Verdicts {
    tv::x509::ChainVerdict chain, asked;
};

Verdicts judge(Walk& walk, const Endpoint& endpoint, const Certificate* leaf) {
    const tv::SmtpSettings& settings = walk.settings;
    const tv::TrustAnchors anchors(std::string(settings.trustAnchorsFile.utf8()),
                                   std::string(settings.furtherAnchorsFile.utf8()));
    const std::string host = tv::serverName(settings.smtpHost.utf8());
    tv::LogNull quiet;
    const auto verdict = [&](const tv::ServerTrust& trust) {
        const tv::Deadline deadline(walk.limitMs());
        tv::x509::WorkBudget budget([&] { return deadline.leftMs(); });
        return tv::judgeServer(quiet, *endpoint.tls, leaf, host, trust, nowSeconds(), budget);
    };
    const bool verifies = settings.requireSslCertVerify;
    Verdicts verdicts{verdict({&anchors, {}}), {}};
    if (verifies || !settings.pinnedKeys.empty()) {
        verdicts.asked = verdict({verifies ? &anchors : nullptr, settings.pinnedKeys});
    }
    return verdicts;
}

std::string ruleOf(const tv::x509::ChainVerdict& verdict) {
    const std::string_view text = tv::x509::ruleText(verdict.broken);
    return std::string(text.substr(0, text.find_last_not_of('.') + 1));
}

}  // namespace

void judgeCertificate(Walk& walk, Endpoint& endpoint) {
    const Stopwatch watch;
    const int64_t now = nowSeconds();
    const auto& chain = endpoint.tls->chain;
    Certificate leaf;
    const bool readable = !chain.empty() && tv::x509::parseCertificate(chain.front(), leaf);
    if (chain.empty()) return;
    const Verdicts verdicts = judge(walk, endpoint, readable ? &leaf : nullptr);
    endpoint.trusted = verdicts.chain.trusted();
    endpoint.distrusted = !verdicts.asked.trusted();
    if (readable) endpoint.pin = "sha256//" + tv::base64Encode(tv::keyPin(leaf));
    const tv::x509::ChainVerdict& worse = endpoint.distrusted ? verdicts.asked : verdicts.chain;
    const tv::Failure failure(tv::Cause::CertificateInvalid, ruleOf(worse));
    Step step = failed("certificate", endpoint.port, watch.ms(), failure);
    const std::string what = readable ? describe(leaf, now) : "malformed";
    if (endpoint.distrusted) {
        step.found = ruleOf(worse) + "; it is " + what;
    } else if (endpoint.trusted) {
        step.found = what + "; verification accepts it";
        step.state = State::Ok;
    } else if (!walk.settings.pinnedKeys.empty()) {
        step.found = "the pin of the settings file holds; it is " + what;
        step.state = State::Ok;
    } else {
        step.found = "verification would refuse it: " + ruleOf(worse) + "; it is " + what;
        step.state = State::Warning;
    }
    if (!endpoint.distrusted) step.finding = {};
    if (step.state == State::Ok) step.change.clear();
    if (!endpoint.pin.empty()) step.found += "; seen now: pin = " + endpoint.pin;
    const bool endsSoon = readable && leaf.notAfter - now < kFewDays * kDay;
    if (step.state == State::Ok && endsSoon) {
        step.state = State::Warning;
        step.change = "Renew the certificate of the server before it has expired.";
    }
    walk.report.add(std::move(step));
}

}  // namespace emailsend::doctor
