// Secrets that no other machine can read.
#pragma once

#include <string>
#include <string_view>

namespace tv::plat {

// Windows: DPAPI with the machine's own key, which asks nobody anything; whoever runs a program on
// this machine can read what it protects, and a machine that is set up anew cannot. False where the
// system refuses, and on systems that have no such thing (POSIX). Secrets are the caller's to wipe.
bool protectForMachine(std::string_view secret, std::string& blob);
bool unprotectOfMachine(std::string_view blob, std::string& secret);

}  // namespace tv::plat
