// Start-up of the system's socket library: once for the process, and again where a call reports
// that it was not done.
#pragma once

#include "log/LogBase.h"

namespace tv {

// Starts the library if this process has not yet done so.
bool ensureSocketLibrary(LogBase& log);

// Starts it in any case.
bool startupWSA(LogBase& log);

}  // namespace tv
