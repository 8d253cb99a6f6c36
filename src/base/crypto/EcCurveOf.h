// EcCurve over a field of some size: takes numbers and points in and out and checks them; the work
// on points is done by EcOps.
#pragma once

#include <algorithm>

#include "base/crypto/EcCurve.h"
#include "base/crypto/EcPortable.h"

namespace tv::crypto {

template <size_t kBits, const EcParams& params>
class EcCurveOf : public EcCurve {
    static constexpr size_t kBytes = (kBits + 7) / 8;
    static constexpr size_t kLimbs = limbsForBits(kBits);
    using Field = MontField<kLimbs>;
    using Element = typename Field::Element;
    using Scalar = std::array<Limb, kLimbs>;

public:
    // member: where a form keeps its functions for this curve; null for one that has but portable
    // ones.
    explicit EcCurveOf(const EcOps* EcForm::*member)
        : member_(member),
          field_(bytesOfParam(params.p)),
          order_(bytesOfParam(params.n)),
          a_(fieldParam(field_, params.a)),
          b_(fieldParam(field_, params.b)) {}

    size_t fieldBytes() const override { return kBytes; }

    bool isPoint(std::span<const uint8_t> point) const override {
        Element x, y;
        if (point.size() != pointBytes() || point[0] != 0x04) return false;
        if (!takeElement(x, point.subspan(1, kBytes)) || !takeElement(y, point.subspan(1 + kBytes)))
            return false;
        const Element slope = field_.add(field_.square(x), a_);
        return field_.square(y) == field_.add(field_.mul(slope, x), b_);
    }

    bool isScalar(std::span<const uint8_t> scalar) const override {
        Scalar k;
        const bool ok = takeScalar(k, scalar);
        plat::wipe(k.data(), sizeof k);
        return ok;
    }

    bool multiplyBase(std::span<uint8_t> outPoint, std::span<const uint8_t> scalar) const override {
        if (outPoint.size() != pointBytes() || !isScalar(scalar)) return false;
        outPoint[0] = 0x04;
        ops().multiplyBase(outPoint.data() + 1, scalar.data());
        return true;
    }

    bool multiply(std::span<uint8_t> outX, std::span<const uint8_t> scalar,
                  std::span<const uint8_t> point) const override {
        if (outX.size() != kBytes || !isPoint(point) || !isScalar(scalar)) return false;
        uint8_t result[2 * kBytes];
        ops().multiply(result, scalar.data(), point.data() + 1);
        std::copy(result, result + kBytes, outX.begin());
        plat::wipe(result, sizeof result);
        return true;
    }

    bool verify(std::span<const uint8_t> r, std::span<const uint8_t> s,
                std::span<const uint8_t> digest, std::span<const uint8_t> point) const override {
        Scalar rNumber, sNumber, e;
        if (!isPoint(point) || !takeScalar(rNumber, r) || !takeScalar(sNumber, s)) return false;
        // All our orders fill whole bytes but that of secp521r1, which no digest fills.
        limbsFromBytes(e.data(), kLimbs, digest.first(std::min(digest.size(), kBytes)));
        e = order_.reduceOnce(e);

        // A plain number times an element is a plain number.
        const Scalar inverse = order_.enter(order_.invertPublic(sNumber));
        uint8_t u1[kBytes], u2[kBytes], x[kBytes], zz[kBytes];
        put(u1, order_.mul(e, inverse));
        put(u2, order_.mul(rNumber, inverse));
        if (!ops().sum(x, zz, u1, u2, point.data() + 1)) {
            kEcPortableOps<kBits, params>.sum(x, zz, u1, u2, point.data() + 1);
        }
        return hasX(x, zz, rNumber);
    }

private:
    const EcOps& ops() const {
        return member_ ? *(ecForms.get().*member_) : kEcPortableOps<kBits, params>;
    }

    bool takeScalar(Scalar& out, std::span<const uint8_t> bytes) const {
        if (bytes.size() != kBytes) return false;
        limbsFromBytes(out.data(), kLimbs, bytes);
        const Limb below = maskIfSet(isLess(out.data(), order_.modulus().data(), kLimbs));
        return (below & ~maskIfAllZero(out.data(), kLimbs)) != 0;
    }

    bool takeElement(Element& out, std::span<const uint8_t> bytes) const {
        limbsFromBytes(out.data(), kLimbs, bytes);
        if (isLess(out.data(), field_.modulus().data(), kLimbs) == 0) return false;
        out = field_.enter(out);
        return true;
    }

    static void put(uint8_t* out, const Scalar& number) {
        limbsToBytes({out, kBytes}, number.data(), kLimbs);
    }

    // Whether x / zz, modulo the order, is r: x / zz is r, or r + order where the field has it.
    // Zero for zz is infinity.
    bool hasX(const uint8_t* x, const uint8_t* zz, const Scalar& r) const {
        Element wanted, square;
        takeElement(wanted, {x, kBytes});
        takeElement(square, {zz, kBytes});
        if (Field::isZero(square) != 0) return false;
        if (field_.mul(field_.enter(r), square) == wanted) return true;
        Element more;
        const Limb carry = addLimbs(more.data(), r.data(), order_.modulus().data(), kLimbs);
        if (carry != 0 || isLess(more.data(), field_.modulus().data(), kLimbs) == 0) return false;
        return field_.mul(field_.enter(more), square) == wanted;
    }

    const EcOps* EcForm::*member_;
    Field field_;
    MontField<kLimbs> order_;
    Element a_, b_;
};

}  // namespace tv::crypto
