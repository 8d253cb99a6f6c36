// "emailsend doctor": the walk from this machine to the server, with what to change on the way.
#pragma once

#include <string>
#include <vector>

namespace emailsend {

// words: what stands behind "doctor" on the command line. Returns the exit code.
int runDoctor(const std::vector<std::string>& words);

}  // namespace emailsend
