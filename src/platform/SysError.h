// What the system says of a call that failed.
#pragma once

#include <string>

namespace tv::plat {

// Of the last call that failed in this thread, as a clause in the user's language, UTF-8; its
// number where the system has no words for it.
std::string lastErrorWords();

}  // namespace tv::plat
