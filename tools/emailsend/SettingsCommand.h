// "emailsend settings": which file counts, whether one can be used, and what may stand in it.
#pragma once

#include <string>
#include <vector>

#include "settings/Settings.h"

namespace emailsend {

extern const char* const kSettingsUsage;

// A line for each file that holds a secret as it is and can be read by a group of ordinary users
// (Windows; on POSIX such a file is not used at all).
std::string openSecrets(const tv::settings::Settings& settings);

// words: what stands behind "settings" on the command line. Returns the exit code.
int runSettings(const std::vector<std::string>& words);

}  // namespace emailsend
