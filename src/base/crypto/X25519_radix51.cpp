// X25519 for 64-bit machines without vector registers.
#include "base/crypto/X25519.h"

#if defined(__SIZEOF_INT128__)

#include "base/crypto/Fe51.h"
#include "base/crypto/X25519Ladder.h"

namespace tv::crypto {

constinit const X25519Form kX25519Radix51 = {"radix51", alwaysUsable, x25519Ladder<Fe51>};

}  // namespace tv::crypto

#endif
