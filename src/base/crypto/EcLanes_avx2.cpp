// secp256r1 and secp384r1 in 256-bit vectors.
#include "base/crypto/EcForms.h"

#if defined(__x86_64__) || defined(__i386__)

#include "base/CpuFeatures.h"
#include "base/crypto/Lanes_x86.h"
#define TV_LANES_TARGET __attribute__((target("avx2")))
#include "base/crypto/EcLanes.h"

namespace tv::crypto {

constinit const EcForm kEcAvx2 = {"avx2", cpuHas<&CpuFeatures::avx2>,
                                  &kEcLanesOps<Avx2Lanes, Secp256r1Lanes>,
                                  &kEcLanesOps<Avx2Lanes, Secp384r1Lanes>};

}  // namespace tv::crypto

#endif
