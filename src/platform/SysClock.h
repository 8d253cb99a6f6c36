// The system's clocks and the one way to sleep. Tests replace the whole clock.
#pragma once

#include <cstdint>

#include "platform/Replaceable.h"

namespace tv::plat {

// Local civil time with the offset from UTC that is in force at that moment.
struct CivilTime {
    int year = 1970;
    int month = 1;  // 1 to 12
    int day = 1;
    int hour = 0;
    int minute = 0;
    int second = 0;
    int weekday = 4;           // 0 is Sunday
    int utcOffsetMinutes = 0;  // east of Greenwich is positive, daylight time included
};

class SysClock {
public:
    virtual ~SysClock() = default;
    // Never goes back; the starting point is arbitrary.
    virtual uint64_t monotonicNs() = 0;
    virtual CivilTime localTime() = 0;
    // UTC as a count of 100-nanosecond intervals since 1601-01-01.
    virtual uint64_t fileTimeUtc() = 0;
    virtual void sleepMs(uint32_t ms) = 0;

    uint64_t tickMs() { return monotonicNs() / 1000000; }
};

SysClock& sysClock();

// Puts another clock in place (nullptr: the system's own again) and returns the one before, or
// nullptr if that was the system's own. For tests; not safe while other threads use the clock.
inline SysClock* replaceSysClock(SysClock* clock) {
    return Replaceable<SysClock>::replace(clock);
}

}  // namespace tv::plat
