// Our own words first; what is left names a server in the words of emailsend.
#include "selftest/Options.h"

#include "emailsend/Files.h"
#include "emailsend/Process.h"

namespace selftest {
namespace {

Options& stored() {
    static Options& only = *new Options;
    return only;
}

bool readServer(const std::vector<std::string>& words, std::string& error) {
    emailsend::Arguments& server = stored().server;
    if (!emailsend::parseArguments(words, server, error)) return false;
    if (server.host.empty()) error = "--host is missing";
    if (!server.htmlFile.empty() || !server.logoFile.empty() || !server.attachments.empty() ||
        !server.cc.empty() || !server.bcc.empty() || !server.library.empty() || server.log) {
        error = "the self-test has a library, a message and a report of its own";
    }
    if (!error.empty() || server.help || server.version) return error.empty();
    // A part stands in another folder, where the file may have another name.
    const std::string file = stored().runsHere.empty() ? server.passwordFile : "";
    if (!emailsend::readPassword(file, stored().password, error)) return false;
    emailsend::setEnvironmentVariable("EMAILSEND_PASSWORD", stored().password);
    return true;
}

}  // namespace

const char* const kUsage =
    R"(selftest: runs the tests of the e-mail sending plug-in that need Windows, and sends messages
through the emailsending.dll beside it to a server of its own. Needs no installation and no network.
What came of it stands in selftest-report.txt, beside this program or in the folder %TEMP%.

  selftest
  selftest --host HOST --from ADDRESS --to ADDRESS [options]

With --host a message goes to that server, too. Options are those of emailsend: --port, --tls, --user,
--password-file, --auth, --domain, --ntlm-version, --subject. Then the report names the server and its
replies where the message is not taken; the password does not stand in it.

  --part PART    this part alone (may be repeated)

Exit code: 0 all passed, 1 something failed, 64 the command line cannot be used.
)";

const Options& options() {
    return stored();
}

bool readOptions(const std::vector<std::string>& words, std::string& error) {
    Options& all = stored();
    std::vector<std::string> rest;
    for (size_t i = 0; i < words.size(); ++i) {
        const bool hasValue = i + 1 < words.size();
        if (words[i] == "--here" && hasValue) {
            all.runsHere = words[++i];
        } else if (words[i] == "--part" && hasValue) {
            all.parts.push_back(words[++i]);
        } else if (words[i] == "--help" || words[i] == "-h" || words[i] == "/?") {
            all.help = true;
        } else {
            rest.push_back(words[i]);
        }
    }
    return rest.empty() || all.help || readServer(rest, error);
}

}  // namespace selftest
