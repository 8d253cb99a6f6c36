// Who may read a file beside those who keep it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tv::plat {

// The groups of ordinary users that may read it, by the system's names for them: Windows alone.
// Empty where none may, where the system cannot tell, and on POSIX, where SysFile::distrust judges.
std::vector<std::string> groupsThatRead(std::string_view utf8Path);

}  // namespace tv::plat
