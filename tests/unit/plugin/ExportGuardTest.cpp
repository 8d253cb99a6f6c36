#include "plugin/ExportGuard.h"

#include <gtest/gtest.h>

#include <cfenv>
#include <stdexcept>
#include <string>

namespace tv {
namespace {

struct Bomb {};

struct ThrowCase {
    const char* name;
    void (*body)();
    const char* reason;
};

const ThrowCase kThrows[] = {
    {"nothing", [] {}, "no report"},
    {"out of memory", [] { throw std::bad_alloc(); }, "Out of memory."},
    {"a length beyond all memory", [] { throw std::length_error("too long"); }, "too long"},
    {"something else", [] { throw Bomb(); }, "Unknown internal failure."},
};

TEST(ExportGuard, NothingThrownPassesAndTheReasonIsReported) {
    for (const ThrowCase& c : kThrows) {
        std::string reason = "no report";
        guarded(c.body, [&](const char* text) { reason = text; });
        EXPECT_EQ(reason, c.reason) << c.name;
    }
}

TEST(ExportGuard, AReportThatThrowsIsStoppedToo) {
    int reports = 0;
    guarded([] { throw Bomb(); },
            [&](const char*) {
                ++reports;
                throw std::bad_alloc();
            });
    EXPECT_EQ(reports, 1);
}

#if defined(__i386__) || defined(__x86_64__)

struct FloatingPoint {
    uint16_t control = 0;
    uint32_t mxcsr = 0;

    bool operator==(const FloatingPoint&) const = default;
};

FloatingPoint floatingPoint() {
    FloatingPoint now;
    asm volatile("fnstcw %0\n\tstmxcsr %1" : "=m"(now.control), "=m"(now.mxcsr));
    return now;
}

void setFloatingPoint(FloatingPoint state) {
    asm volatile("fnclex\n\tfldcw %0\n\tldmxcsr %1" : : "m"(state.control), "m"(state.mxcsr));
}

bool pendingOnX87() {
    uint16_t status = 0;
    asm volatile("fnstsw %0" : "=m"(status));
    return (status & 0x3F) != 0;
}

// Raises every exception there is, on both units.
void raiseAll() {
    feraiseexcept(FE_ALL_EXCEPT);
    const volatile float zero = 0;
    const volatile long double zeroOnX87 = 0;
    [[maybe_unused]] const volatile float infinite = 1 / zero;
    [[maybe_unused]] const volatile long double undefined = zeroOnX87 / zeroOnX87;
}

struct StateCase {
    const char* name;
    FloatingPoint host;
};

const StateCase kStates[] = {
    {"the usual one", {0x037F, 0x1F80}},
    {"as Delphi sets it", {0x1332, 0x1900}},
    {"everything unmasked", {0x0300, 0x0000}},
    {"24-bit precision, round down, flush to zero", {0x047F, 0xBFC0}},
};

TEST(ExportGuard, MasksAllExceptionsAndGivesTheHostsStateBack) {
    const FloatingPoint usual = floatingPoint();
    for (const StateCase& c : kStates) {
        for (const ThrowCase& thrown : kThrows) {
            FloatingPoint inside;
            setFloatingPoint(c.host);
            const FloatingPoint before = floatingPoint();  // reserved bits read as they please
            guarded([&] {
                inside = floatingPoint();
                raiseAll();
                thrown.body();
            });
            const FloatingPoint after = floatingPoint();
            const bool pending = pendingOnX87();
            setFloatingPoint(usual);
            EXPECT_TRUE(after == before) << c.name << ", " << thrown.name;
            EXPECT_FALSE(pending) << c.name << ", " << thrown.name;
            EXPECT_EQ(inside.control, 0x037F) << c.name;
            EXPECT_EQ(inside.mxcsr, 0x1F80u) << c.name;
        }
    }
}

#endif

}  // namespace
}  // namespace tv
