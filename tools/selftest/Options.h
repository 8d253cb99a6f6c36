// The command line of the self-test.
#pragma once

#include <string>
#include <vector>

#include "emailsend/Arguments.h"

namespace selftest {

struct Options {
    bool help = false;
    std::string runsHere;            // the one part that this process is for; else it is in charge
    std::vector<std::string> parts;  // to be run; empty for all
    emailsend::Arguments server;     // the user's own, where its host is named
    std::string password;            // for it; lasts as long as the process
};

// What was read last.
const Options& options();

// False, with a sentence in error. The password goes into the environment, for the parts.
bool readOptions(const std::vector<std::string>& words, std::string& error);

extern const char* const kUsage;

}  // namespace selftest
