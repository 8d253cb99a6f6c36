// X25519 in 128-bit vectors. A file for each width, as each is compiled for its own processor.
#include "base/crypto/X25519.h"

#if defined(__x86_64__) || defined(__i386__)

#include "base/CpuFeatures.h"
#include "base/crypto/Lanes_x86.h"
#define TV_LANES_TARGET __attribute__((target("sse2")))
#include "base/crypto/X25519Lanes.h"

namespace tv::crypto {

constinit const X25519Form kX25519Sse2 = {"sse2", cpuHas<&CpuFeatures::sse2>,
                                          x25519LanesLadder<Sse2Lanes>};

}  // namespace tv::crypto

#endif
