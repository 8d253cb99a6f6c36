// The guard in front of every export: exceptions and the host's floating-point state, on x86.
#if defined(__i386__) || defined(__x86_64__)

#include "plugin/ExportGuard.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace tv {
namespace {

struct FloatingPoint {
    uint16_t control = 0;
    uint32_t mxcsr = 0;
    uint16_t status = 0;

    FloatingPoint& read() {
        asm volatile("fnstcw %0\n\tstmxcsr %1\n\tfnstsw %2"
                     : "=m"(control), "=m"(mxcsr), "=m"(status));
        return *this;
    }
    void set() const {
        asm volatile("fnclex\n\tfldcw %0\n\tldmxcsr %1" : : "m"(control), "m"(mxcsr));
    }
};

TEST(ExportGuard, nothingThrownPassesAndTheHostsFloatingPointStateComesBack) {
    const std::pair<void (*)(), std::string> throwing[] = {
        {[] {}, "no report"},
        {[] { throw std::bad_alloc(); }, "Out of memory."},
        {[] { throw std::length_error("too long"); }, "too long"},
        {[] { throw 1; }, "Unknown internal failure."}};
    const FloatingPoint usual = FloatingPoint().read();
    // As Delphi sets it, everything unmasked, 24 bits rounded down and flushed to zero.
    for (const FloatingPoint& host : {usual, FloatingPoint{0x1332, 0x1900},
                                      FloatingPoint{0x0300, 0}, FloatingPoint{0x047F, 0xBFC0}}) {
        for (const auto& [body, expected] : throwing) {
            std::string reason = "no report";
            FloatingPoint before, inside, after;
            host.set();
            before.read();  // reserved bits read as they please
            guarded(
                [&] {
                    inside.read();
                    const volatile long double zero = 0;
                    const volatile double zeroOnSse = 0;
                    [[maybe_unused]] const volatile long double undefined = zero / zero;
                    [[maybe_unused]] const volatile double infinite = 1 / zeroOnSse;
                    body();
                },
                [&](const char* text) {
                    reason = text;
                    throw std::bad_alloc();
                });
            after.read();
            usual.set();
            EXPECT_EQ(reason, expected);
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
