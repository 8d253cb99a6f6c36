// EcCurve over any field: takes numbers and points in and out, checks them, and leaves the work to
// Weierstrass.
#pragma once

#include <algorithm>
#include <cstring>
#include <string_view>
#include <vector>

#include "base/Hex.h"
#include "base/crypto/EcCurve.h"
#include "base/crypto/EcParams.h"
#include "base/crypto/MontField.h"
#include "base/crypto/WeierstrassPublic.h"

namespace tv::crypto {

template <class Field>
class EcCurveOf : public EcCurve {
public:
    explicit EcCurveOf(const EcParams& params)
        : fieldBytes_(std::strlen(params.p) / 2),
          field_(digits(params.p)),
          order_(digits(params.n)),
          curve_(field_, number(params.a), number(params.b)),
          base_{number(params.gx), number(params.gy)},
          public_(curve_, base_) {}

    size_t fieldBytes() const override { return fieldBytes_; }

    bool isPoint(std::span<const uint8_t> point) const override {
        Affine p;
        return decode(p, point);
    }

    bool isScalar(std::span<const uint8_t> scalar) const override {
        Wiped<Scalar> k;
        return takeScalar(k.value, scalar);
    }

    bool multiplyBase(std::span<uint8_t> outPoint, std::span<const uint8_t> scalar) const override {
        Wiped<Scalar> k;
        if (outPoint.size() != pointBytes() || !takeScalar(k.value, scalar)) return false;
        const Affine p = curve_.toAffine(curve_.multiply(k.value, order_.modulus(), base_));
        outPoint[0] = 0x04;
        putElement(outPoint.subspan(1, fieldBytes_), p.x);
        putElement(outPoint.subspan(1 + fieldBytes_), p.y);
        return true;
    }

    bool multiply(std::span<uint8_t> outX, std::span<const uint8_t> scalar,
                  std::span<const uint8_t> point) const override {
        Wiped<Scalar> k;
        Wiped<Affine> result;
        Affine p;
        if (outX.size() != fieldBytes_ || !decode(p, point) || !takeScalar(k.value, scalar))
            return false;
        result.value = curve_.toAffine(curve_.multiply(k.value, order_.modulus(), p));
        putElement(outX, result.value.x);
        return true;
    }

    bool verify(std::span<const uint8_t> r, std::span<const uint8_t> s,
                std::span<const uint8_t> digest, std::span<const uint8_t> point) const override {
        Affine p;
        Scalar rNumber, sNumber;
        if (!decode(p, point) || !takeScalar(rNumber, r) || !takeScalar(sNumber, s)) return false;
        // All our orders fill whole bytes but that of secp521r1, which no digest fills.
        Scalar e;
        const size_t used = std::min(digest.size(), fieldBytes_);
        limbsFromBytes(e.data(), kLimbs, digest.first(used));
        e = order_.reduceOnce(e);

        // A plain number times an element is a plain number.
        const Scalar inverse = order_.invert(order_.enter(sNumber));
        const Point sum = public_.sum(order_.mul(e, inverse), order_.mul(rNumber, inverse), p);
        return Field::isZero(sum.z) == 0 && hasX(sum, rNumber);
    }

protected:
    using Curve = Weierstrass<Field>;
    using Affine = typename Curve::Affine;
    using Point = typename Curve::Point;
    using Element = typename Curve::Element;
    using Scalar = typename Curve::Scalar;
    static constexpr size_t kLimbs = Field::kLimbs;

    template <class T>
    struct Wiped {
        ~Wiped() { plat::wipe(static_cast<void*>(&value), sizeof value); }
        T value{};
    };

    static std::vector<uint8_t> digits(const char* hex) { return *hexDecode(hex); }

    Element number(const char* hex) const {
        Element plain;
        limbsFromBytes(plain.data(), kLimbs, digits(hex));
        return field_.enter(plain);
    }

    bool takeScalar(Scalar& out, std::span<const uint8_t> bytes) const {
        if (bytes.size() != fieldBytes_) return false;
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

    bool decode(Affine& out, std::span<const uint8_t> point) const {
        return point.size() == pointBytes() && point[0] == 0x04 &&
               takeElement(out.x, point.subspan(1, fieldBytes_)) &&
               takeElement(out.y, point.subspan(1 + fieldBytes_)) && curve_.isOnCurve(out);
    }

    void putElement(std::span<uint8_t> out, const Element& a) const {
        Wiped<Element> plain;
        plain.value = field_.leave(a);
        limbsToBytes(out, plain.value.data(), kLimbs);
    }

    // Whether x of the point, modulo the order, is r: x is r, or r + order where the field has it.
    bool hasX(const Point& p, const Scalar& r) const {
        const Element zz = field_.square(p.z);
        if (field_.mul(field_.enter(r), zz) == p.x) return true;
        Element more;
        const Limb carry = addLimbs(more.data(), r.data(), order_.modulus().data(), kLimbs);
        if (carry != 0 || isLess(more.data(), field_.modulus().data(), kLimbs) == 0) return false;
        return field_.mul(field_.enter(more), zz) == p.x;
    }

    size_t fieldBytes_;
    Field field_;
    MontField<kLimbs> order_;
    Curve curve_;
    Affine base_;
    WeierstrassPublic<Field> public_;
};

}  // namespace tv::crypto
