// What stands between a host and every export: the floating-point state and exceptions.
#pragma once

#include <cfenv>
#include <cstdint>
#include <exception>
#include <new>

namespace tv {

#if defined(__i386__) || defined(__x86_64__)

// The host's x87 environment and MXCSR, set aside while the library's own are in force: every
// exception masked, all bits of precision, round to nearest. Hosts may run with exceptions
// unmasked, and any library function may raise one.
class FloatingPointGuard {
public:
    FloatingPointGuard() {
        asm volatile("fnstenv %0\n\tstmxcsr %1" : "=m"(x87_), "=m"(mxcsr_) : : "memory");
        asm volatile("fnclex\n\tfldcw %0\n\tldmxcsr %1"
                     :
                     : "m"(kControlWord), "m"(kMxcsr)
                     : "memory");
    }
    ~FloatingPointGuard() {
        // Whatever was raised meanwhile is dropped, or it would strike the host with its first
        // floating-point instruction.
        asm volatile("fldenv %0\n\tldmxcsr %1" : : "m"(x87_), "m"(mxcsr_) : "memory");
    }
    FloatingPointGuard(const FloatingPointGuard&) = delete;
    FloatingPointGuard& operator=(const FloatingPointGuard&) = delete;

private:
    // What FNINIT and a reset of the CPU set.
    static constexpr uint16_t kControlWord = 0x037F;
    static constexpr uint32_t kMxcsr = 0x1F80;

    struct Environment {
        uint32_t words[7];
    } x87_;
    uint32_t mxcsr_;
};

#else

class FloatingPointGuard {
public:
    FloatingPointGuard() { feholdexcept(&environment_); }
    ~FloatingPointGuard() { fesetenv(&environment_); }
    FloatingPointGuard(const FloatingPointGuard&) = delete;
    FloatingPointGuard& operator=(const FloatingPointGuard&) = delete;

private:
    fenv_t environment_;
};

#endif

// Runs an export's body; nothing thrown passes. The reason of an exception goes to
// report(const char*), which may throw in its turn.
template <class Body, class Report>
void guarded(Body body, Report report) noexcept {
    const FloatingPointGuard floatingPoint;
    try {
        try {
            body();
        } catch (const std::bad_alloc&) {
            report("Out of memory.");
        } catch (const std::exception& exception) {
            report(exception.what());
        } catch (...) {
            report("Unknown internal failure.");
        }
    } catch (...) {  // no memory even for the report
    }
}

template <class Body>
void guarded(Body body) noexcept {
    guarded(body, [](const char*) {});
}

}  // namespace tv
