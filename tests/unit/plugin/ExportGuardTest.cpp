// The guard in front of every export: exceptions, and on x86 the host's floating-point state.
#include "plugin/ExportGuard.h"

#include <gtest/gtest.h>

#include <cfenv>
#include <stdexcept>
#include <string>

namespace tv {
namespace {

struct ThrowCase {
    const char* name;
    void (*body)();
    const char* reason;
};

const ThrowCase kThrows[] = {
    {"nothing", [] {}, "no report"},
    {"out of memory", [] { throw std::bad_alloc(); }, "Out of memory."},
    {"a length beyond all memory", [] { throw std::length_error("too long"); }, "too long"},
    {"something else", [] { throw 1; }, "Unknown internal failure."},
};

TEST(ExportGuard, nothingThrownPassesNotEvenByTheReport) {
    for (const ThrowCase& c : kThrows) {
        std::string reason = "no report";
        guarded(c.body, [&](const char* text) {
            reason = text;
            throw std::bad_alloc();
        });
        EXPECT_EQ(reason, c.reason) << c.name;
    }
}

#if defined(__i386__) || defined(__x86_64__)

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

TEST(ExportGuard, masksAllExceptionsAndGivesTheHostsStateBack) {
    const FloatingPoint usual = floatingPoint();
    for (const FloatingPoint& host : kHosts) {
        for (const ThrowCase& thrown : kThrows) {
            FloatingPoint inside;
            setFloatingPoint(host);
            const FloatingPoint before = floatingPoint();  // reserved bits read as they please
            guarded([&] {
                inside = floatingPoint();
                feraiseexcept(FE_ALL_EXCEPT);  // on SSE; then on x87
                const volatile long double zero = 0;
                [[maybe_unused]] const volatile long double undefined = zero / zero;
                thrown.body();
            });
            const FloatingPoint after = floatingPoint();
            setFloatingPoint(usual);
            EXPECT_EQ(after.control, before.control) << thrown.name;
            EXPECT_EQ(after.mxcsr, before.mxcsr) << thrown.name;
            EXPECT_EQ(after.status & 0x3F, 0) << thrown.name;
            EXPECT_EQ(inside.control, 0x037F) << host.control;
            EXPECT_EQ(inside.mxcsr, 0x1F80u) << host.control;
        }
    }
}

#endif

}  // namespace
}  // namespace tv
