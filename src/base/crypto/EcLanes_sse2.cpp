// secp256r1 in 128-bit vectors.
#include "base/crypto/EcForms.h"

#if defined(__i386__)

#include "base/CpuFeatures.h"
#include "base/crypto/Lanes_x86.h"
#define TV_LANES_TARGET __attribute__((target("sse2")))
#include "base/crypto/EcLanes.h"

namespace tv::crypto {

// The larger curve is fast enough without vectors for the machines that get this form.
constinit const EcForm kEcSse2 = {"sse2", cpuHas<&CpuFeatures::sse2>,
                                  &kEcLanesOps<Sse2Lanes, Secp256r1Lanes>, &kEcPortableOps};

}  // namespace tv::crypto

#endif
