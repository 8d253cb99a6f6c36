// A curve y^2 = x^3 + ax + b of prime order and the arithmetic of its points without vectors, for
// every curve. Points are in Jacobian coordinates: (X / Z^2, Y / Z^3), infinity has Z = 0.
#pragma once

#include <cstdint>
#include <vector>

#include "base/crypto/EcParams.h"
#include "base/crypto/MontField.h"

namespace tv::crypto {

struct SignedWindow;

class Weierstrass {
public:
    explicit Weierstrass(const EcParams& params);
    Weierstrass(const Weierstrass&) = delete;
    Weierstrass& operator=(const Weierstrass&) = delete;

    // Length of a coordinate and of a scalar.
    size_t bytes() const { return base_.size() / 2; }
    const MontField& field() const { return field_; }
    const MontField& order() const { return order_; }
    const uint8_t* base() const { return base_.data(); }  // x and y
    // Whether x and y, elements of the field, satisfy the equation.
    bool holds(const EcNumber& x, const EcNumber& y) const;

    EcNumber number(const uint8_t* bigEndian) const;        // of bytes() bytes
    void put(uint8_t* bigEndian, const EcNumber& a) const;  // the same way back

    // What EcOps says of these.
    void multiply(uint8_t* out, const uint8_t* scalar, const uint8_t* point) const;
    void sum(uint8_t* x, uint8_t* zz, const uint8_t* baseFactor, const uint8_t* factor,
             const uint8_t* point) const;

private:
    using Element = MontField::Element;
    struct Point {
        Element x{}, y{}, z{};
    };
    struct Secrets;

    Point enter(const uint8_t* point) const;
    Point twice(const Point& p) const;
    Point add(const Point& p, const Point& q) const;
    Point negateIf(Limb mask, const Point& p) const;
    Point select(Limb mask, const Point& ifOnes, const Point& ifZeros) const;
    void addDigit(Secrets& s, const Point* table, SignedWindow digit) const;
    void putAffine(uint8_t* out, const Point& p) const;

    std::vector<Point> oddMultiples(const Point& p) const;
    void addPublic(Point& total, int digit, const std::vector<Point>& table) const;
    bool sameY(const Point& p, const Point& q) const;

    MontField field_, order_;
    std::vector<uint8_t> base_;
    Element a_, b_;
    bool aIsMinus3_;
};

}  // namespace tv::crypto
