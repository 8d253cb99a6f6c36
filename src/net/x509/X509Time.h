// UTCTime and GeneralizedTime of certificates (RFC 5280, 4.1.2.5).
#pragma once

#include <cstdint>
#include <string>

#include "net/x509/DerReader.h"

namespace tv::x509 {

// Seconds since 1970-01-01 UTC. False for any form but the one of DER, which ends in "Z".
bool parseTime(const DerItem& item, int64_t& seconds);

// "2026-11-21 09:45:00 UTC", for a log.
std::string timeText(int64_t seconds);

}  // namespace tv::x509
