#include "base/crypto/EcCurve.h"

#include "base/crypto/EcCurveOf.h"

namespace tv::crypto {

namespace {

// Made on first use, never destroyed.
template <size_t kBits, const EcParams& params>
const EcCurve& curveOf(const EcOps* EcForm::*member) {
    static const EcCurve& curve = *new EcCurveOf<kBits, params>(member);
    return curve;
}

constexpr const EcForm* kForms[] = {
#if defined(__x86_64__) || defined(__i386__)
    &kEcAvx2,
    &kEcSse2,
#endif
    &kEcPortable,
};

}  // namespace

const EcCurve& ecCurve(EcCurveId id) {
    switch (id) {
        case EcCurveId::kSecp256r1:
            return curveOf<256, kSecp256r1>(&EcForm::secp256r1);
        case EcCurveId::kSecp384r1:
            return curveOf<384, kSecp384r1>(&EcForm::secp384r1);
        case EcCurveId::kSecp521r1:
            return curveOf<521, kSecp521r1>(&EcForm::secp521r1);
        case EcCurveId::kBrainpoolP256r1:
            return curveOf<256, kBrainpoolP256r1>(nullptr);
        case EcCurveId::kBrainpoolP384r1:
            return curveOf<384, kBrainpoolP384r1>(nullptr);
        case EcCurveId::kBrainpoolP512r1:
            break;
    }
    return curveOf<512, kBrainpoolP512r1>(nullptr);
}

constinit const EcForm kEcPortable = {"portable", alwaysUsable, &kEcPortableOps<256, kSecp256r1>,
                                      &kEcPortableOps<384, kSecp384r1>,
                                      &kEcPortableOps<521, kSecp521r1>};

constinit Dispatch<EcForm> ecForms{kForms};

}  // namespace tv::crypto
