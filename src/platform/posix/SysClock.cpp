// The clocks of POSIX.
#include "platform/SysClock.h"

#include <errno.h>
#include <time.h>

#include "platform/Replaceable.h"

namespace tv::plat {
namespace {

class PosixClock final : public SysClock {
public:
    uint64_t monotonicNs() override { return nanoseconds(CLOCK_MONOTONIC); }

    CivilTime localTime() override {
        const time_t now = time(nullptr);
        struct tm local = {};
        localtime_r(&now, &local);
        CivilTime t;
        t.year = local.tm_year + 1900;
        t.month = local.tm_mon + 1;
        t.day = local.tm_mday;
        t.hour = local.tm_hour;
        t.minute = local.tm_min;
        t.second = local.tm_sec;
        t.weekday = local.tm_wday;
        t.utcOffsetMinutes = static_cast<int>(local.tm_gmtoff / 60);
        return t;
    }

    uint64_t fileTimeUtc() override {
        constexpr uint64_t kSecondsFrom1601To1970 = 11644473600;  // 369 years, 89 leap days
        return nanoseconds(CLOCK_REALTIME) / 100 + kSecondsFrom1601To1970 * 10000000;
    }

    void sleepMs(uint32_t ms) override {
        struct timespec left = {};
        left.tv_sec = static_cast<time_t>(ms / 1000);
        left.tv_nsec = static_cast<long>(ms % 1000) * 1000000;
        while (nanosleep(&left, &left) != 0 && errno == EINTR) {
        }
    }

private:
    static uint64_t nanoseconds(clockid_t clock) {
        struct timespec t = {};
        clock_gettime(clock, &t);
        return static_cast<uint64_t>(t.tv_sec) * 1000000000 + static_cast<uint64_t>(t.tv_nsec);
    }
};

}  // namespace

SysClock& sysClock() {
    return Replaceable<SysClock>::get<PosixClock>();
}

}  // namespace tv::plat
