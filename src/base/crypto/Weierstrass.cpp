// Doubling and addition of points, the multiplication with secrets by windows, and the sum of two
// products for public numbers.
#include "base/crypto/Weierstrass.h"

#include <algorithm>
#include <string>

#include "base/Hex.h"
#include "base/crypto/SignedDigits.h"
#include "platform/SysWipe.h"

namespace tv::crypto {

namespace {

constexpr size_t kWindow = 5;
constexpr size_t kTableSize = size_t{1} << (kWindow - 1);  // 1 p .. 16 p
constexpr int kPublicWidth = 5;

}  // namespace

struct Weierstrass::Secrets {
    ~Secrets() { plat::wipe(static_cast<void*>(this), sizeof *this); }
    EcNumber even{};
    Point sum, entry;
};

Weierstrass::Weierstrass(const EcParams& params)
    : field_(*hexDecode(params.p)),
      order_(*hexDecode(params.n)),
      base_(*hexDecode(std::string(params.gx) + params.gy)),
      a_(field_.enter(number(hexDecode(params.a)->data()))),
      b_(field_.enter(number(hexDecode(params.b)->data()))) {
    const Element& one = field_.one();
    aIsMinus3_ = field_.isZero(field_.add(a_, field_.add(field_.add(one, one), one))) != 0;
}

bool Weierstrass::holds(const EcNumber& x, const EcNumber& y) const {
    const Element slope = field_.add(field_.square(x), a_);
    return field_.square(y) == field_.add(field_.mul(slope, x), b_);
}

EcNumber Weierstrass::number(const uint8_t* bigEndian) const {
    EcNumber r{};
    limbsFromBytes(r.data(), field_.limbs(), {bigEndian, bytes()});
    return r;
}

void Weierstrass::put(uint8_t* bigEndian, const EcNumber& a) const {
    limbsToBytes({bigEndian, bytes()}, a.data(), field_.limbs());
}

Weierstrass::Point Weierstrass::enter(const uint8_t* point) const {
    return {field_.enter(number(point)), field_.enter(number(point + bytes())), field_.one()};
}

// Right for every point: there is none of order two, and infinity gives infinity.
Weierstrass::Point Weierstrass::twice(const Point& p) const {
    const MontField& f = field_;
    const Element zz = f.square(p.z), gamma = f.square(p.y), beta = f.mul(p.x, gamma);
    Element alpha;  // 3 x^2 + a z^4
    if (aIsMinus3_) {
        const Element product = f.mul(f.sub(p.x, zz), f.add(p.x, zz));
        alpha = f.add(f.add(product, product), product);
    } else {
        const Element xx = f.square(p.x);
        alpha = f.add(f.add(f.add(xx, xx), xx), f.mul(a_, f.square(zz)));
    }
    const Element beta2 = f.add(beta, beta), beta4 = f.add(beta2, beta2);
    const Element x3 = f.sub(f.square(alpha), f.add(beta4, beta4));
    const Element gamma2 = f.add(gamma, gamma), square4 = f.square(gamma2);
    const Element y3 = f.sub(f.mul(alpha, f.sub(beta4, x3)), f.add(square4, square4));
    const Element yz = f.mul(p.y, p.z);
    return {x3, y3, f.add(yz, yz)};
}

// Right for two finite points that are neither equal nor opposite; else Z becomes 0.
Weierstrass::Point Weierstrass::add(const Point& p, const Point& q) const {
    const MontField& f = field_;
    const Element zz1 = f.square(p.z), zz2 = f.square(q.z);
    const Element u1 = f.mul(p.x, zz2), s1 = f.mul(p.y, f.mul(q.z, zz2));
    const Element h = f.sub(f.mul(q.x, zz1), u1);
    const Element r = f.sub(f.mul(q.y, f.mul(p.z, zz1)), s1);
    const Element hh = f.square(h), hhh = f.mul(h, hh), v = f.mul(u1, hh);
    const Element x3 = f.sub(f.sub(f.square(r), hhh), f.add(v, v));
    const Element y3 = f.sub(f.mul(r, f.sub(v, x3)), f.mul(s1, hhh));
    return {x3, y3, f.mul(f.mul(p.z, q.z), h)};
}

Weierstrass::Point Weierstrass::negateIf(Limb mask, const Point& p) const {
    return {p.x, field_.select(mask, field_.negate(p.y), p.y), p.z};
}

Weierstrass::Point Weierstrass::select(Limb mask, const Point& ifOnes, const Point& ifZeros) const {
    return {field_.select(mask, ifOnes.x, ifZeros.x), field_.select(mask, ifOnes.y, ifZeros.y),
            field_.select(mask, ifOnes.z, ifZeros.z)};
}

// Signed windows from the top: sum = 32 * sum + digit * p, |digit| <= 16. The additions never
// meet equal or opposite points: with sum = v * p, that would take 32 v = +-digit modulo the
// order, and since 1 <= v only 32 v = order +- digit is left, which only the last step can
// reach. There the scalar is 32 v + digit: it would be the order itself or order + 2 digit, an
// odd number. So an odd scalar is replaced by order - scalar, which is even, and the result
// negated. Infinity on either side is handled by selection.
void Weierstrass::multiply(uint8_t* out, const uint8_t* scalar, const uint8_t* point) const {
    Point table[kTableSize];
    table[0] = enter(point);
    for (size_t i = 1; i < kTableSize; ++i) {  // entry i is (i + 1) p
        table[i] = i % 2 == 1 ? twice(table[i / 2]) : add(table[i - 1], table[0]);
    }
    Secrets s;
    s.even = number(scalar);
    const Limb odd = makeEven(s.even, order_.modulus());
    for (size_t i = 8 * bytes() / kWindow + 1; i-- != 0;) {
        for (size_t k = 0; k < kWindow; ++k) {
            s.sum = twice(s.sum);
        }
        addDigit(s, table, signedWindow<kWindow>(s.even, i));
    }
    s.sum = negateIf(odd, s.sum);
    putAffine(out, s.sum);
}

void Weierstrass::addDigit(Secrets& s, const Point* table, SignedWindow digit) const {
    s.entry = {};
    for (size_t k = 0; k < kTableSize; ++k) {
        s.entry = select(ctIsEqual(digit.size, static_cast<Limb>(k + 1)), table[k], s.entry);
    }
    s.entry = negateIf(digit.negative, s.entry);
    const Point both = add(s.sum, s.entry);
    const Point notFirst = select(field_.isZero(s.sum.z), s.entry, both);
    s.sum = select(ctIsZero(digit.size), s.sum, notFirst);
}

// Not for infinity.
void Weierstrass::putAffine(uint8_t* out, const Point& p) const {
    const MontField& f = field_;
    const Element inverse = f.invert(p.z), square = f.square(inverse);
    EcNumber plain[] = {f.leave(f.mul(p.x, square)), f.leave(f.mul(p.y, f.mul(square, inverse)))};
    put(out, plain[0]);
    put(out + bytes(), plain[1]);
    plat::wipe(plain, sizeof plain);
}

// From here on all is public: digits that are zero are skipped, special cases are branches.
void Weierstrass::sum(uint8_t* x, uint8_t* zz, const uint8_t* baseFactor, const uint8_t* factor,
                      const uint8_t* point) const {
    const std::vector<Point> tables[] = {oddMultiples(enter(base())), oddMultiples(enter(point))};
    const std::vector<int8_t> digits[] = {signedDigits(number(baseFactor), kPublicWidth),
                                          signedDigits(number(factor), kPublicWidth)};
    Point total{};
    for (size_t i = std::max(digits[0].size(), digits[1].size()); i-- != 0;) {
        if (field_.isZero(total.z) == 0) total = twice(total);
        for (size_t k = 0; k < 2; ++k) {
            if (i < digits[k].size()) addPublic(total, digits[k][i], tables[k]);
        }
    }
    put(x, field_.leave(total.x));
    put(zz, field_.leave(field_.square(total.z)));
}

// p, 3 p, 5 p ..
std::vector<Weierstrass::Point> Weierstrass::oddMultiples(const Point& p) const {
    std::vector<Point> table(size_t{1} << (kPublicWidth - 2));
    table[0] = p;
    const Point two = twice(p);
    for (size_t i = 1; i < table.size(); ++i) {
        table[i] = add(table[i - 1], two);
    }
    return table;
}

void Weierstrass::addPublic(Point& total, int digit, const std::vector<Point>& table) const {
    if (digit == 0) return;
    Point p = table[static_cast<size_t>(digit < 0 ? -digit : digit) / 2];
    if (digit < 0) p.y = field_.negate(p.y);
    if (field_.isZero(total.z) != 0) {
        total = p;
        return;
    }
    const Point result = add(total, p);
    // No z: the points have the same x.
    total = field_.isZero(result.z) != 0 && sameY(total, p) ? twice(total) : result;
}

bool Weierstrass::sameY(const Point& p, const Point& q) const {
    const MontField& f = field_;
    return f.mul(p.y, f.mul(q.z, f.square(q.z))) == f.mul(q.y, f.mul(p.z, f.square(p.z)));
}

}  // namespace tv::crypto
