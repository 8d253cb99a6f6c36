// What a socket error means, in words.
#pragma once

#include <string>

#include "log/LogBase.h"
#include "platform/SysSocket.h"

namespace tv {

// The error's name and explanation in one line.
std::string socketErrorText(const plat::NetError& error);

// Writes the text, and for some errors a further line on their usual cause.
void logSocketError(LogBase& log, const plat::NetError& error);

}  // namespace tv
