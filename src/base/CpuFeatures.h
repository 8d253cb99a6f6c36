// What the CPU and the system together can run. A feature counts only if the system saves the
// registers it uses. Always nothing on other CPUs than x86.
#pragma once

namespace tv {

struct CpuFeatures {
    bool sse2 = false;
    bool ssse3 = false;
    bool sse41 = false;
    bool pclmul = false;
    bool aesNi = false;
    bool shaNi = false;
    bool avx = false;
    bool avx2 = false;
    bool bmi2 = false;
    bool adx = false;
    bool avx512 = false;  // F, BW, DQ and VL together
    bool avx512Vbmi = false;
    bool vaes = false;
    bool vpclmul = false;
};

// Asked once, then remembered. Algorithms with several forms choose by this at each use.
const CpuFeatures& cpuFeatures();

// The question of a form that needs all of these (base/Dispatch.h).
template <bool CpuFeatures::*... kNeeded>
bool cpuHas() {
    return ((cpuFeatures().*kNeeded) && ...);
}

// What the hardware offers, whatever limitCpuFeatures said.
CpuFeatures detectedCpuFeatures();

// For tests and benchmarks: from now on only features that are set here (and that the hardware
// has). Not safe while other threads choose a form.
void limitCpuFeatures(const CpuFeatures& allowed);
// The end of the limit.
void unlimitCpuFeatures();

}  // namespace tv
