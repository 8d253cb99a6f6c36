// Where this library lies, and what its surroundings say to it.
#pragma once

#include <string>

namespace tv::plat {

// The full path of the file that this code was loaded from, UTF-8: the library, or the program that
// it is linked into. Empty where the system does not tell.
std::string modulePath();

// A variable of the environment, UTF-8; empty where there is none, and where who runs the process
// may do less than it (set-id programs of POSIX).
std::string trustedVariable(const char* name);

// The settings file of the whole machine; empty where the system has no place for one (Windows).
std::string machineSettingsPath();

}  // namespace tv::plat
