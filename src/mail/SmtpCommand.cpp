// How commands are put together: nothing of a text of the host gets into a line but the value it
// stands for, and no value ends a line.
#include "mail/SmtpCommand.h"

#include "base/Ascii.h"
#include "base/Punycode.h"

namespace tv::smtp {
namespace {

// What host texts leave around an address.
bool isWrapping(char c) {
    return c == '<' || c == '>' || c == ';' || isBlank(c);
}

std::string_view unwrapped(std::string_view text) {
    while (!text.empty() && text.front() != '>' && isWrapping(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && text.back() != '<' && isWrapping(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

// "Anna <a@b.c>": what stands in the last pair of brackets.
std::string_view insideBrackets(std::string_view text) {
    const std::string_view path = trimmed(text);
    const size_t open = path.rfind('<');
    const size_t close = path.rfind('>');
    if (open == std::string_view::npos || close == std::string_view::npos || close < open) {
        return text;
    }
    // A bracket inside a quoted local part opens nothing.
    return path.find('@', open) < close ? path.substr(open, close - open) : text;
}

std::string asciiDomain(std::string_view address) {
    const size_t at = address.rfind('@');
    std::string domain;
    if (isAscii(address) || at == std::string_view::npos ||
        !domainToAscii(address.substr(at + 1), domain)) {
        return std::string(address);
    }
    return std::string(address.substr(0, at + 1)) + domain;
}

void appendParameter(std::string& command, std::string_view name, std::string_view value) {
    const std::string clean = withoutLineBreaks(value);
    if (clean.empty()) return;
    command += name;
    command += clean;
}

}  // namespace

std::string withoutLineBreaks(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        if (c != '\r' && c != '\n' && c != '\0') out += c;
    }
    return out;
}

std::string greetingName(std::string_view hostName) {
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
    const std::string clean = withoutLineBreaks(address);
    return asciiDomain(unwrapped(insideBrackets(clean)));
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
