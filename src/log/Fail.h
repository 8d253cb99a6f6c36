// A failure is written to the log where it is found, and there alone.
#pragma once

#include <string>

#include "base/Failure.h"
#include "log/LogBase.h"

namespace tv {

// sentence: what went wrong, for the log and for who asks the failure.
Failure fail(LogBase& log, Cause cause, std::string sentence);

}  // namespace tv
