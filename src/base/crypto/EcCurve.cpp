// The face of the curves: points are read and checked here, the arithmetic is chosen by curve and
// CPU, and the stack is wiped behind multiplications with secrets.
#include "base/crypto/EcCurve.h"

#include <algorithm>

#include "base/crypto/WipeStack.h"

namespace tv::crypto {

namespace {

constexpr size_t kStackTaken = 49152;  // by a multiplication in any form, with room to spare

}  // namespace

bool EcCurve::isPoint(std::span<const uint8_t> point) const {
    EcNumber x, y;
    // 04: uncompressed (SEC 1, 2.3.3), in which alone TLS sends points (RFC 8446 4.2.8.2).
    if (point.size() != pointBytes() || point[0] != 0x04) return false;
    return takeElement(x, point.data() + 1) && takeElement(y, point.data() + 1 + fieldBytes()) &&
           curve_.holds(x, y);
}

bool EcCurve::isScalar(std::span<const uint8_t> scalar) const {
    EcNumber k;
    const bool ok = takeScalar(k, scalar);
    plat::wipe(k.data(), sizeof k);
    return ok;
}

bool EcCurve::multiplyBase(std::span<uint8_t> outPoint, std::span<const uint8_t> scalar) const {
    if (outPoint.size() != pointBytes() || !isScalar(scalar)) return false;
    outPoint[0] = 0x04;
    ops().multiplyBase(curve_, outPoint.data() + 1, scalar.data());
    wipeStack<kStackTaken>();
    return true;
}

bool EcCurve::multiply(std::span<uint8_t> outX, std::span<const uint8_t> scalar,
                       std::span<const uint8_t> point) const {
    if (outX.size() != fieldBytes() || !isPoint(point) || !isScalar(scalar)) return false;
    uint8_t result[2 * kMaxEcLimbs * kLimbBytes];
    ops().multiply(curve_, result, scalar.data(), point.data() + 1);
    wipeStack<kStackTaken>();
    std::copy_n(result, outX.size(), outX.begin());
    plat::wipe(result, sizeof result);
    return true;
}

bool EcCurve::verify(std::span<const uint8_t> r, std::span<const uint8_t> s,
                     std::span<const uint8_t> digest, std::span<const uint8_t> point) const {
    EcNumber rNumber, sNumber, e{};
    if (!isPoint(point) || !takeScalar(rNumber, r) || !takeScalar(sNumber, s)) return false;
    const MontField& order = curve_.order();
    // All our orders fill whole bytes but that of secp521r1, which no digest fills.
    limbsFromBytes(e.data(), order.limbs(), digest.first(std::min(digest.size(), fieldBytes())));
    e = order.reduceOnce(e);

    // A plain number times an element is a plain number.
    const EcNumber inverse = order.enter(order.invertPublic(sNumber));
    uint8_t buffer[4][kMaxEcLimbs * kLimbBytes];
    auto& [u1, u2, x, zz] = buffer;
    curve_.put(u1, order.mul(e, inverse));
    curve_.put(u2, order.mul(rNumber, inverse));
    const uint8_t* coordinates = point.data() + 1;
    if (!ops().sum(curve_, x, zz, u1, u2, coordinates)) {
        kEcPortableOps.sum(curve_, x, zz, u1, u2, coordinates);
    }
    return hasX(x, zz, rNumber);
}

bool EcCurve::takeScalar(EcNumber& out, std::span<const uint8_t> bytes) const {
    if (bytes.size() != fieldBytes()) return false;
    out = curve_.number(bytes.data());
    const MontField& order = curve_.order();
    const Limb below = maskIfSet(isLess(out.data(), order.modulus().data(), order.limbs()));
    return (below & ~order.isZero(out)) != 0;
}

bool EcCurve::takeElement(EcNumber& out, const uint8_t* bytes) const {
    const MontField& field = curve_.field();
    out = curve_.number(bytes);
    if (isLess(out.data(), field.modulus().data(), field.limbs()) == 0) return false;
    out = field.enter(out);
    return true;
}

// Whether x / zz, modulo the order, is r: x / zz is r, or r + order where the field has it. Zero
// for zz is infinity.
bool EcCurve::hasX(const uint8_t* x, const uint8_t* zz, const EcNumber& r) const {
    const MontField& field = curve_.field();
    EcNumber wanted, square, more{};
    takeElement(wanted, x);
    takeElement(square, zz);
    if (field.isZero(square) != 0) return false;
    if (field.mul(field.enter(r), square) == wanted) return true;
    const Limb carry =
        addLimbs(more.data(), r.data(), curve_.order().modulus().data(), field.limbs());
    if (carry != 0 || isLess(more.data(), field.modulus().data(), field.limbs()) == 0) return false;
    return field.mul(field.enter(more), square) == wanted;
}

namespace {

constexpr const EcForm* kForms[] = {
#if defined(__x86_64__) || defined(__i386__)
    &kEcAvx2,
#endif
#if defined(__i386__)  // with 64-bit products these vectors do not pay
    &kEcSse2,
#endif
    &kEcPortable,
};

// Made on first use, never destroyed.
template <const EcParams& params>
const EcCurve& curveOf(const EcOps* EcForm::*member = nullptr) {
    static const EcCurve& curve = *new EcCurve(params, member);
    return curve;
}

}  // namespace

const EcCurve& ecCurve(EcCurveId id) {
    switch (id) {
        case EcCurveId::kSecp256r1:
            return curveOf<kSecp256r1>(&EcForm::secp256r1);
        case EcCurveId::kSecp384r1:
            return curveOf<kSecp384r1>(&EcForm::secp384r1);
        case EcCurveId::kSecp521r1:
            return curveOf<kSecp521r1>();
        case EcCurveId::kBrainpoolP256r1:
            return curveOf<kBrainpoolP256r1>();
        case EcCurveId::kBrainpoolP384r1:
            return curveOf<kBrainpoolP384r1>();
        case EcCurveId::kBrainpoolP512r1:
            break;
    }
    return curveOf<kBrainpoolP512r1>();
}

constinit const EcOps kEcPortableOps = {
    [](const Weierstrass& curve, uint8_t* out, const uint8_t* scalar, const uint8_t* point) {
        curve.multiply(out, scalar, point);
    },
    [](const Weierstrass& curve, uint8_t* out, const uint8_t* scalar) {
        curve.multiply(out, scalar, curve.base());
    },
    [](const Weierstrass& curve, uint8_t* x, uint8_t* zz, const uint8_t* baseFactor,
       const uint8_t* factor, const uint8_t* point) {
        curve.sum(x, zz, baseFactor, factor, point);
        return true;
    }};

constinit const EcForm kEcPortable = {"portable", alwaysUsable, &kEcPortableOps, &kEcPortableOps};

constinit Dispatch<EcForm> ecForms{kForms};

}  // namespace tv::crypto
