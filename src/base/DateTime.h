// Dates as message headers and logs carry them.
#pragma once

#include <string>

#include "platform/SysClock.h"

namespace tv {

// "Sat, 14 Nov 2026 09:05:07 +0100" (RFC 5322 section 3.3).
std::string mailDate(const plat::CivilTime& time);

// "2026-11-14T09:05:07+01:00" (RFC 3339).
std::string logDate(const plat::CivilTime& time);

// "2026-11-14 09:05:07 UTC", of a time that is one of UTC.
std::string utcDate(const plat::CivilTime& time);

}  // namespace tv
