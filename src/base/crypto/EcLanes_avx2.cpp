// The NIST curves in 256-bit vectors.
#include "base/crypto/EcForms.h"

#if defined(__x86_64__) || defined(__i386__)

#include <algorithm>

#include "base/CpuFeatures.h"
#include "base/crypto/Lanes_x86.h"
#define TV_LANES_TARGET __attribute__((target("avx2")))
#include "base/crypto/EcLanes.h"

namespace tv::crypto {

namespace {

bool usable() {
    return cpuFeatures().avx2;
}

}  // namespace

constinit const EcForm kEcAvx2 = {"avx2", usable, &kEcLanesOps<Avx2Lanes, Secp256r1Lanes>,
                                  &kEcLanesOps<Avx2Lanes, Secp384r1Lanes>,
                                  &kEcLanesOps<Avx2Lanes, Secp521r1Lanes>};

}  // namespace tv::crypto

#endif
