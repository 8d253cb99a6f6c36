// The properties by name, in one table, and what else the mail manager tells of itself. Sending and
// the trial stand in the sources beside this one.
#include "mail/ClsMailMan.h"

#include <algorithm>
#include <charconv>
#include <limits>

#include "log/LogNull.h"
#include "mail/AutoFix.h"
#include "mail/MailManText.h"
#include "mail/SettingsOverlay.h"
#include "platform/SysHost.h"

namespace tv {
namespace {

bool readNumber(const XString& value, int64_t& number) {
    const std::string_view text = value.utf8();
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end;
}

bool readFlag(const XString& value, bool& flag) {
    int64_t number = 0;
    if (!readNumber(value, number) || number < 0 || number > 1) return false;
    flag = number == 1;
    return true;
}

template <bool SmtpSettings::*member>
bool setFlag(ClsMailMan& mailMan, const XString& value) {
    return readFlag(value, mailMan.settings().*member);
}

template <uint32_t SmtpSettings::*member>
bool setCount(ClsMailMan& mailMan, const XString& value) {
    int64_t number = 0;
    if (!readNumber(value, number) || number < 0 || number > std::numeric_limits<uint32_t>::max()) {
        return false;
    }
    mailMan.settings().*member = static_cast<uint32_t>(number);
    return true;
}

template <XString SmtpSettings::*member>
bool setText(ClsMailMan& mailMan, const XString& value) {
    mailMan.settings().*member = value;
    return true;
}

template <XString SmtpSettings::*member>
bool setSecret(ClsMailMan& mailMan, const XString& value) {
    mailMan.settings().*member = value;
    (mailMan.settings().*member).markSecret();
    return true;
}

bool setHost(ClsMailMan& mailMan, const XString& value) {
    mailMan.settings().smtpHost = smtp::tidySmtpHost(value, plat::sysHost().ansiCodePage());
    return true;
}

// Port 0 keeps the old port; anything else is tried.
bool setPort(ClsMailMan& mailMan, const XString& value) {
    int64_t number = 0;
    if (!readNumber(value, number) || number < std::numeric_limits<int32_t>::min() ||
        number > std::numeric_limits<int32_t>::max()) {
        return false;
    }
    if (number != 0) mailMan.settings().smtpPort = static_cast<int32_t>(number);
    return true;
}

bool setAuthMethod(ClsMailMan& mailMan, const XString& value) {
    mailMan.settings().authMethod = smtp::tidyAuthMethod(value);
    return true;
}

bool setVerbose(ClsMailMan& mailMan, const XString& value) {
    bool verbose = false;
    if (!readFlag(value, verbose)) return false;
    mailMan.setVerboseLogging(verbose);
    return true;
}

bool setDebugLog(ClsMailMan& mailMan, const XString& value) {
    mailMan.setDebugLogFilePath(value);
    return true;
}

bool setOptions(ClsMailMan& mailMan, const XString& value) {
    mailMan.setUncommonOptions(value);
    return true;
}

struct Property {
    std::string_view name;
    bool (*set)(ClsMailMan&, const XString&);
};

constexpr Property kProperties[] = {
    {"AutoFix", setFlag<&SmtpSettings::autoFix>},
    {"AutoGenMessageId", setFlag<&SmtpSettings::autoMessageId>},
    {"AutoSmtpRset", setFlag<&SmtpSettings::autoReset>},
    {"ConnectTimeout", setCount<&SmtpSettings::connectTimeoutMs>},
    {"DebugLogFilePath", setDebugLog},
    {"DsnEnvid", setText<&SmtpSettings::dsnEnvid>},
    {"DsnNotify", setText<&SmtpSettings::dsnNotify>},
    {"DsnRet", setText<&SmtpSettings::dsnRet>},
    {"HeloHostname", setText<&SmtpSettings::heloHostname>},
    {"LoginDomain", setText<&SmtpSettings::loginDomain>},
    {"OAuth2AccessToken", setSecret<&SmtpSettings::oauth2Token>},
    {"ReadTimeout", setCount<&SmtpSettings::idleTimeoutMs>},
    {"RequireAllRecipients", setFlag<&SmtpSettings::requireAllRecipients>},
    {"RequireSslCertVerify", setFlag<&SmtpSettings::requireSslCertVerify>},
    {"RetryWait", setCount<&SmtpSettings::retryWaitMs>},
    {"SendChunkSize", setCount<&SmtpSettings::sendChunkSize>},
    {"SentMailLogFile", setText<&SmtpSettings::sentMailLogFile>},
    {"SmtpAuthMethod", setAuthMethod},
    {"SmtpHost", setHost},
    {"SmtpPassword", setSecret<&SmtpSettings::password>},
    {"SmtpPipelining", setFlag<&SmtpSettings::pipelining>},
    {"SmtpPort", setPort},
    {"SmtpSsl", setFlag<&SmtpSettings::smtpSsl>},
    {"SmtpUsername", setText<&SmtpSettings::userName>},
    {"StartTLS", setFlag<&SmtpSettings::startTls>},
    {"StartTLSifPossible", setFlag<&SmtpSettings::startTlsIfPossible>},
    {"TlsProtocol", setText<&SmtpSettings::tlsProtocol>},
    {"TrustAnchorsFile", setText<&SmtpSettings::trustAnchorsFile>},
    {"UncommonOptions", setOptions},
    {"VerboseLogging", setVerbose},
};

}  // namespace

bool ClsMailMan::setProperty(std::string_view name, const XString& value) {
    const std::lock_guard guard(lock_);
    for (const Property& property : kProperties) {
        if (property.name == name) return property.set(*this, value);
    }
    return false;
}

bool ClsMailMan::setProperty(std::string_view name, int64_t value) {
    return setProperty(name, XString(std::to_string(value)));
}

std::vector<std::string_view> ClsMailMan::propertyNames() {
    std::vector<std::string_view> names;
    for (const Property& property : kProperties) {
        names.push_back(property.name);
    }
    return names;
}

void ClsMailMan::ClearSmtpSessionLog() {
    const std::lock_guard guard(lock_);
    smtp_.sessionLog().clear();
}

XString ClsMailMan::SmtpSessionLog() {
    const std::lock_guard guard(lock_);
    return XString(smtp_.sessionLog().text());
}

std::string_view ClsMailMan::lastSendStatus() {
    const std::lock_guard guard(lock_);
    return statusWord(lastFailure_.cause());
}

std::vector<std::string> ClsMailMan::acceptedRecipients() {
    const std::lock_guard guard(lock_);
    return acceptedRecipients_;
}

std::vector<std::string> ClsMailMan::rejectedRecipients() {
    const std::lock_guard guard(lock_);
    return rejectedRecipients_;
}

void ClsMailMan::useSettings(std::shared_ptr<const settings::Settings> file) {
    const std::lock_guard guard(lock_);
    const uint64_t revision = file ? file->revision : 0;
    if (revision != (file_ ? file_->revision : 0)) smtp_.forgetSecrets();
    log_.layOverDebugLogPath(file && file->debug ? &*file->debug : nullptr);
    file_ = std::move(file);
}

bool ClsMailMan::seemsConnected() {
    const std::lock_guard guard(lock_);
    SettingsOverlay overlay(smtp_.settings, file_.get());
    LogNull quiet;
    return !overlay.lay(quiet) && smtp_.seemsReady();
}

void ClsMailMan::closeConnection() {
    const std::lock_guard guard(lock_);
    smtp_.sayGoodbye();
}

bool ClsMailMan::failedBeforeMessage() {
    const std::lock_guard guard(lock_);
    const Stage stage = lastFailure_.stage();
    return lastFailure_.is(Cause::SettingsUnusable) ||
           (stage != Stage::None && stage < Stage::Sender);
}

// Before every connection: the corrections stay.
void ClsMailMan::correctSettings(LogBase& log) {
    if (smtp_.settings.autoFix) {
        for (const std::string_view line : smtp::autoFix(smtp_.settings)) {
            log.logInfo(line);
        }
    }
    smtp::settleTlsFlags(smtp_.settings);
}

}  // namespace tv
