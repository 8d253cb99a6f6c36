// The clocks of POSIX.
#include "platform/SysClock.h"

#include <errno.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <limits>
#include <type_traits>

#include "platform/Replaceable.h"

namespace tv::plat {
namespace {

namespace chrono = std::chrono;

// In 32-bit code a moment after 2038 is too large for time_t: glibc cuts it to 32 bits up to 2.30,
// then it fails.
chrono::nanoseconds now(clockid_t clock) {
    using Seconds = std::conditional_t<sizeof(time_t) == 4, uint32_t, time_t>;
    struct timespec t = {};
    if (clock_gettime(clock, &t) == 0)
        return chrono::seconds(static_cast<Seconds>(t.tv_sec)) + chrono::nanoseconds(t.tv_nsec);
    int64_t parts[2] = {};
#ifdef SYS_clock_gettime64
    syscall(SYS_clock_gettime64, clock, parts);
#endif
    return chrono::seconds(parts[0]) + chrono::nanoseconds(parts[1]);
}

// A moment that time_t can hold, with the offset from UTC of this one: beyond 2038, in 32-bit code,
// the last with the same date on the same day of the week, by which daylight time goes.
chrono::sys_seconds withinTimeT(chrono::sys_seconds moment) {
    if (moment.time_since_epoch().count() <= std::numeric_limits<time_t>::max()) return moment;
    const auto day = floor<chrono::days>(moment);
    const chrono::year_month_day date = day;
    for (chrono::year year{2037};; --year) {  // 29 February counts as 1 March
        const chrono::sys_days other = year / date.month() / date.day();
        if (chrono::weekday(other) == chrono::weekday(day)) return moment - (day - other);
    }
}

class PosixClock final : public SysClock {
public:
    uint64_t monotonicNs() override { return static_cast<uint64_t>(now(CLOCK_MONOTONIC).count()); }

    CivilTime localTime() override {
        const chrono::sys_seconds moment(floor<chrono::seconds>(now(CLOCK_REALTIME)));
        const auto within = static_cast<time_t>(withinTimeT(moment).time_since_epoch().count());
        struct tm local = {};
        localtime_r(&within, &local);
        const chrono::sys_seconds here = moment + chrono::seconds(local.tm_gmtoff);
        const auto day = floor<chrono::days>(here);
        const chrono::year_month_day date = day;
        const chrono::hh_mm_ss time(here - day);
        CivilTime t;
        t.year = static_cast<int>(date.year());
        t.month = static_cast<int>(static_cast<unsigned>(date.month()));
        t.day = static_cast<int>(static_cast<unsigned>(date.day()));
        t.hour = static_cast<int>(time.hours().count());
        t.minute = static_cast<int>(time.minutes().count());
        t.second = static_cast<int>(time.seconds().count());
        t.weekday = static_cast<int>(chrono::weekday(day).c_encoding());
        t.utcOffsetMinutes = static_cast<int>(local.tm_gmtoff / 60);
        return t;
    }

    uint64_t fileTimeUtc() override {
        constexpr uint64_t kSecondsFrom1601To1970 = 11644473600;  // 369 years, 89 leap days
        return static_cast<uint64_t>(now(CLOCK_REALTIME).count()) / 100 +
               kSecondsFrom1601To1970 * 10000000;
    }

    void sleepMs(uint32_t ms) override {
        struct timespec left = {};
        left.tv_sec = static_cast<time_t>(ms / 1000);
        left.tv_nsec = static_cast<long>(ms % 1000) * 1000000;
        while (nanosleep(&left, &left) != 0 && errno == EINTR) {
        }
    }
};

}  // namespace

SysClock& sysClock() {
    return Replaceable<SysClock>::get<PosixClock>();
}

}  // namespace tv::plat
