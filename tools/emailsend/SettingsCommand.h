// "emailsend settings": which file counts, whether one can be used, and what may stand in it.
#pragma once

#include <string>
#include <vector>

namespace emailsend {

extern const char* const kSettingsUsage;

// words: what stands behind "settings" on the command line. Returns the exit code.
int runSettings(const std::vector<std::string>& words);

}  // namespace emailsend
