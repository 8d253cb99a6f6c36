// What a script learns of a send: sysexits where they have a number for it.
#pragma once

#include "advice/Finding.h"

namespace emailsend {

constexpr int kAccepted = 0;
constexpr int kOutcomeUnknown = 3;
constexpr int kUsageError = 64;
constexpr int kLocalFile = 66;
constexpr int kNoSuchHost = 68;
constexpr int kUnavailable = 69;  // no connection, or refused for good
constexpr int kInternal = 70;
constexpr int kOutputLost = 74;
constexpr int kRefusedForNow = 75;  // a repetition is right
constexpr int kProtocol = 76;       // not SMTP, or no TLS where it must be
constexpr int kNoPermission = 77;   // login or certificate
constexpr int kSettings = 78;
constexpr int kStopped = 130;  // by Ctrl-C or the like, while nothing was being sent

// What the program ends with: output that was lost is told, and is no success.
int withOutput(int exitCode);

int exitCodeOf(const tv::advice::Finding& finding);

}  // namespace emailsend
