// Every function is looked up before any is called: a plug-in that lacks one is refused whole.
#include "emailsend/PlugIn.h"

namespace emailsend {
namespace {

#if defined(_WIN32) && !defined(_WIN64)
std::string exportedName(const char* name, size_t argumentBytes) {
    return "_" + std::string(name) + "@" + std::to_string(argumentBytes);
}
#else
std::string exportedName(const char* name, size_t) {
    return name;
}
#endif

}  // namespace

template <class Result, class... Args>
bool PlugIn::resolve(const char* name, Result(EMAILSENDING_CALL*& function)(Args...),
                     std::string& error) {
    // Decorated names of stdcall count the bytes of the arguments, each of which takes four.
    const std::string exported = exportedName(name, 4 * sizeof...(Args));
    function =
        reinterpret_cast<Result(EMAILSENDING_CALL*)(Args...)>(library_.function(exported.c_str()));
    if (!function) error = "the plug-in has no function " + exported;
    return function != nullptr;
}

bool PlugIn::load(const std::string& path, std::string& error) {
    if (!library_.open(path, error)) {
        error = "cannot load the plug-in " + path + ": " + error;
        return false;
    }
    return resolve("Initialise", Initialise, error) && resolve("setSmtpHost", setSmtpHost, error) &&
           resolve("setSmtpPort", setSmtpPort, error) &&
           resolve("setFromAddress", setFromAddress, error) &&
           resolve("setSmtpPassword", setSmtpPassword, error) &&
           resolve("setNoopCount", setNoopCount, error) &&
           resolve("setSmtpUser", setSmtpUser, error) && resolve("setUseSSL", setUseSSL, error) &&
           resolve("setStartTls", setStartTls, error) && resolve("setLogging", setLogging, error) &&
           resolve("setVerboseLogging", setVerboseLogging, error) &&
           resolve("setDefaultNtlmVersion", setDefaultNtlmVersion, error) &&
           resolve("setSmtpAuthMethod", setSmtpAuthMethod, error) &&
           resolve("setLoginDomain", setLoginDomain, error) &&
           resolve("setSubject", setSubject, error) &&
           resolve("setAttachment", setAttachment, error) && resolve("setLogo", setLogo, error) &&
           resolve("setBody", setBody, error) && resolve("setRecipient", setRecipient, error) &&
           resolve("setCC", setCC, error) && resolve("setBCC", setBCC, error) &&
           resolve("szBrisko", szBrisko, error) && resolve("getLastError", getLastError, error) &&
           resolve("ResetEmail", ResetEmail, error);
}

}  // namespace emailsend
