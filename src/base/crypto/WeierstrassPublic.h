// Sums of points as ECDSA verification needs them. Everything here is public: digits that are zero
// are skipped, special cases are branches.
#pragma once

#include <algorithm>
#include <vector>

#include "base/crypto/SignedDigits.h"
#include "base/crypto/Weierstrass.h"

namespace tv::crypto {

template <class Field>
class WeierstrassPublic {
public:
    using Curve = Weierstrass<Field>;
    using Affine = typename Curve::Affine;
    using Point = typename Curve::Point;
    using Scalar = typename Curve::Scalar;

    // curve must outlive this object.
    WeierstrassPublic(const Curve& curve, const Affine& base)
        : curve_(curve), baseTable_(toAffine(oddMultiples(base, kBaseWidth))) {}

    // baseFactor * base + factor * p.
    Point sum(const Scalar& baseFactor, const Scalar& factor, const Affine& p) const {
        const std::vector<Point> table = oddMultiples(p, kWidth);
        const std::vector<int8_t> baseDigits = signedDigits(baseFactor, kBaseWidth);
        const std::vector<int8_t> digits = signedDigits(factor, kWidth);
        Point total{};
        for (size_t i = std::max(baseDigits.size(), digits.size()); i-- != 0;) {
            total = curve_.twice(total);
            if (i < digits.size()) addDigit(total, digits[i], table);
            if (i < baseDigits.size()) addDigit(total, baseDigits[i], baseTable_);
        }
        return total;
    }

private:
    static constexpr int kWidth = 5, kBaseWidth = 6;

    // p, 3 p, 5 p .. (2^(width - 1) - 1) p
    std::vector<Point> oddMultiples(const Affine& p, int width) const {
        std::vector<Point> table(size_t{1} << (width - 2));
        table[0] = curve_.fromAffine(p);
        const Point two = curve_.twice(table[0]);
        for (size_t i = 1; i < table.size(); ++i) {
            table[i] = curve_.addDistinct(table[i - 1], two);
        }
        return table;
    }

    // All at the price of one inversion: of the product of all z.
    std::vector<Affine> toAffine(const std::vector<Point>& points) const {
        const Field& f = curve_.field();
        std::vector<typename Field::Element> products;  // of the z before each point
        typename Field::Element product = f.one();
        for (const Point& p : points) {
            products.push_back(product);
            product = f.mul(product, p.z);
        }
        typename Field::Element inverse = f.invert(product);
        std::vector<Affine> affine(points.size());
        for (size_t i = points.size(); i-- != 0;) {
            const auto zInverse = f.mul(inverse, products[i]);
            const auto square = f.square(zInverse);
            affine[i].x = f.mul(points[i].x, square);
            affine[i].y = f.mul(points[i].y, f.mul(square, zInverse));
            inverse = f.mul(inverse, points[i].z);
        }
        return affine;
    }

    bool isInfinity(const Point& p) const { return Field::isZero(p.z) != 0; }

    template <class Entry>
    void addDigit(Point& total, int digit, const std::vector<Entry>& table) const {
        if (digit == 0) return;
        Entry entry = table[static_cast<size_t>(digit < 0 ? -digit : digit) / 2];
        if (digit < 0) entry.y = curve_.field().negate(entry.y);
        const Point p = asPoint(entry);
        if (isInfinity(total)) {
            total = p;
            return;
        }
        const Point result = curve_.addDistinct(total, entry);
        // No z: the points have the same x.
        total = isInfinity(result) && sameY(total, p) ? curve_.twice(total) : result;
    }

    Point asPoint(const Point& p) const { return p; }
    Point asPoint(const Affine& p) const { return curve_.fromAffine(p); }

    bool sameY(const Point& p, const Point& q) const {
        const Field& f = curve_.field();
        const auto left = f.mul(p.y, f.mul(q.z, f.square(q.z)));
        const auto right = f.mul(q.y, f.mul(p.z, f.square(p.z)));
        return left == right;
    }

    const Curve& curve_;
    std::vector<Affine> baseTable_;
};

}  // namespace tv::crypto
