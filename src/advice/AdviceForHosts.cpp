// The same advice for who writes a host program: functions in place of keys. The library does not
// link this.
#include <utility>

#include "advice/Advice.h"

namespace tv::advice {
namespace {

// What no function can say is left out.
std::string_view functionOf(std::string_view name) {
    constexpr std::pair<std::string_view, std::string_view> kFunctions[] = {
        {"implicit", "setUseSSL(1)"},
        {"starttls", "setUseSSL(0) and setStartTls(1)"},
        {"encrypt", "setStartTls(1) or setUseSSL(1)"},
        {"host", "setSmtpHost"},
        {"port", "setSmtpPort"},
        {"password", "setSmtpPassword"},
        {"login", "setSmtpUser and setSmtpPassword"},
        {"from", "setFromAddress"},
        {"method", "setSmtpAuthMethod"},
    };
    for (const auto& [known, function] : kFunctions) {
        if (known == name) return function;
    }
    return {};
}

}  // namespace

std::string whatHostsChange(const Advice& advice) {
    return whatToChange(advice, functionOf);
}

}  // namespace tv::advice
