// The order of an NTLM exchange and what the log shows of it: flags and names, never what was made
// of the password.
#include "mail/sasl/ClsNtlm.h"

#include <algorithm>
#include <optional>

#include "base/Base64.h"
#include "base/CodePage.h"
#include "base/Hex.h"
#include "base/Random.h"
#include "log/LogContextExitor.h"
#include "mail/sasl/NtlmText.h"
#include "platform/SysClock.h"
#include "platform/SysHost.h"
#include "platform/SysVersion.h"

namespace tv {
namespace {

// Of a Type 2 message: two fields of at most 64 KiB each make up nearly all of it.
constexpr size_t kMaxMessage = 131072;

using Guard = std::lock_guard<std::recursive_mutex>;

std::string shownFlags(uint32_t flags) {
    const uint8_t bytes[] = {static_cast<uint8_t>(flags >> 24), static_cast<uint8_t>(flags >> 16),
                             static_cast<uint8_t>(flags >> 8), static_cast<uint8_t>(flags)};
    return "0x" + hexUpper(bytes);
}

std::string_view defectText(NtlmDefect defect) {
    switch (defect) {
        case NtlmDefect::Signature:
            return "Expected TYPE2 message to begin with NTLMSSP.";
        case NtlmDefect::Type:
            return "TYPE2 message type not equal to 2";
        case NtlmDefect::TargetName:
            return "Failed to get target name from TYPE2 message.";
        case NtlmDefect::TargetInfo:
            return "Failed to get target info data from TYPE2 message.";
        case NtlmDefect::Field:
        case NtlmDefect::None:
            break;
    }
    return {};
}

NtlmOsVersion runningVersion() {
    const plat::SystemVersion system = plat::systemVersion();
    NtlmOsVersion version;
    version.major = system.major;
    version.minor = system.minor;
    version.build = system.build;
    return version;
}

ntlm::Bytes plainBytes(const SecureBuffer& buffer) {
    return {buffer.data(), buffer.data() + buffer.size()};
}

// The entry stays, its value is as secret as the password it was made from.
void logSecret(LogBase& log, std::string_view name) {
    XString secret("x");
    secret.markSecret();
    log.logDataX(name, secret);
}

}  // namespace

ClsNtlm::ClsNtlm() : oemCodePage_(plat::sysHost().oemCodePage()) {
    password_.markSecret();
}

void ClsNtlm::put_UserName(const XString& userName) {
    const Guard guard(lock_);
    userName_ = userName;
}

void ClsNtlm::put_Password(const XString& password) {
    const Guard guard(lock_);
    password_ = password;
    password_.markSecret();
}

void ClsNtlm::put_Domain(const XString& domain) {
    const Guard guard(lock_);
    domain_ = domain;
}

void ClsNtlm::put_Workstation(const XString& workstation) {
    const Guard guard(lock_);
    workstation_ = workstation;
}

void ClsNtlm::put_NtlmVersion(int32_t version) {
    const Guard guard(lock_);
    ntlmVersion_ = version;
}

void ClsNtlm::put_Flags(uint32_t flags) {
    const Guard guard(lock_);
    flags_ = flags;
}

void ClsNtlm::put_ClientChallenge(std::span<const uint8_t> challenge) {
    const Guard guard(lock_);
    clientChallenge_.assign(challenge.begin(), challenge.end());
}

void ClsNtlm::put_ChannelBinding(std::span<const uint8_t> binding) {
    const Guard guard(lock_);
    channelBinding_.assign(binding.begin(), binding.end());
}

bool ClsNtlm::genType1(LogBase& log, std::string& out) {
    const Guard guard(lock_);
    flags_ &= ~(ntlm::kOemDomainSupplied | ntlm::kOemWorkstationSupplied);
    if (!domain_.empty()) flags_ |= ntlm::kOemDomainSupplied;
    if (!workstation_.empty()) flags_ |= ntlm::kOemWorkstationSupplied;
    log.logData("t1_flags", shownFlags(flags_));
    NtlmNegotiate message;
    message.flags = flags_;
    message.version = runningVersion();
    message.domain = plainBytes(ntlm::oemText(oemCodePage_, domain_.utf8()));
    message.workstation = plainBytes(ntlm::oemText(oemCodePage_, workstation_.utf8()));
    auto bytes = message.encode();
    if (!bytes) {
        log.logError("The domain or the workstation is too long for an NTLM message.");
        return false;
    }
    out = base64Encode(*bytes);
    type1_ = std::move(*bytes);
    return true;
}

bool ClsNtlm::genType3(LogBase& log, std::string_view type2, SecureBuffer& out) {
    const Guard guard(lock_);
    const LogContextExitor context(log, "genType3");
    if (!readType2(log, type2)) {
        log.logError("Failed to decode TYPE2 input message.");
        return false;
    }
    logType2(log);
    NtlmAuthenticate message;
    message.flags = flags_ & server_.flags;
    message.hasMic = isBound();
    // Without it the session key is the one that both sides know anyway.
    if (message.hasMic) message.flags &= ~ntlm::kKeyExchange;
    log.logData("t3_flags", shownFlags(message.flags));
    if (message.flags & ntlm::kVersion) {
        log.logInfo("Adding version structure to TYPE3 message.");
        message.version = runningVersion();
    }
    message.domain = messageText(domain_.utf8(), message.flags);
    message.userName = messageText(userName_.utf8(), message.flags);
    message.workstation = messageText(workstation_.utf8(), message.flags);
    log.logDataX("ntlmDomain", domain_);
    log.logDataX("ntlmUsername", userName_);
    log.logDataX("workstation", workstation_);
    SecureBuffer sessionKey;
    if (!addResponses(log, message, sessionKey)) return false;
    std::optional<SecureBuffer> bytes = message.encode();
    if (!bytes) {
        log.logError("A part of the NTLM message is longer than 65535 bytes.");
        return false;
    }
    if (message.hasMic) {
        const SecureBuffer code = ntlm::mic(sessionKey.bytes(), type1_, type2_, bytes->bytes());
        std::ranges::copy(code.bytes(), bytes->data() + NtlmAuthenticate::kMicOffset);
    }
    out = base64EncodeSecret(bytes->bytes());
    return true;
}

bool ClsNtlm::readType2(LogBase& log, std::string_view type2) {
    auto bytes = base64Decode(type2, kMaxMessage, Base64Spaces::Skipped);
    if (!bytes) {
        log.logError("The TYPE2 message is no base64 text.");
        return false;
    }
    const NtlmDefect defect = server_.decode(*bytes);
    if (defect != NtlmDefect::None) {
        log.logError(defectText(defect));
        return false;
    }
    type2_ = std::move(*bytes);
    targetNames_ = ntlmTargetNames(server_.targetInfo);
    return true;
}

void ClsNtlm::logType2(LogBase& log) const {
    const uint32_t page = server_.flags & ntlm::kUnicode ? kCodePageUtf16Le : oemCodePage_;
    const ntlm::Bytes& name = server_.targetName;
    log.logData("TargetName",
                codePageToUtf8(page, {reinterpret_cast<const char*>(name.data()), name.size()}));
    log.logData("nbComputer", targetNames_.nbComputer);
    log.logData("nbDomain", targetNames_.nbDomain);
    log.logData("dnsComputer", targetNames_.dnsComputer);
    log.logData("dnsDomain", targetNames_.dnsDomain);
    log.logData("t2_flags", shownFlags(server_.flags));
}

bool ClsNtlm::chooseClientChallenge(LogBase& log, ntlm::Challenge& challenge) const {
    if (clientChallenge_.size() == challenge.size()) {
        log.logInfo("Using pre-set client challenge.");
        std::copy(clientChallenge_.begin(), clientChallenge_.end(), challenge.begin());
        return true;
    }
    log.logInfo("Generating random client challenge.");
    if (randomBytes(challenge)) return true;
    log.logError("The system's random source failed.");
    return false;
}

ntlm::Responses ClsNtlm::responsesV2(const ntlm::Secret& secret,
                                     const ntlm::Challenge& challenge) const {
    const uint64_t now = plat::sysClock().fileTimeUtc();
    if (!isBound()) {
        return ntlm::computeNtlmV2Response(secret, server_.challenge, challenge, now,
                                           server_.targetInfo);
    }
    const ntlm::BoundTarget target =
        ntlm::boundTarget(server_.targetInfo, ntlm::channelBindingHash(channelBinding_));
    ntlm::Responses responses = ntlm::computeNtlmV2Response(secret, server_.challenge, challenge,
                                                            target.time.value_or(now), target.info);
    // A server that tells the time wants no LM response (MS-NLMP section 3.1.5.1.2).
    if (target.time) responses.lm = SecureBuffer(responses.lm.size());
    return responses;
}

bool ClsNtlm::addResponses(LogBase& log, NtlmAuthenticate& message,
                           SecureBuffer& sessionKey) const {
    ntlm::Challenge challenge{};
    if (!chooseClientChallenge(log, challenge)) return false;
    log.logDataHex("ClientChallenge", challenge);
    log.logDataLong("NtlmVersion", ntlmVersion_);
    const ntlm::Secret secret{userName_.utf8(), password_.utf8(), domain_.utf8(), oemCodePage_};
    ntlm::Responses responses;
    if (ntlmVersion_ == 1) {
        const LogContextExitor context(log, "ntlmVersion1");
        const LogContextExitor computation(log, "computeNtlmV1Response");
        responses =
            ntlm::computeNtlmV1Response(secret, server_.flags, server_.challenge, challenge);
    } else {
        const LogContextExitor context(log, "ntlmVersion2");
        if (isBound()) log.logInfo("Binding the answer to the server's certificate.");
        responses = responsesV2(secret, challenge);
    }
    logSecret(log, "LmResponse");
    logSecret(log, "NtResponse");
    message.lmResponse = std::move(responses.lm);
    message.ntResponse = std::move(responses.nt);
    sessionKey = std::move(responses.sessionBaseKey);
    return true;
}

SecureBuffer ClsNtlm::messageText(std::string_view utf8, uint32_t messageFlags) const {
    return messageFlags & ntlm::kUnicode ? ntlm::utf16Le(utf8) : ntlm::oemText(oemCodePage_, utf8);
}

}  // namespace tv
