// Builds the command lines of the dialogue. Host text never ends a line or starts a second command.
#pragma once

#include <string>
#include <string_view>

namespace tv::smtp {

// The text without CR, LF and NUL.
std::string withoutLineBreaks(std::string_view text);

// The name to greet with: letters, digits, "-" and "." of the given one; nothing left: "localhost".
std::string greetingName(std::string_view hostName);
// verb is "EHLO" or "HELO".
std::string greetingCommand(std::string_view verb, std::string_view hostName);

// The address that stands between the brackets of a path: without display name, brackets,
// semicolons and blanks around it, its domain in ASCII.
std::string bareAddress(std::string_view address);
// As bareAddress; a local part outside ASCII becomes Punycode as well.
std::string recipientAddress(std::string_view address);

// Parameters of the DSN extension (RFC 3461); empty ones are left out.
struct FromParameters {
    std::string_view ret;
    std::string_view envid;
};

// RFC 5321 section 3.3: no blanks inside. Only ASCII domains leave this place.
std::string mailFromCommand(std::string_view sender, const FromParameters& parameters);
// address is one that recipientAddress gave.
std::string rcptToCommand(std::string_view address, std::string_view notify);

// A command as the dialogue shows it: line ends spelled out.
std::string shownCommand(std::string_view command);

}  // namespace tv::smtp
