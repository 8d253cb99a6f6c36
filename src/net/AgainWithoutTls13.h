// The second try for servers that fall silent or hang up at a hello with TLS 1.3.
#pragma once

#include <functional>
#include <string_view>

#include "base/Failure.h"
#include "log/LogBase.h"

namespace tv {

// Runs attempt, with withoutTls13 set meanwhile, where first says that a hello with TLS 1.3 was not
// answered and tlsProtocol (a version policy) allows one without it. Else gives first back.
Failure againWithoutTls13(LogBase& log, std::string_view tlsProtocol, bool& withoutTls13,
                          Failure first, const std::function<Failure()>& attempt);

}  // namespace tv
