// The options in tables, "--name value" or "--name=value".
#include "emailsend/doctor/Options.h"

#include <charconv>
#include <string_view>

namespace emailsend::doctor {

const char* const kUsage =
    R"(emailsend doctor: walks the way of a message, step by step, and says what to change.

  emailsend doctor --host HOST [options]

  --host HOST            name or address of the mail server (or as the settings file says)
  --port PORT            its port; without it 25, 465 and 587 are looked at
  --tls implicit         encrypted from the first byte, as the host program would ask for it
  --tls starttls         encrypted by STARTTLS
  --user NAME            log in, once, over TLS; the password comes from --password-file
  --password-file FILE   or else from the environment, EMAILSEND_PASSWORD
  --auth METHOD          LOGIN, PLAIN, CRAM-MD5, NTLM or NONE
  --domain DOMAIN        Windows domain for NTLM
  --login-in-clear       log in over a connection that is not encrypted, too
  --to ADDRESS           ask the server whether it takes mail for this recipient
  --from ADDRESS         from this sender (the user, or the recipient)
  --send                 send a test message through the plug-in (needs --to)
  --limit SECONDS        how long a step may take (idle-timeout of the settings file, 30)
  --write FILE           write the strictest settings file that works; FILE must not exist
  --json                 all that was found as one JSON object
  --library PATH         the plug-in, and the settings file beside it (beside this program)

Exit code: that of the sentence at the end (emailsend --help); 0 where a message could go out.
)";

namespace {

constexpr uint32_t kMostSeconds = 3600;

struct TextOption {
    std::string_view name;
    std::string Options::*target;
};
constexpr TextOption kTexts[] = {
    {"--library", &Options::library}, {"--host", &Options::host},
    {"--user", &Options::user},       {"--password-file", &Options::passwordFile},
    {"--auth", &Options::authMethod}, {"--domain", &Options::domain},
    {"--from", &Options::from},       {"--to", &Options::to},
    {"--write", &Options::write},
};

struct FlagOption {
    std::string_view name;
    bool Options::*target;
};
constexpr FlagOption kFlags[] = {
    {"--help", &Options::help}, {"-h", &Options::help},
    {"/?", &Options::help},     {"--login-in-clear", &Options::loginInClear},
    {"--send", &Options::send}, {"--json", &Options::json},
};

template <class Table>
auto find(const Table& table, std::string_view name) {
    for (const auto& option : table) {
        if (option.name == name) return option.target;
    }
    return decltype(table[0].target){};
}

bool readNumber(std::string_view text, uint32_t most, uint32_t& out) {
    const char* const end = text.data() + text.size();
    const auto [stop, problem] = std::from_chars(text.data(), end, out);
    return problem == std::errc() && stop == end && out >= 1 && out <= most;
}

// False where the option has no such value, or there is no such option.
bool takeValue(std::string_view name, const std::string& value, Options& out) {
    uint32_t number = 0;
    if (const auto target = find(kTexts, name)) {
        out.*target = value;
        return !value.empty() && (name != "--auth" || isAuthMethod(value));
    }
    if (name == "--port" && readNumber(value, 65535, number)) {
        out.port = static_cast<int32_t>(number);
        return true;
    }
    if (name == "--limit" && readNumber(value, kMostSeconds, number)) {
        out.limitMs = number * 1000;
        return true;
    }
    if (name != "--tls") return false;
    if (value == "implicit") out.tls = Tls::Implicit;
    if (value == "starttls") out.tls = Tls::StartTls;
    return out.tls != Tls::AsOffered;
}

bool takesValue(std::string_view name) {
    return find(kTexts, name) || name == "--port" || name == "--limit" || name == "--tls";
}

bool judge(const Options& options, std::string& error) {
    if (options.send && options.to.empty()) error = "--send needs --to";
    for (const std::string* address : {&options.to, &options.from}) {
        const bool isAddress = address->find('@') != std::string::npos;
        if (!address->empty() && !isAddress) error = "\"" + *address + "\" is no address";
    }
    const bool stranded = !options.passwordFile.empty() && options.user.empty();
    if (stranded) error = "--password-file needs --user";
    return error.empty();
}

}  // namespace

bool parseOptions(const std::vector<std::string>& words, Options& out, std::string& error) {
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (const auto flag = find(kFlags, word)) {
            out.*flag = true;
            continue;
        }
        const size_t equals = word.find('=');
        const std::string name = word.substr(0, equals);
        if (!takesValue(name)) {
            error = "unknown argument \"" + name + "\"";
            return false;
        }
        if (equals == std::string::npos && i + 1 == words.size()) {
            error = name + " needs a value";
            return false;
        }
        const std::string value =
            equals == std::string::npos ? words[++i] : word.substr(equals + 1);
        if (!takeValue(name, value, out)) {
            error = name + " cannot be \"" + value + "\"";
            return false;
        }
    }
    return out.help || judge(out, error);
}

}  // namespace emailsend::doctor
