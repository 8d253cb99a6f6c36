// The options in tables, and what makes one message of them.
#include "emailsend/Arguments.h"

#include <charconv>
#include <string_view>

#include "base/Ascii.h"

namespace emailsend {

const char* const kUsage =
    R"(emailsend: sends one message through the e-mail sending plug-in.

  emailsend --host HOST --from ADDRESS --to ADDRESS [options]

Server
  --host HOST            name or address of the mail server (or as the settings file says)
  --port PORT            its port (25)
  --tls implicit         encrypted from the first byte (port 465)
  --tls starttls         encrypted by STARTTLS, or not sent at all
  --tls none             encryption is not asked for, but STARTTLS is used where the server
                         offers it, as without --tls
                         (certificates are not verified, whatever --tls says)
  --user NAME            log in; the password comes from --password-file
  --password-file FILE   or else from the environment, EMAILSEND_PASSWORD
  --auth METHOD          LOGIN, PLAIN, CRAM-MD5, NTLM or NONE; without it the first of LOGIN,
                         NTLM, CRAM-MD5 and PLAIN that the server offers. NTLM without --user,
                         or with the user "default", logs in as the Windows user
  --domain DOMAIN        Windows domain for NTLM
  --ntlm-version N       1 or 2 (2)

Message (--to, --cc, --bcc and --attach may be repeated)
  --from ADDRESS         sender, "me@example.com" or "Me <me@example.com>"
  --to ADDRESS           recipient
  --cc ADDRESS           recipient of a copy
  --bcc ADDRESS          recipient of a blind copy
  --subject TEXT
  --html FILE            body, UTF-8; {LOGO} in it marks the place of the logo; - is stdin
  --logo FILE            image for that place
  --attach FILE

Other
  --log                  append the message to emailsending.log in the current directory
  --verbose              after the sentence that says what failed, the whole log; of a server that
                         could not be reached with times, codes and the steps of the TLS handshake
  --library PATH         the plug-in to load (the one beside this program)
  --help, -h, /?
  --version

--name=value is --name value.

  emailsend doctor       walks the way of a message and says what to change (doctor --help)
  emailsend settings     which settings file counts, and more (emailsend settings --help)
  emailsend errors       all that can go wrong, and what to change (docs/errors.md)

It waits as long as the plug-in does: two minutes for a server that is gone, longer for a slow one.

Recipients that the server refused while it took the message for others are told on stderr (where a
settings file counts, if it has "sends" in [log]).

Exit code:
  0   the server accepted the message for at least one recipient
  3   nobody knows: the server may have the message (a lost connection, Ctrl-C)
  64  the command line, a sender or a recipient cannot be used
  66  a file or the plug-in cannot be read
  68  no such host
  69  no connection, or refused for good
  70  something within failed: memory, the making of the message
  74  what was to be printed could not be written
  75  refused for now: send it again later
  76  no SMTP there, or no TLS where it must be
  77  the login or the certificate is refused
  78  the settings file cannot be used
  130 stopped by Ctrl-C while no message was being sent
)";

namespace {

struct TextOption {
    std::string_view name;
    std::string Arguments::*target;
};
constexpr TextOption kTextOptions[] = {
    {"--library", &Arguments::library}, {"--host", &Arguments::host},
    {"--user", &Arguments::user},       {"--password-file", &Arguments::passwordFile},
    {"--auth", &Arguments::authMethod}, {"--domain", &Arguments::domain},
    {"--from", &Arguments::from},       {"--subject", &Arguments::subject},
    {"--html", &Arguments::htmlFile},   {"--logo", &Arguments::logoFile},
};

struct ListOption {
    std::string_view name;
    std::vector<std::string> Arguments::*target;
};
constexpr ListOption kListOptions[] = {
    {"--to", &Arguments::to},
    {"--cc", &Arguments::cc},
    {"--bcc", &Arguments::bcc},
    {"--attach", &Arguments::attachments},
};

struct FlagOption {
    std::string_view name;
    bool Arguments::*target;
};
constexpr FlagOption kFlagOptions[] = {
    {"--help", &Arguments::help}, {"-h", &Arguments::help},
    {"/?", &Arguments::help},     {"--version", &Arguments::version},
    {"--log", &Arguments::log},   {"--verbose", &Arguments::verbose},
};

struct TlsWord {
    std::string_view word;
    Tls tls;
};
constexpr TlsWord kTlsWords[] = {
    {"none", Tls::None}, {"implicit", Tls::Implicit}, {"starttls", Tls::StartTls}};

constexpr std::string_view kAuthMethods[] = {"LOGIN", "PLAIN", "CRAM-MD5", "NTLM", "NONE"};

template <class Table>
auto find(const Table& table, std::string_view name) {
    for (const auto& option : table) {
        if (option.name == name) return option.target;
    }
    return decltype(table[0].target){};
}

bool parseNumber(const std::string& text, int32_t& out) {
    const char* end = text.data() + text.size();
    const auto [stop, problem] = std::from_chars(text.data(), end, out);
    return problem == std::errc() && stop == end;
}

bool parsePort(const std::string& text, int32_t& out) {
    return parseNumber(text, out) && out >= 1 && out <= 65535;
}

bool parseTls(const std::string& text, Tls& out) {
    for (const TlsWord& known : kTlsWords) {
        if (known.word == text) {
            out = known.tls;
            return true;
        }
    }
    return false;
}

// One option that has a value.
bool takeValue(const std::string& name, const std::string& value, Arguments& out,
               std::string& error) {
    bool valid = true;
    if (const auto text = find(kTextOptions, name)) {
        out.*text = value;
        valid = name != "--auth" || isAuthMethod(value);
    } else if (const auto list = find(kListOptions, name)) {
        (out.*list).push_back(value);
    } else if (name == "--port") {
        valid = parsePort(value, out.port);
    } else if (name == "--ntlm-version") {
        int32_t version = 0;
        valid = parseNumber(value, version);
        out.ntlmVersion = version;
    } else if (name == "--tls") {
        valid = parseTls(value, out.tls);
    }
    if (!valid) error = name + " cannot be \"" + value + "\"";
    return valid;
}

bool isValueOption(std::string_view name) {
    return find(kTextOptions, name) || find(kListOptions, name) || name == "--port" ||
           name == "--ntlm-version" || name == "--tls";
}

bool isWholeMessage(const Arguments& arguments, std::string& error) {
    if (arguments.from.find('@') == std::string::npos) {
        error = "--from is missing or no address";
    } else if (arguments.to.empty() && arguments.cc.empty() && arguments.bcc.empty()) {
        error = "there is no recipient (--to, --cc, --bcc)";
    } else if (!arguments.logoFile.empty() && arguments.htmlFile.empty()) {
        error = "--logo needs a body to stand in (--html)";
    }
    return error.empty();
}

}  // namespace

bool isAuthMethod(std::string_view text) {
    for (const std::string_view method : kAuthMethods) {
        if (tv::equalsIgnoreCase(method, text)) return true;
    }
    return false;
}

bool logsInAsWindowsUser(const Arguments& arguments) {
    const std::string_view user = tv::trimmed(arguments.user);
    return tv::equalsIgnoreCase(arguments.authMethod, "NTLM") &&
           (user.empty() || tv::equalsIgnoreCase(user, "default"));
}

bool parseArguments(const std::vector<std::string>& words, Arguments& out, std::string& error) {
    out = {};
    error.clear();
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (const auto flag = find(kFlagOptions, word)) {
            out.*flag = true;
            continue;
        }
        const size_t equals = word.find('=');
        const std::string name = word.substr(0, equals);
        if (!isValueOption(name)) {
            error = "unknown argument \"" + word + "\"";
            return false;
        }
        if (equals == std::string::npos && ++i == words.size()) {
            error = word + " needs a value";
            return false;
        }
        if (!takeValue(name, equals == std::string::npos ? words[i] : word.substr(equals + 1), out,
                       error)) {
            return false;
        }
    }
    return out.help || out.version || isWholeMessage(out, error);
}

}  // namespace emailsend
