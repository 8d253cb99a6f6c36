// The settings parser on any bytes: it takes a file or says which line it does not take, and what
// is in force shows no secret.
#include <cstdlib>
#include <string>

#include "settings/SettingsParser.h"

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const tv::settings::ReadFile readFile = [](const std::string& path, bool, std::string& out) {
        out = "hidden-word\n";
        return std::string(path.ends_with("none") ? "is no file" : "");
    };
    tv::settings::Settings settings;
    const tv::Failure failure =
        tv::settings::parseSettings(bytes, 1250, "/f/e.ini", readFile, settings);
    require(!failure || failure.is(tv::Cause::SettingsUnusable));
    require(failure.text().find("hidden-word") == std::string::npos ||
            bytes.find("hidden-word") != std::string_view::npos);
    require(!failure || settings.inForce.empty());
    for (const std::string& line : settings.inForce) {
        require(!line.starts_with("[login] password") || line.ends_with("= ***"));
    }
    require(!settings.password || (settings.host && settings.user));
    return 0;
}
