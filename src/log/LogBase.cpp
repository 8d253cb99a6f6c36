// Entries made of other entries: numbers and elapsed times.
#include "log/LogBase.h"

#include "platform/SysClock.h"

namespace tv {

bool LogBase::logDataLong(std::string_view name, int64_t number) {
    return null_ || logData(name, std::to_string(number));
}

bool LogBase::logElapsed(std::string_view name, uint64_t startTickMs) {
    if (null_) return true;
    const uint64_t now = plat::sysClock().tickMs();
    // Ten days: no operation takes so long, the start was another clock's.
    constexpr uint64_t kImplausible = 900000000;
    if (now < startTickMs || now - startTickMs >= kImplausible) return true;
    return logData(name, "Elapsed time: " + std::to_string(now - startTickMs) + " millisec");
}

}  // namespace tv
