// The clocks of Windows: the performance counter for waits, the civil time with its zone.
#include "platform/SysClock.h"

#include <windows.h>

#include "platform/Replaceable.h"

namespace tv::plat {
namespace {

class WindowsClock final : public SysClock {
public:
    uint64_t monotonicNs() override {
        static const uint64_t frequency = [] {
            LARGE_INTEGER f;
            QueryPerformanceFrequency(&f);
            return static_cast<uint64_t>(f.QuadPart);
        }();
        LARGE_INTEGER now;
        QueryPerformanceCounter(&now);
        const uint64_t ticks = static_cast<uint64_t>(now.QuadPart);
        // Whole seconds apart from the rest: ticks times 10^9 would overflow within the hour.
        return ticks / frequency * 1000000000 + ticks % frequency * 1000000000 / frequency;
    }

    CivilTime localTime() override {
        SYSTEMTIME local;
        GetLocalTime(&local);
        TIME_ZONE_INFORMATION zone;
        const DWORD season = GetTimeZoneInformation(&zone);
        const LONG extra = season == TIME_ZONE_ID_DAYLIGHT ? zone.DaylightBias : zone.StandardBias;
        CivilTime t;
        t.year = local.wYear;
        t.month = local.wMonth;
        t.day = local.wDay;
        t.hour = local.wHour;
        t.minute = local.wMinute;
        t.second = local.wSecond;
        t.weekday = local.wDayOfWeek;
        t.utcOffsetMinutes = static_cast<int>(-(zone.Bias + extra));
        return t;
    }

    uint64_t fileTimeUtc() override {
        FILETIME t;
        GetSystemTimeAsFileTime(&t);
        return (static_cast<uint64_t>(t.dwHighDateTime) << 32) | t.dwLowDateTime;
    }

    void sleepMs(uint32_t ms) override { Sleep(ms); }
};

}  // namespace

SysClock& sysClock() {
    return Replaceable<SysClock>::get<WindowsClock>();
}

}  // namespace tv::plat
