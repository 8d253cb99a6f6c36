// What the processor (CPUID) and the system say, asked once. On other processors every feature is
// missing.
#include "base/CpuFeatures.h"

#include <cstdint>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

namespace tv {
namespace {

#if defined(__x86_64__) || defined(__i386__)

bool bit(unsigned word, unsigned number) {
    return ((word >> number) & 1) != 0;
}

// XCR0: the register sets that the system saves when it switches threads. The instruction is
// written out because the intrinsic needs the whole file compiled for a newer CPU.
uint64_t savedRegisters() {
    uint32_t low = 0;
    uint32_t high = 0;
    __asm__ volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    return (static_cast<uint64_t>(high) << 32) | low;
}

CpuFeatures detect() {
    constexpr uint64_t kYmm = 0x06;  // SSE and AVX state
    constexpr uint64_t kZmm = 0xE6;  // and the mask registers and both halves of ZMM
    CpuFeatures f;
    unsigned a = 0;
    unsigned b = 0;
    unsigned c = 0;
    unsigned d = 0;
    // The numbers of the bits: Intel's manual, volume 2, CPUID, leaf 1 and leaf 7.
    if (__get_cpuid(1, &a, &b, &c, &d) == 0) return f;
    f.sse2 = bit(d, 26);
    f.ssse3 = bit(c, 9);
    f.sse41 = bit(c, 19);
    f.pclmul = bit(c, 1);
    f.aesNi = bit(c, 25);
    const uint64_t saved = bit(c, 27) ? savedRegisters() : 0;  // OSXSAVE
    const bool ymm = (saved & kYmm) == kYmm;
    const bool zmm = (saved & kZmm) == kZmm;
    f.avx = ymm && bit(c, 28);
    if (__get_cpuid_count(7, 0, &a, &b, &c, &d) == 0) return f;
    f.bmi2 = bit(b, 8);
    f.adx = bit(b, 19);
    f.shaNi = bit(b, 29) && f.sse41;
    f.avx2 = f.avx && bit(b, 5);
    f.vaes = f.avx2 && bit(c, 9);
    f.vpclmul = f.avx2 && bit(c, 10);
    f.avx512 = f.avx2 && zmm && bit(b, 16) && bit(b, 17) && bit(b, 30) && bit(b, 31);  // F DQ BW VL
    f.avx512Vbmi = f.avx512 && bit(c, 1);
    return f;
}

#else

CpuFeatures detect() {
    return {};
}

#endif

CpuFeatures both(const CpuFeatures& x, const CpuFeatures& y) {
    CpuFeatures f;
    f.sse2 = x.sse2 && y.sse2;
    f.ssse3 = x.ssse3 && y.ssse3;
    f.sse41 = x.sse41 && y.sse41;
    f.pclmul = x.pclmul && y.pclmul;
    f.aesNi = x.aesNi && y.aesNi;
    f.shaNi = x.shaNi && y.shaNi;
    f.avx = x.avx && y.avx;
    f.avx2 = x.avx2 && y.avx2;
    f.bmi2 = x.bmi2 && y.bmi2;
    f.adx = x.adx && y.adx;
    f.avx512 = x.avx512 && y.avx512;
    f.avx512Vbmi = x.avx512Vbmi && y.avx512Vbmi;
    f.vaes = x.vaes && y.vaes;
    f.vpclmul = x.vpclmul && y.vpclmul;
    return f;
}

CpuFeatures& current() {
    static CpuFeatures features = detect();
    return features;
}

}  // namespace

const CpuFeatures& cpuFeatures() {
    return current();
}

CpuFeatures detectedCpuFeatures() {
    static const CpuFeatures features = detect();
    return features;
}

void limitCpuFeatures(const CpuFeatures& allowed) {
    current() = both(detectedCpuFeatures(), allowed);
}

void unlimitCpuFeatures() {
    current() = detectedCpuFeatures();
}

}  // namespace tv
