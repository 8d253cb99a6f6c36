// Key by key, from what the file says to what the session goes by.
#include "mail/SettingsOverlay.h"

#include <string>
#include <utility>

#include "base/Ascii.h"
#include "log/Fail.h"
#include "log/LogContextExitor.h"
#include "mail/AutoFix.h"
#include "platform/IpAddress.h"
#include "platform/SysHost.h"

namespace tv {
namespace {

using settings::Encryption;

template <class Wanted, class Said>
void layOver(Wanted& wanted, const std::optional<Said>& said) {
    if (said) wanted = static_cast<Wanted>(*said);
}

void layOver(XString& wanted, const std::optional<std::string>& said) {
    if (said) wanted.setUtf8(*said);
}

// The policy text of the versions between two.
std::string versionPolicy(settings::TlsVersion lowest, settings::TlsVersion highest) {
    return "TLS 1." + std::to_string(static_cast<int>(lowest)) + " to 1." +
           std::to_string(static_cast<int>(highest));
}

}  // namespace

SettingsOverlay::SettingsOverlay(SmtpSettings& settings, const settings::Settings* file)
    : settings_(settings), file_(file) {
    if (file_) hosts_ = settings_;
}

SettingsOverlay::~SettingsOverlay() {
    if (file_) settings_ = std::move(hosts_);
}

Failure SettingsOverlay::lay(LogBase& log) {
    if (!file_) return {};
    {
        const LogContextExitor context(log, "settingsFile");
        log.logData("path", file_->file);
        for (const std::string& line : file_->inForce) {
            log.logInfo(line);
        }
    }
    settings_.revision = file_->revision;
    layServer();
    layNames();
    layLogin();
    layMessage();
    return layCertificate(log);
}

void SettingsOverlay::layServer() {
    layOver(settings_.smtpHost, file_->host);
    layOver(settings_.smtpPort, file_->port);
    layOwnName();
    layOver(settings_.connectTimeoutMs, file_->connectTimeoutMs);
    layOver(settings_.idleTimeoutMs, file_->idleTimeoutMs);
    layOver(settings_.acceptanceTimeoutMs, file_->acceptanceTimeoutMs);
    layOver(settings_.totalTimeoutMs, file_->totalTimeoutMs);
    layOver(settings_.localAddress, file_->localAddress);
    if (file_->family && *file_->family != settings::Family::Any) {
        settings_.onlyFamily = *file_->family == settings::Family::Ipv4 ? plat::AddressFamily::IPv4
                                                                        : plat::AddressFamily::IPv6;
    }
    if (file_->localAddress) {  // nothing else can be reached from it
        const auto address = plat::parseIp(*file_->localAddress);
        if (address) settings_.onlyFamily = address->family;
    }
    if (file_->port) settings_.fixPort = false;
    if (!file_->encryption) return;
    settings_.fixEncryption = false;
    settings_.smtpSsl = *file_->encryption == Encryption::Implicit;
    settings_.startTls = *file_->encryption == Encryption::StartTls;
    settings_.startTlsIfPossible = *file_->encryption == Encryption::IfOffered;
}

// "dns" stands for the machine's DNS name; one that has none greets with its address, as RFC 5321
// section 4.1.4 asks for.
void SettingsOverlay::layOwnName() {
    const bool dns = file_->helo && equalsIgnoreCase(*file_->helo, "dns");
    layOver(settings_.heloHostname, dns ? plat::sysHost().dnsName() : file_->helo);
    settings_.heloAddress = dns && settings_.heloHostname.empty();
}

void SettingsOverlay::layNames() {
    if (file_->servers.empty() && !file_->hosts) return;
    names_.emplace();
    names_->servers = file_->servers;
    names_->hostsPath = file_->hosts.value_or("");
    names_->trustAnchorsFile = file_->roots.value_or("");
    names_->furtherAnchorsFile = file_->rootsAlso.value_or("");
}

void SettingsOverlay::layLogin() {
    layOver(settings_.userName, file_->user);
    layOver(settings_.loginDomain, file_->domain);
    settings_.cramMd5InClear = file_->cramMd5InClear;
    if (file_->ntlm) settings_.ntlmVersion = file_->ntlm;
    layOver(settings_.onlyEncrypted, file_->onlyEncrypted);
    layOver(settings_.channelBinding, file_->channelBinding);
    for (const std::string& method : file_->methods) {
        settings_.methods.push_back(method);
    }
    // One secret, that of who is named beside it.
    if (file_->password || file_->oauth2) {
        settings_.password = file_->password.value_or(XString());
        settings_.oauth2Token = file_->oauth2.value_or(XString());
    }
}

Failure SettingsOverlay::layCertificate(LogBase& log) {
    layOver(settings_.requireSslCertVerify, file_->verify);
    layOver(settings_.trustAnchorsFile, file_->roots);
    layOver(settings_.furtherAnchorsFile, file_->rootsAlso);
    layOver(settings_.oldSuites, file_->oldSuites);
    settings_.pinnedKeys = file_->pins;
    if (file_->lowest || file_->highest) {
        settings_.tlsProtocol.setUtf8(
            versionPolicy(file_->lowest.value_or(settings::TlsVersion::Tls10),
                          file_->highest.value_or(settings::TlsVersion::Tls13)));
    }
    const char* const wanting = !file_->pins.empty()            ? "pin"
                                : file_->roots                  ? "roots"
                                : file_->rootsAlso              ? "roots-also"
                                : file_->verify.value_or(false) ? "verify"
                                                                : nullptr;
    if (!wanting) return {};
    // What counts is what the corrections will leave: at port 25 they take implicit TLS away.
    SmtpSettings corrected = settings_;
    if (corrected.autoFix) smtp::autoFix(corrected);
    if (corrected.smtpSsl || corrected.startTls) return {};
    return fail(log, Cause::SettingsUnusable,
                "The settings file " + file_->file + " cannot be used: \"" + wanting +
                    "\" of [certificate] needs \"encryption\" of [server] to be starttls or "
                    "implicit; " +
                    (file_->encryption ? "the file says otherwise."
                                       : "the host program asks for neither."));
}

void SettingsOverlay::layMessage() {
    layOver(settings_.requireAllRecipients, file_->allRecipients);
    layOver(settings_.dataAfterRecipients, file_->allRecipients);
    settings_.heedLimits = true;
    layOver(settings_.heedSizeLimit, file_->checkSize);
    layOver(settings_.sentMailLogFile, file_->sentMail);
    std::string notify;
    for (std::string when : file_->deliveryReport) {
        for (char& c : when) {
            c = asciiUpper(c);
        }
        if (notify.find(when) == std::string::npos) notify += (notify.empty() ? "" : ",") + when;
    }
    if (!notify.empty()) settings_.dsnNotify.setUtf8(notify);
}

}  // namespace tv
