// Which file counts, whether it has changed, and who may have written it.
#include "settings/SettingsFile.h"

#include <algorithm>

#include "platform/SysClock.h"
#include "platform/SysHost.h"
#include "platform/SysModule.h"
#include "platform/SysWipe.h"
#include "settings/SettingsParser.h"

namespace tv::settings {
namespace {

constexpr char kVariable[] = "EMAILSENDING_SETTINGS";
constexpr char kFileName[] = "emailsending.ini";
// More than any settings or bundle of certificates has; keeps a wrong path from filling memory.
constexpr size_t kMostSettings = size_t{1} << 20;
constexpr size_t kMostNamed = size_t{16} << 20;

using Seen = std::vector<std::pair<std::string, plat::FileStamp>>;

Failure unusable(const std::string& path, const std::string& why) {
    return Failure(Cause::SettingsUnusable,
                   "The settings file " + path + " cannot be used: " + why + ".");
}

std::string besideLibrary(const std::string& library) {
    const size_t end = library.find_last_of("/\\");
    return end == std::string::npos ? "" : library.substr(0, end + 1) + kFileName;
}

bool exists(const std::string& path) {
    plat::FileStamp stamp;
    return !path.empty() && plat::fileStamp(path, stamp);
}

bool isAbsolute(std::string_view path) {
    return path.starts_with('/') || path.starts_with("\\\\") ||
           (path.size() > 2 && path[1] == ':' && (path[2] == '\\' || path[2] == '/'));
}

}  // namespace

Failure settingsOf(std::string_view bytes, const std::string& path, Settings& out, Seen& seen) {
    const ReadFile readNamed = [&seen](const std::string& name, bool secret,
                                       std::string& contents) {
        plat::TrustedFile named;
        std::string problem = plat::readTrustedFile(name, kMostNamed, named);
        if (problem.empty() && secret && named.othersRead) {
            problem = "holds a secret and can be read by anybody";
        }
        seen.emplace_back(name, named.stamp);
        contents = std::move(named.bytes);
        return problem;
    };
    return parseSettings(bytes, plat::sysHost().ansiCodePage(), path, readNamed, out);
}

Failure readSettings(const std::string& path, Settings& out, Seen& seen) {
    plat::TrustedFile file;
    std::string why = plat::readTrustedFile(path, kMostSettings, file);
    if (!why.empty()) return unusable(path, "it " + why);
    seen.assign(1, {path, file.stamp});
    Settings read;
    Failure failure = settingsOf(file.bytes, path, read, seen);
    plat::wipe(file.bytes.data(), file.bytes.size());
    if (failure) return failure;
    const auto& secrets = read.plainSecrets;
    if (file.othersRead && std::ranges::find(secrets, path) != secrets.end()) {
        return unusable(path, "it holds a password and can be read by anybody");
    }
    out = std::move(read);
    return {};
}

SettingsFile::SettingsFile(std::string library) : library_(std::move(library)) {}

std::vector<std::string> SettingsFile::places(const std::string& library) {
    std::vector<std::string> all = {plat::trustedVariable(kVariable), besideLibrary(library),
                                    plat::machineSettingsPath()};
    std::erase(all, "");
    return all;
}

Failure SettingsFile::refresh() {
    if (path_.empty()) {
        if (Failure failure = find()) return failure;
        if (path_.empty()) return {};
    }
    return unchanged() ? Failure() : read();
}

Failure SettingsFile::find() {
    const std::string named = plat::trustedVariable(kVariable);
    if (!named.empty()) {
        if (!isAbsolute(named)) {
            return unusable(named, std::string("the path in ") + kVariable + " is not absolute");
        }
        if (!exists(named)) {
            return unusable(named, std::string("it does not exist; ") + kVariable + " names it");
        }
        path_ = named;
        return {};
    }
    const std::string beside = besideLibrary(library_);
    if (exists(beside)) {
        path_ = beside;
    } else if (!beside.empty() && exists(beside + ".txt")) {
        // Notepad's doing, whose user believes the settings to be in force.
        return unusable(beside + ".txt", std::string("its name must be ") + kFileName);
    } else if (exists(plat::machineSettingsPath())) {
        path_ = plat::machineSettingsPath();
    }
    return {};
}

bool SettingsFile::unchanged() const {
    return !stamps_.empty() && std::all_of(stamps_.begin(), stamps_.end(), [](const auto& known) {
        plat::FileStamp now;
        return plat::fileStamp(known.first, now) && now == known.second;
    });
}

// Who has changed the last one just now may be amid it: half a file must not count.
bool SettingsFile::rests() const {
    constexpr uint64_t kRest = uint64_t{250} * 10000;  // 250 ms
    const uint64_t now = plat::sysClock().fileTimeUtc();
    return std::all_of(stamps_.begin(), stamps_.end(), [now](const auto& known) {
        const uint64_t modified = known.second.modified;
        return modified > now || now - modified >= kRest;  // the clock of another machine
    });
}

// What changes while it is read, or has just been changed, is read once more.
Failure SettingsFile::read() {
    constexpr int kMostReadings = 40;
    constexpr uint32_t kPauseMs = 50;
    stamps_.clear();
    // While a file is cut, its size can be new and its time still the old one.
    const int first = current_ ? 1 : 0;
    for (int reading = 0; reading < kMostReadings; ++reading) {
        if (!exists(path_)) return unusable(path_, "it is gone");
        Failure failure = readOnce();
        // What could not be read has no stamps to compare.
        if (reading >= first && rests() && (unchanged() || (failure && reading > 0))) {
            if (failure) stamps_.clear();
            return failure;
        }
        plat::sysClock().sleepMs(kPauseMs);
    }
    stamps_.clear();
    return unusable(path_, "it, or a file that it names, is being changed again and again");
}

Failure SettingsFile::readOnce() {
    auto fresh = std::make_shared<Settings>();
    Failure failure = readSettings(path_, *fresh, stamps_);
    if (failure) return failure;
    fresh->revision = ++readings_;
    current_ = std::move(fresh);
    return {};
}

}  // namespace tv::settings
