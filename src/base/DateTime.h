// Dates as message headers carry them.
#pragma once

#include <string>

#include "platform/SysClock.h"

namespace tv {

// "Sat, 14 Nov 2026 09:05:07 +0100" (RFC 5322 section 3.3).
std::string mailDate(const plat::CivilTime& time);

}  // namespace tv
