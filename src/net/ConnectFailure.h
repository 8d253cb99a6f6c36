// Why a connect failed, in the words of the log.
#pragma once

#include <string>

#include "base/Failure.h"
#include "log/LogBase.h"

namespace tv {

// What went wrong, for a host that asks: the clause behind the cause, where there is one.
std::string connectFailText(const Failure& failure);

// Writes the cause under "ConnectFailReason", in words or, where it has none, by its number; the
// clause behind it stands before it, and what usually causes some of them after it.
void logConnectFailReason(LogBase& log, const Failure& failure);

}  // namespace tv
