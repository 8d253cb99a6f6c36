// A settings file for one send, and the reading of its log.
#include "emailsend/Recipients.h"

#include <charconv>
#include <string_view>

#include "base/Ascii.h"
#include "emailsend/Files.h"
#include "emailsend/Process.h"
#include "platform/SysFile.h"
#include "settings/SettingsFile.h"

namespace emailsend {
namespace {

constexpr char kSettingsVariable[] = "EMAILSENDING_SETTINGS";
constexpr std::string_view kSettings = "[log]\nsends = sends.log\n";

bool writeFile(const std::string& path, std::string_view text) {
    tv::plat::SysFile file;
    return file.openAppend(path) && file.write(text.data(), text.size()) && file.close();
}

// A value in quotes; at is behind the first.
std::string quotedValue(std::string_view line, size_t& at) {
    std::string value;
    for (; at < line.size() && line[at] != '"'; ++at) {
        if (line[at] == '\\' && at + 1 < line.size()) ++at;
        value += line[at];
    }
    return value;
}

}  // namespace

RecipientWatch::RecipientWatch(const std::string& library) {
    tv::settings::SettingsFile file(library);
    if (library.empty() || file.refresh()) return;
    if (!file.current()) {
        makeOwn();
        return;
    }
    log_ = file.current()->sends.value_or("");
    tv::plat::FileStamp stamp;
    if (tv::plat::fileStamp(log_, stamp)) begin_ = stamp.size;
}

// Only where the library will take it: a send must not fail for this.
void RecipientWatch::makeOwn() {
    folder_ = makeTemporaryFolder();
    const std::string path = folder_ + "/emailsending.ini";
    tv::settings::Settings settings;
    std::vector<std::pair<std::string, tv::plat::FileStamp>> seen;
    if (folder_.empty() || !writeFile(path, kSettings) ||
        tv::settings::readSettings(path, settings, seen)) {
        return;
    }
    setEnvironmentVariable(kSettingsVariable, path);
    log_ = settings.sends.value_or("");
}

std::vector<std::pair<std::string, int>> RecipientWatch::refused() const {
    std::string text, error;
    if (log_.empty() || !readFile(log_, text, error) || text.size() < begin_) return {};
    return refusedIn(text.substr(static_cast<size_t>(begin_)));
}

void RecipientWatch::tidyUp() {
    if (folder_.empty()) return;
    setEnvironmentVariable(kSettingsVariable, {});
    tv::plat::removeFile(folder_ + "/sends.log");
    tv::plat::removeFile(folder_ + "/emailsending.ini");
    removeTemporaryFolder(folder_);
    folder_.clear();
}

std::vector<std::pair<std::string, int>> refusedIn(const std::string& line) {
    constexpr std::string_view kRecipient = " to=\"";
    constexpr int kRefusal = 400;
    std::vector<std::pair<std::string, int>> all;
    for (size_t at = line.find(kRecipient); at != std::string::npos;
         at = line.find(kRecipient, at)) {
        at += kRecipient.size();
        const std::string value = quotedValue(line, at);
        const size_t blank = value.rfind(' ');
        int code = 0;
        if (blank == std::string::npos) continue;
        std::from_chars(value.data() + blank + 1, value.data() + value.size(), code);
        // Asked for again, later: the last word counts.
        std::erase_if(all,
                      [&](const auto& known) { return value.compare(0, blank, known.first) == 0; });
        if (code >= kRefusal) all.emplace_back(value.substr(0, blank), code);
    }
    return all;
}

}  // namespace emailsend
