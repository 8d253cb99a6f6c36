// The published numbers of the curves, as hexadecimal digits.
#pragma once

namespace tv::crypto {

struct EcParams {
    const char *p, *a, *b, *gx, *gy, *n;  // all of the same length
};

extern const EcParams kSecp256r1, kSecp384r1, kSecp521r1;                    // SEC 2, 2.4 to 2.6
extern const EcParams kBrainpoolP256r1, kBrainpoolP384r1, kBrainpoolP512r1;  // RFC 5639, 3.4 to 3.7

}  // namespace tv::crypto
