// The work that a peer's certificates may cause before any of them is trusted: one for each
// Certificate message, handed down to whoever works on it.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <utility>

namespace tv::x509 {

// A unit is about a tenth of a microsecond of a 32-bit program on a common CPU of 2020.
class WorkBudget {
public:
    // By the measure above 150 ms: no honest chain comes near it.
    static constexpr uint64_t kUnits = 1500000;
    static constexpr uint64_t kNoLimit = std::numeric_limits<uint64_t>::max();
    // How many milliseconds the caller still has; 0 where he wants no more of it.
    using LeftMs = std::function<uint64_t()>;

    explicit WorkBudget(LeftMs leftMs = {}, uint64_t units = kUnits)
        : leftMs_(std::move(leftMs)), units_(units) {}

    // Asked before the work. False, from then on, once there are too few units for it or the caller
    // has no time left.
    bool spend(uint64_t units) {
        // About 2 ms: a clock asked at every step would cost more than the steps.
        constexpr uint64_t kAskEvery = 20000;
        if (units > units_ - spent_) isSpent_ = true;
        if (isSpent_ || isStopped_) return false;
        spent_ += units;
        sinceAsked_ += units;
        if (sinceAsked_ >= kAskEvery) {
            sinceAsked_ = 0;
            isStopped_ = leftMs() == 0;
        }
        return !isStopped_;
    }

    uint64_t spent() const { return spent_; }
    bool isOver() const { return isSpent_ || isStopped_; }
    bool isStopped() const { return isStopped_; }
    uint64_t leftMs() const { return leftMs_ ? leftMs_() : kNoLimit; }

private:
    LeftMs leftMs_;
    uint64_t units_;
    uint64_t spent_ = 0;
    uint64_t sinceAsked_ = 0;
    bool isSpent_ = false;
    bool isStopped_ = false;
};

}  // namespace tv::x509
