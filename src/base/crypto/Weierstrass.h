// The group of points of y^2 = x^3 + ax + b over a MontField, in Jacobian coordinates: a point is
// (X / Z^2, Y / Z^3), infinity has Z = 0.
#pragma once

#include <array>

#include "base/crypto/SignedDigits.h"
#include "platform/SysWipe.h"

namespace tv::crypto {

template <class Field>
class Weierstrass {
public:
    using Element = typename Field::Element;
    static constexpr size_t kLimbs = Field::kLimbs;
    using Scalar = std::array<Limb, kLimbs>;

    struct Affine {
        Element x{}, y{};
    };
    struct Point {
        Element x{}, y{}, z{};
    };

    // a as an element of the field, which must outlive this object.
    Weierstrass(const Field& field, const Element& a) : field_(field), a_(a) {
        const Element three = field.add(field.add(field.one(), field.one()), field.one());
        aIsMinus3_ = field.isZero(field.add(a, three)) != 0;
    }

    const Field& field() const { return field_; }

    Point fromAffine(const Affine& p) const { return {p.x, p.y, field_.one()}; }

    // Not for infinity.
    Affine toAffine(const Point& p) const {
        const Field& f = field_;
        const Element inverse = f.invert(p.z), square = f.square(inverse);
        return {f.mul(p.x, square), f.mul(p.y, f.mul(square, inverse))};
    }

    // Right for every point: there is none of order two, and infinity gives infinity.
    Point twice(const Point& p) const { return aIsMinus3_ ? twiceMinus3(p) : twiceAnyA(p); }

    // Right for two finite points that are neither equal nor opposite.
    Point addDistinct(const Point& p, const Point& q) const {
        const Field& f = field_;
        const Element zz1 = f.square(p.z), zz2 = f.square(q.z);
        const Element u1 = f.mul(p.x, zz2), s1 = f.mul(p.y, f.mul(q.z, zz2));
        const Element h = f.sub(f.mul(q.x, zz1), u1);
        const Element r = f.sub(f.mul(q.y, f.mul(p.z, zz1)), s1);
        return addTail(u1, s1, h, r, f.mul(f.mul(p.z, q.z), h));
    }

    Point addDistinct(const Point& p, const Affine& q) const {
        const Field& f = field_;
        const Element zz1 = f.square(p.z);
        const Element h = f.sub(f.mul(q.x, zz1), p.x);
        const Element r = f.sub(f.mul(q.y, f.mul(p.z, zz1)), p.y);
        return addTail(p.x, p.y, h, r, f.mul(p.z, h));
    }

    Point negateIf(Limb mask, const Point& p) const {
        return {p.x, field_.select(mask, field_.negate(p.y), p.y), p.z};
    }

    static Point select(Limb mask, const Point& ifOnes, const Point& ifZeros) {
        return {Field::select(mask, ifOnes.x, ifZeros.x), Field::select(mask, ifOnes.y, ifZeros.y),
                Field::select(mask, ifOnes.z, ifZeros.z)};
    }

    // scalar * p in constant time, for a scalar in 1 .. order - 1 and the (odd, prime) order.
    //
    // Signed windows from the top: sum = 32 * sum + digit * p, |digit| <= 16. The additions never
    // meet equal or opposite points: with sum = v * p, that would take 32 v = +-digit modulo the
    // order, and since 1 <= v only 32 v = order +- digit is left, which only the last step can
    // reach. There the scalar is 32 v + digit: it would be the order itself or order + 2 digit, an
    // odd number. So an odd scalar is replaced by order - scalar, which is even, and the result
    // negated. Infinity on either side is handled by selection.
    Point multiply(const Scalar& scalar, const Scalar& order, const Affine& p) const {
        Secrets s;
        s.even = scalar;
        const Limb odd = makeEven(s.even, order);

        const Table table = multiplesOf(p);
        for (size_t i = bitLength(order.data(), kLimbs) / kWindow + 1; i-- != 0;) {
            for (size_t k = 0; k < kWindow; ++k) {
                s.sum = twice(s.sum);
            }
            addDigit(s, table, signedWindow<kWindow>(s.even, i));
        }
        return negateIf(odd, s.sum);
    }

private:
    static constexpr size_t kWindow = 5;
    static constexpr size_t kTableSize = size_t{1} << (kWindow - 1);
    using Table = std::array<Point, kTableSize>;  // 1 p .. 16 p

    struct Secrets {
        ~Secrets() { plat::wipe(static_cast<void*>(this), sizeof *this); }
        Scalar even{};
        Point sum, entry;
    };

    Point addTail(const Element& u1, const Element& s1, const Element& h, const Element& r,
                  const Element& z3) const {
        const Field& f = field_;
        const Element hh = f.square(h), hhh = f.mul(h, hh), v = f.mul(u1, hh);
        const Element x3 = f.sub(f.sub(f.square(r), hhh), f.add(v, v));
        return {x3, f.sub(f.mul(r, f.sub(v, x3)), f.mul(s1, hhh)), z3};
    }

    Point twiceMinus3(const Point& p) const {
        const Field& f = field_;
        const Element delta = f.square(p.z), gamma = f.square(p.y), beta = f.mul(p.x, gamma);
        const Element product = f.mul(f.sub(p.x, delta), f.add(p.x, delta));
        const Element alpha = f.add(f.add(product, product), product);
        return twiceTail(alpha, beta, gamma, f.mul(p.y, p.z));
    }

    Point twiceAnyA(const Point& p) const {
        const Field& f = field_;
        const Element zz = f.square(p.z), gamma = f.square(p.y), beta = f.mul(p.x, gamma);
        const Element xx = f.square(p.x);
        const Element alpha = f.add(f.add(f.add(xx, xx), xx), f.mul(a_, f.square(zz)));
        return twiceTail(alpha, beta, gamma, f.mul(p.y, p.z));
    }

    Point twiceTail(const Element& alpha, const Element& beta, const Element& gamma,
                    const Element& yz) const {
        const Field& f = field_;
        const Element beta2 = f.add(beta, beta), beta4 = f.add(beta2, beta2);
        const Element x3 = f.sub(f.square(alpha), f.add(beta4, beta4));
        const Element gamma2 = f.add(gamma, gamma), square4 = f.square(gamma2);
        const Element y3 = f.sub(f.mul(alpha, f.sub(beta4, x3)), f.add(square4, square4));
        return {x3, y3, f.add(yz, yz)};
    }

    Table multiplesOf(const Affine& p) const {
        Table table;
        table[0] = fromAffine(p);
        for (size_t i = 1; i < kTableSize; ++i) {  // entry i is (i + 1) p
            table[i] = i % 2 == 1 ? twice(table[i / 2]) : addDistinct(table[i - 1], p);
        }
        return table;
    }

    void addDigit(Secrets& s, const Table& table, SignedWindow digit) const {
        s.entry = {};
        for (size_t k = 0; k < kTableSize; ++k) {
            const Limb mask = ctIsEqual(digit.size, static_cast<Limb>(k + 1));
            for (size_t j = 0; j < kLimbs; ++j) {
                s.entry.x[j] |= mask & table[k].x[j];
                s.entry.y[j] |= mask & table[k].y[j];
                s.entry.z[j] |= mask & table[k].z[j];
            }
        }
        s.entry = negateIf(digit.negative, s.entry);
        const Point both = addDistinct(s.sum, s.entry);
        const Point notFirst = select(Field::isZero(s.sum.z), s.entry, both);
        s.sum = select(ctIsZero(digit.size), s.sum, notFirst);
    }

    const Field& field_;
    Element a_;
    bool aIsMinus3_ = false;
};

}  // namespace tv::crypto
