// "emailsend errors": the reference of errors.
#pragma once

#include <string>
#include <vector>

namespace emailsend {

// The words behind "errors"; returns the exit code.
int runErrors(const std::vector<std::string>& words);

}  // namespace emailsend
