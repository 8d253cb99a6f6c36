// The settings file seen from outside: nothing here sends.
#include "emailsend/SettingsCommand.h"

#include <string_view>

#include "base/Base64.h"
#include "emailsend/ExitCodes.h"
#include "emailsend/Process.h"
#include "platform/SysFile.h"
#include "platform/SysProtect.h"
#include "platform/SysRights.h"
#include "platform/SysWipe.h"
#include "settings/SettingsFile.h"
#include "settings/SettingsKeys.h"

namespace emailsend {

const char* const kSettingsUsage = R"(emailsend settings: the settings file of the plug-in.

  emailsend settings [--library PATH]   which file counts for the plug-in at PATH (the one beside
                                        this program), and what it says
  emailsend settings check FILE         whether this file could be used, and whether ordinary users
                                        can read a password in it or beside it (Windows)
  emailsend settings protect            reads a password and prints the line for it that no other
                                        machine can use (Windows)
  emailsend settings sample             all keys, each with its meaning, as a file to start from
  emailsend settings table              the same as a table for docs/settings.md

Exit code: 0 there is no file or it can be used; 64 the command line could not be used; 74 the output
could not be written; 78 the file could not be used.
)";

namespace {

using tv::settings::Key;

constexpr int kGood = 0;

// Each line with a text in front.
std::string indented(std::string_view text, std::string_view front) {
    std::string out;
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        out += std::string(front) + std::string(text.substr(0, end)) + "\n";
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return out;
}

std::string sample() {
    std::string out =
        "; What the e-mail sending plug-in goes by, over what its host program says.\n"
        "; Each line here is a comment: take the ; and the blank away from those that are to "
        "count.\n";
    std::string_view section;
    for (const Key& key : tv::settings::keys()) {
        if (key.section != section) out += "\n[" + std::string(section = key.section) + "]\n";
        out += "\n" + indented(key.meaning, "; ") + "; Without it: " + std::string(key.standard) +
               ".\n; " + std::string(key.name) + " = " + std::string(key.example) + "\n";
    }
    return out;
}

std::string table() {
    std::string out;
    std::string_view section;
    for (const Key& key : tv::settings::keys()) {
        if (out.empty() || key.section != section) {
            section = key.section;
            out += (out.empty() ? "### " : "\n### ") +
                   (section.empty() ? "Before any section" : '[' + std::string(section) + ']') +
                   "\n\n| key | may be | without it | meaning |\n|---|---|---|---|\n";
        }
        std::string meaning(key.meaning);
        for (char& c : meaning) {
            if (c == '\n') c = ' ';
        }
        out += "| `" + std::string(key.name) + "` | " + tv::settings::mayBe(key.form) + " | " +
               std::string(key.standard) + " | " + meaning + " |\n";
    }
    return out;
}

// What a file says, or why it cannot be used.
int tell(const std::string& path) {
    tv::settings::Settings settings;
    std::vector<std::pair<std::string, tv::plat::FileStamp>> seen;
    const tv::Failure failure = tv::settings::readSettings(path, settings, seen);
    if (failure) {
        printError("emailsend: " + failure.text() + "\n");
        return kSettings;
    }
    printOut(path + " can be used. It says:\n");
    for (const std::string& line : settings.inForce) {
        printOut("  " + line + "\n");
    }
    if (settings.inForce.empty()) printOut("  nothing\n");
    printError(openSecrets(settings));
    return kGood;
}

int tellWhichCounts(const std::string& library) {
    tv::settings::SettingsFile file(library);
    printOut("Looked for, the first that exists counts:\n");
    for (const std::string& place : tv::settings::SettingsFile::places(library)) {
        printOut("  " + place + (tv::plat::isRegularFile(place) ? "" : " (does not exist)") + "\n");
    }
    const tv::Failure failure = file.refresh();
    if (failure) {
        printError("emailsend: " + failure.text() + "\n");
        return kSettings;
    }
    if (file.current()) return tell(file.current()->file);
    printOut("There is none: the host program's settings count.\n");
    return kGood;
}

int protect() {
    std::string password = secretLine("Password: ");
    std::string blob;
    const bool good = !password.empty() && tv::plat::protectForMachine(password, blob);
    tv::plat::wipe(password.data(), password.size());
    if (!good) {
        printError(
            "emailsend: there is no password, or this system does not protect any (DPAPI of "
            "Windows does).\n");
        return kSettings;
    }
    printOut("password = dpapi:" + tv::base64Encode(blob) + "\n");
    printError(
        "This line works on this machine alone; after it has been set up anew a new one is needed. "
        "Whoever can run programs here and read the file can read the password.\n");
    return kGood;
}

}  // namespace

std::string openSecrets(const tv::settings::Settings& settings) {
    std::string lines;
    for (const std::string& path : settings.plainSecrets) {
        std::string readers;
        for (const std::string& group : tv::plat::groupsThatRead(path)) {
            readers += (readers.empty() ? "" : ", ") + group;
        }
        if (readers.empty()) continue;
        lines += "emailsend: warning: " + path +
                 " holds a secret as it is and can be read by: " + readers + ".\n";
    }
    return lines;
}

int runSettings(const std::vector<std::string>& words) {
    if (words.empty()) return tellWhichCounts(libraryBesideProgram());
    const std::string& first = words.front();
    if (first == "--library" && words.size() == 2) return tellWhichCounts(words[1]);
    if (first == "check" && words.size() == 2) return tell(words[1]);
    if (words.size() == 1 && first == "protect") return protect();
    if (words.size() == 1 && (first == "sample" || first == "table")) {
        printOut(first == "sample" ? sample() : table());
        return kGood;
    }
    if (first == "--help") {
        printOut(kSettingsUsage);
        return kGood;
    }
    printError(std::string("emailsend: what is meant?\n\n") + kSettingsUsage);
    return kUsageError;
}

}  // namespace emailsend
