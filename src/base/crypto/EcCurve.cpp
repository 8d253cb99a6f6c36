#include "base/crypto/EcCurve.h"

#include "base/crypto/EcCurveOf.h"

namespace tv::crypto {

namespace {

// Made on first use, never destroyed.
template <size_t kBits>
const EcCurve& curveOf(const EcParams& params) {
    return *new EcCurveOf<MontField<limbsForBits(kBits)>>(params);
}

}  // namespace

const EcCurve& ecCurve(EcCurveId id) {
    switch (id) {
        case EcCurveId::kSecp256r1: {
            static const EcCurve& curve = curveOf<256>(kSecp256r1);
            return curve;
        }
        case EcCurveId::kSecp384r1: {
            static const EcCurve& curve = curveOf<384>(kSecp384r1);
            return curve;
        }
        case EcCurveId::kSecp521r1: {
            static const EcCurve& curve = curveOf<521>(kSecp521r1);
            return curve;
        }
        case EcCurveId::kBrainpoolP256r1: {
            static const EcCurve& curve = curveOf<256>(kBrainpoolP256r1);
            return curve;
        }
        case EcCurveId::kBrainpoolP384r1: {
            static const EcCurve& curve = curveOf<384>(kBrainpoolP384r1);
            return curve;
        }
        case EcCurveId::kBrainpoolP512r1:
            break;
    }
    static const EcCurve& curve = curveOf<512>(kBrainpoolP512r1);
    return curve;
}

}  // namespace tv::crypto
