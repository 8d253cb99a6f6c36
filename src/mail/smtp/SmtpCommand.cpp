// How commands are put together: nothing of a text of the host gets into a line but the value it
// stands for, and no value ends a line.
#include "mail/smtp/SmtpCommand.h"

#include <optional>

#include "base/Ascii.h"
#include "mime/AddressList.h"

namespace tv::smtp {
namespace {

constexpr std::string_view kIpv6Tag = "IPv6:";

void appendParameter(std::string& command, std::string_view name, std::string_view value) {
    const std::string clean = withoutLineBreaks(value);
    if (clean.empty()) return;
    command += name;
    command += clean;
}

// "[192.0.2.1]", "[IPv6:2001:db8::1]", or the latter without its tag.
std::optional<plat::IpAddress> addressInBrackets(std::string_view text) {
    if (!text.starts_with('[') || !text.ends_with(']')) return std::nullopt;
    text = text.substr(1, text.size() - 2);
    if (startsWithIgnoreCase(text, kIpv6Tag)) return plat::parseIpv6(text.substr(kIpv6Tag.size()));
    return plat::parseIp(text);
}

}  // namespace

std::string addressLiteral(plat::IpAddress address) {
    address.scope = 0;  // of this machine alone
    return "[" + std::string(address.isIpv4() ? "" : kIpv6Tag) + plat::toText(address) + "]";
}

std::string withoutLineBreaks(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        if (c != '\r' && c != '\n' && c != '\0') out += c;
    }
    return out;
}

std::string greetingName(std::string_view hostName) {
    if (const auto address = addressInBrackets(hostName)) return addressLiteral(*address);
    std::string out;
    for (const char c : hostName) {
        if (isAsciiAlnum(c) || c == '-' || c == '.') out += c;
    }
    return out.empty() ? "localhost" : out;
}

std::string greetingCommand(std::string_view verb, std::string_view hostName) {
    return std::string(verb) + " " + greetingName(hostName) + "\r\n";
}

std::string bareAddress(std::string_view address) {
    return firstAddress(address);
}

std::string recipientAddress(std::string_view address) {
    return bareAddress(address);
}

std::string mailFromCommand(std::string_view sender, const FromParameters& parameters) {
    std::string command = "MAIL FROM:<" + bareAddress(sender) + ">";
    appendParameter(command, " RET=", parameters.ret);
    appendParameter(command, " ENVID=", parameters.envid);
    if (parameters.smtpUtf8) command += " BODY=8BITMIME SMTPUTF8";
    return command + "\r\n";
}

std::string rcptToCommand(std::string_view address, std::string_view notify) {
    std::string command = "RCPT TO:<" + withoutLineBreaks(address) + ">";
    appendParameter(command, " NOTIFY=", notify);
    return command + "\r\n";
}

std::string shownCommand(std::string_view command) {
    return replaceAll(command, "\r\n", "<CRLF>");
}

}  // namespace tv::smtp
