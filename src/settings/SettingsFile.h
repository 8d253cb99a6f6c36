// The settings file that counts: found, read when it has changed, and kept.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/Failure.h"
#include "platform/SysFile.h"
#include "settings/Settings.h"

namespace tv::settings {

// One object for one Initialise. Not safe to use from several threads at once.
class SettingsFile {
public:
    // library: the path of the library that the file may lie beside.
    explicit SettingsFile(std::string library);

    // Reads what has changed since the last time: the file, or one that it names. Fails where a
    // file counts that cannot be used, or the one that counted is gone.
    Failure refresh();
    // What counts; null without a file. Who holds it keeps it as it is.
    std::shared_ptr<const Settings> current() const { return current_; }

    // Where a file is looked for, the first that exists counts; UTF-8.
    static std::vector<std::string> places(const std::string& library);

private:
    using Stamps = std::vector<std::pair<std::string, plat::FileStamp>>;  // of the files by path

    Failure find();
    Failure read();
    Failure readOnce();
    bool unchanged() const;
    bool rests() const;

    const std::string library_;
    std::string path_;  // empty: none has been seen
    Stamps stamps_;     // empty: to be read
    uint64_t readings_ = 0;
    std::shared_ptr<const Settings> current_;
};

// Reads and checks one file; for the library and for whoever wants to know beforehand. seen gets
// the files with their stamps, this one first.
Failure readSettings(const std::string& path, Settings& out,
                     std::vector<std::pair<std::string, plat::FileStamp>>& seen);

// What a file with these bytes would say at this path. seen gets the files that it names.
Failure settingsOf(std::string_view bytes, const std::string& path, Settings& out,
                   std::vector<std::pair<std::string, plat::FileStamp>>& seen);

}  // namespace tv::settings
