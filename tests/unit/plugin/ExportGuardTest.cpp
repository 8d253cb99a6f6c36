// The guard in front of every export: exceptions and the host's floating-point state, on x86.
#if defined(__i386__) || defined(__x86_64__)

#include "plugin/ExportGuard.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace tv {
namespace {

struct ThrowCase {
    void (*body)();
    const char* reason;
};

const ThrowCase kThrows[] = {
    {[] {}, "no report"},
    {[] { throw std::bad_alloc(); }, "Out of memory."},
    {[] { throw std::length_error("too long"); }, "too long"},
    {[] { throw 1; }, "Unknown internal failure."},
};

struct FloatingPoint {
    uint16_t control = 0;
    uint32_t mxcsr = 0;
    uint16_t status = 0;
};

FloatingPoint floatingPoint() {
    FloatingPoint now;
    asm volatile("fnstcw %0\n\tstmxcsr %1\n\tfnstsw %2"
                 : "=m"(now.control), "=m"(now.mxcsr), "=m"(now.status));
    return now;
}

void setFloatingPoint(const FloatingPoint& state) {
    asm volatile("fnclex\n\tfldcw %0\n\tldmxcsr %1" : : "m"(state.control), "m"(state.mxcsr));
}
// The usual one, as Delphi sets it, everything unmasked, 24 bits rounded down and flushed to zero.
const FloatingPoint kHosts[] = {{0x037F, 0x1F80}, {0x1332, 0x1900}, {0x0300, 0}, {0x047F, 0xBFC0}};

TEST(ExportGuard, nothingThrownPassesAndTheHostsFloatingPointStateComesBack) {
    const FloatingPoint usual = floatingPoint();
    for (const FloatingPoint& host : kHosts) {
        for (const ThrowCase& thrown : kThrows) {
            std::string reason = "no report";
            FloatingPoint inside;
            setFloatingPoint(host);
            const FloatingPoint before = floatingPoint();  // reserved bits read as they please
            guarded(
                [&] {
                    inside = floatingPoint();
                    const volatile long double zero = 0;
                    const volatile double zeroOnSse = 0;
                    [[maybe_unused]] const volatile long double undefined = zero / zero;
                    [[maybe_unused]] const volatile double infinite = 1 / zeroOnSse;
                    thrown.body();
                },
                [&](const char* text) {
                    reason = text;
                    throw std::bad_alloc();
                });
            const FloatingPoint after = floatingPoint();
            setFloatingPoint(usual);
            EXPECT_EQ(reason, thrown.reason);
            EXPECT_EQ(after.control, before.control) << reason;
            EXPECT_EQ(after.mxcsr, before.mxcsr) << reason;
            EXPECT_EQ(after.status & 0x3F, 0) << reason;
            EXPECT_EQ(inside.control, 0x037F) << host.control;
            EXPECT_EQ(inside.mxcsr, 0x1F80u) << host.control;
        }
    }
}

}  // namespace
}  // namespace tv

#endif
