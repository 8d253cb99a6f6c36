// Why a connect failed, in the words of the log.
#pragma once

#include <string>

#include "log/LogBase.h"
#include "net/SocketParams.h"

namespace tv {

// The reason's text; its number where it has none.
std::string connectFailText(ConnectFailReason reason);

// The same for a host that asks what went wrong: words for a handshake that broke off or was
// refused.
std::string connectFailCause(const SocketParams& params);

// Writes the reason under "ConnectFailReason", with the usual causes of some.
void logConnectFailReason(ConnectFailReason reason, LogBase& log);

}  // namespace tv
