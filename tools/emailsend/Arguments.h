// The command line of emailsend: words in, settings of one message out. Pure.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace emailsend {

enum class Tls { AsOffered, None, Implicit, StartTls };

// All text is UTF-8.
struct Arguments {
    bool help = false;
    bool version = false;
    std::string library;  // empty: the one beside the program
    std::string host;
    int32_t port = 25;
    Tls tls = Tls::AsOffered;
    std::string user;
    std::string passwordFile;
    std::string authMethod;
    std::string domain;
    std::optional<int32_t> ntlmVersion;
    std::string from;
    std::vector<std::string> to;
    std::vector<std::string> cc;
    std::vector<std::string> bcc;
    std::string subject;
    std::string htmlFile;
    std::string logoFile;
    std::vector<std::string> attachments;
    bool log = false;
    bool verbose = false;
};

extern const char* const kUsage;

// NTLM with the account of who is logged on, which needs no password.
bool logsInAsWindowsUser(const Arguments& arguments);

// Of those that --auth may name, in any case.
bool isAuthMethod(std::string_view text);

// False, with a sentence in error, where the words do not make up one message. A request for help
// stands for itself.
bool parseArguments(const std::vector<std::string>& words, Arguments& out, std::string& error);

}  // namespace emailsend
