// Why a connect failed, in the words of the log.
#pragma once

#include <string>

#include "log/LogBase.h"
#include "net/stream/CallContext.h"

namespace tv {

// The reason's text; its number where it has none.
std::string connectFailText(ConnectFailReason reason);

// The same for a host that asks what went wrong: the cause behind the reason, where one is known.
std::string connectFailCause(const CallContext& call);

// Writes the reason under "ConnectFailReason", the cause before it and the usual causes of some
// behind it.
void logConnectFailReason(const CallContext& call);

}  // namespace tv
