// Builds the command lines of the dialogue. Host text never ends a line or starts a second command.
#pragma once

#include <string>
#include <string_view>

#include "platform/IpAddress.h"

namespace tv::smtp {

// The text without CR, LF and NUL.
std::string withoutLineBreaks(std::string_view text);

// How an address is written where a name is expected (RFC 5321 section 4.1.3).
std::string addressLiteral(plat::IpAddress address);
// The name to greet with: an address in brackets, or letters, digits, "-" and "." of the given one;
// nothing left: "localhost".
std::string greetingName(std::string_view hostName);
// verb is "EHLO" or "HELO".
std::string greetingCommand(std::string_view verb, std::string_view hostName);

// The address that stands between the brackets of a path: the first of the text, as the one parser
// of addresses reads it; empty where it finds none. Its domain is in ASCII.
std::string bareAddress(std::string_view address);
// The same of a recipient. A local part outside ASCII stays as it is: it has no other form, and any
// that one could make up is somebody else's mailbox (RFC 6531 section 3.2).
std::string recipientAddress(std::string_view address);

// What follows the path: the parameters of the DSN extension (RFC 3461), left out where empty, and
// those of a transaction with addresses or header text in UTF-8 (RFC 6531 section 3.4).
struct FromParameters {
    std::string_view ret = {};
    std::string_view envid = {};
    bool smtpUtf8 = false;
};

// RFC 5321 section 3.3: no blanks inside. Domains leave this place in ASCII; only with smtpUtf8 may
// the sender's local part have other letters.
std::string mailFromCommand(std::string_view sender, const FromParameters& parameters);
// address is one that recipientAddress gave.
std::string rcptToCommand(std::string_view address, std::string_view notify);

// A command as the dialogue shows it: line ends spelled out.
std::string shownCommand(std::string_view command);

}  // namespace tv::smtp
