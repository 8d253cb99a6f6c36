// A limit on elapsed time, by the process's clock.
#pragma once

#include <algorithm>
#include <cstdint>

#include "platform/SysClock.h"

namespace tv {

class Deadline {
public:
    explicit Deadline(uint64_t limitMs)
        : startNs_(plat::sysClock().monotonicNs()), limitNs_(limitMs * 1000000) {}
    // For callers who set no limit: a time so long that only steps with limits of their own count.
    static Deadline unlimited(uint64_t mostMs) {
        Deadline deadline(mostMs);
        deadline.isLimited_ = false;
        return deadline;
    }
    bool isLimited() const { return isLimited_; }
    uint64_t limitMs() const { return limitNs_ / 1000000; }

    // Milliseconds left, rounded up; 0 once the time is over, or when the clock has gone back.
    uint64_t leftMs() const {
        const uint64_t now = plat::sysClock().monotonicNs();
        if (now < startNs_ || now - startNs_ >= limitNs_) return 0;
        return (limitNs_ - (now - startNs_) + 999999) / 1000000;
    }
    bool hasPassed() const { return leftMs() == 0; }
    bool clockWentBack() const { return plat::sysClock().monotonicNs() < startNs_; }
    uint64_t elapsedMs() const {
        const uint64_t now = plat::sysClock().monotonicNs();
        return now < startNs_ ? 0 : (now - startNs_) / 1000000;
    }

private:
    uint64_t startNs_;
    uint64_t limitNs_;
    bool isLimited_ = true;
};

}  // namespace tv
