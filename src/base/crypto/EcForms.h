// The arithmetic of the curves that have faster forms than the portable one.
#pragma once

#include <cstdint>

#include "base/Dispatch.h"
#include "base/crypto/Weierstrass.h"

namespace tv::crypto {

// All numbers big-endian and as long as the curve's field; points are x and y in a row, known to
// lie on the curve; scalars are in 1 .. order - 1.
struct EcOps {
    // out = scalar * point and scalar * base point. Constant time.
    void (*multiply)(const Weierstrass& curve, uint8_t* out, const uint8_t* scalar,
                     const uint8_t* point);
    void (*multiplyBase)(const Weierstrass& curve, uint8_t* out, const uint8_t* scalar);
    // x and zz with x / zz the x coordinate of baseFactor * base point + factor * point. Takes time
    // by its input, which is public; baseFactor may be 0. False if the form cannot tell, for points
    // that meet on the way or for infinity: then another form is to be asked.
    bool (*sum)(const Weierstrass& curve, uint8_t* x, uint8_t* zz, const uint8_t* baseFactor,
                const uint8_t* factor, const uint8_t* point);
};

struct EcForm {
    const char* name;
    bool (*usable)();
    const EcOps* secp256r1;
    const EcOps* secp384r1;
};

extern const EcForm kEcAvx2, kEcSse2;  // on x86 only
extern const EcForm kEcPortable;
extern const EcOps kEcPortableOps;  // for every curve
extern Dispatch<EcForm> ecForms;

}  // namespace tv::crypto
