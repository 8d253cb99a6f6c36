// X25519 in 256-bit vectors.
#include "base/crypto/X25519.h"

#if defined(__x86_64__) || defined(__i386__)

#include "base/CpuFeatures.h"
#include "base/crypto/Lanes_x86.h"
#define TV_LANES_TARGET __attribute__((target("avx2")))
#include "base/crypto/X25519Lanes.h"

namespace tv::crypto {

constinit const X25519Form kX25519Avx2 = {"avx2", cpuHas<&CpuFeatures::avx2>,
                                          x25519LanesLadder<Avx2Lanes>};

}  // namespace tv::crypto

#endif
