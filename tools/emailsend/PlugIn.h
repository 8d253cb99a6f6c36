// The plug-in as this program sees it: a library loaded at run time and its 24 functions.
#pragma once

#include <string>

#include "emailsending.h"
#include "platform/SysLibrary.h"

namespace emailsend {

class PlugIn {
public:
    // False, with a sentence in error, unless the library loads and has every function.
    bool load(const std::string& path, std::string& error);

    decltype(&::Initialise) Initialise = nullptr;
    decltype(&::setSmtpHost) setSmtpHost = nullptr;
    decltype(&::setSmtpPort) setSmtpPort = nullptr;
    decltype(&::setFromAddress) setFromAddress = nullptr;
    decltype(&::setSmtpPassword) setSmtpPassword = nullptr;
    decltype(&::setNoopCount) setNoopCount = nullptr;
    decltype(&::setSmtpUser) setSmtpUser = nullptr;
    decltype(&::setUseSSL) setUseSSL = nullptr;
    decltype(&::setStartTls) setStartTls = nullptr;
    decltype(&::setLogging) setLogging = nullptr;
    decltype(&::setVerboseLogging) setVerboseLogging = nullptr;
    decltype(&::setDefaultNtlmVersion) setDefaultNtlmVersion = nullptr;
    decltype(&::setSmtpAuthMethod) setSmtpAuthMethod = nullptr;
    decltype(&::setLoginDomain) setLoginDomain = nullptr;
    decltype(&::setSubject) setSubject = nullptr;
    decltype(&::setAttachment) setAttachment = nullptr;
    decltype(&::setLogo) setLogo = nullptr;
    decltype(&::setBody) setBody = nullptr;
    decltype(&::setRecipient) setRecipient = nullptr;
    decltype(&::setCC) setCC = nullptr;
    decltype(&::setBCC) setBCC = nullptr;
    decltype(&::szBrisko) szBrisko = nullptr;
    decltype(&::getLastError) getLastError = nullptr;
    decltype(&::ResetEmail) ResetEmail = nullptr;

private:
    template <class Result, class... Args>
    bool resolve(const char* name, Result(EMAILSENDING_CALL*& function)(Args...),
                 std::string& error);

    tv::plat::SysLibrary library_;
};

}  // namespace emailsend
