// The NIST curves in 128-bit vectors.
#include "base/crypto/EcForms.h"

#if defined(__x86_64__) || defined(__i386__)

#include <algorithm>

#include "base/CpuFeatures.h"
#include "base/crypto/Lanes_x86.h"
#define TV_LANES_TARGET __attribute__((target("sse2")))
#include "base/crypto/EcLanes.h"

namespace tv::crypto {

namespace {

bool usable() {
    return cpuFeatures().sse2;
}

}  // namespace

constinit const EcForm kEcSse2 = {"sse2", usable, &kEcLanesOps<Sse2Lanes, Secp256r1Lanes>,
                                  &kEcLanesOps<Sse2Lanes, Secp384r1Lanes>,
                                  &kEcLanesOps<Sse2Lanes, Secp521r1Lanes>};

}  // namespace tv::crypto

#endif
