// Points of a curve with a = -3, one point across four lanes: (X, Y, Z, T) with T = -3 Z^4, the
// point being (X / Z^2, Y / Z^3). A doubling is three products of four lanes, an addition five. To
// be included after TV_LANES_TARGET is set, see Fe25.h.
//
// Comments name the content of lanes in order; "." is a lane that nobody reads.
#pragma once

#include <algorithm>
#include <vector>

#include "base/crypto/EcForms.h"
#include "base/crypto/FieldLanes.h"
#include "base/crypto/SignedDigits.h"
#include "platform/SysWipe.h"

namespace tv::crypto {
namespace {

// The primes of SEC 2, 2.4 and 2.5, and limbs enough for R above 2^14 p.
struct Secp256r1Lanes {
    static constexpr size_t kLimbs = 10, kBytes = 32;
    static constexpr SignedPower kPlusOne[] = {{256, 1}, {224, -1}, {192, 1}, {96, 1}};
};

struct Secp384r1Lanes {
    static constexpr size_t kLimbs = 15, kBytes = 48;
    static constexpr SignedPower kPlusOne[] = {{384, 1}, {128, -1}, {96, -1}, {32, 1}};
};

template <class V, class Curve>
class EcLanes {
    using Field = FieldLanes<V, Curve>;
    static constexpr size_t kLimbs = Curve::kLimbs;
    static constexpr size_t kBytes = Curve::kBytes;

    // A point of a table, tight: first (., Y, Z^2, Z^3), second (X, T, Z, .) in the high halves.
    struct Entry {
        uint64_t lanes[kLimbs][4];
    };

    static constexpr size_t kWindow = 5;
    static constexpr size_t kTableSize = size_t{1} << (kWindow - 1);
    using Table = std::array<Entry, kTableSize>;  // 1 p .. 16 p

    // The base point's tables: the scalar is cut in kParts, for each of which there is a table.
    static constexpr size_t kParts = 4;
    static constexpr size_t kWindows = (8 * kBytes / kWindow + kParts) / kParts * kParts;
    static constexpr size_t kPartWindows = kWindows / kParts;

    // Odd multiples 1 p, 3 p .. of the base point and another one.
    static constexpr int kBaseWidth = 7, kWidth = 5;
    using OddTable = std::vector<Entry>;

public:
    TV_LANES_TARGET static void multiply(const Weierstrass& curve, uint8_t* out,
                                         const uint8_t* scalar, const uint8_t* point) {
        const EcLanes& lanes = instance(curve);
        Table table;
        lanes.fillTable(table, lanes.enter(point));
        lanes.multiplyTables(out, scalar, &table, 1);
    }

    TV_LANES_TARGET static void multiplyBase(const Weierstrass& curve, uint8_t* out,
                                             const uint8_t* scalar) {
        const EcLanes& lanes = instance(curve);
        static const BaseTables& tables = *new BaseTables(lanes);
        lanes.multiplyTables(out, scalar, tables.parts.data(), kParts);
    }

    TV_LANES_TARGET static bool sum(const Weierstrass& curve, uint8_t* x, uint8_t* zz,
                                    const uint8_t* baseFactor, const uint8_t* factor,
                                    const uint8_t* point) {
        const EcLanes& lanes = instance(curve);
        static const OddTable& baseTable =
            *new OddTable(lanes.oddMultiples(curve.base(), kBaseWidth));
        return lanes.sumOf(x, zz, baseTable, baseFactor, factor, point);
    }

private:
    struct BaseTables {
        TV_LANES_TARGET explicit BaseTables(const EcLanes& lanes) {
            Field p = lanes.enter(lanes.curve_.base());
            for (Table& part : parts) {
                lanes.fillTable(part, p);
                for (size_t i = 0; i < kPartWindows * kWindow; ++i) {
                    p = twice(p);
                }
            }
        }
        std::array<Table, kParts> parts;
    };

    struct Secrets {
        ~Secrets() { plat::wipe(static_cast<void*>(this), sizeof *this); }
        EcNumber even;
        Field sum, first, second;
        uint64_t limbs[kLimbs][4];
    };

    // Made on first use, never destroyed.
    TV_LANES_TARGET static const EcLanes& instance(const Weierstrass& curve) {
        static const EcLanes& lanes = *new EcLanes(curve);
        return lanes;
    }

    TV_LANES_TARGET explicit EcLanes(const Weierstrass& curve) : curve_(curve) {
        // R and R^2 modulo p, by doubling 1.
        const MontField& field = curve.field();
        EcNumber power{1};
        uint8_t bytes[kBytes];
        for (size_t i = 0; i <= 2 * kLimbs * kLaneBits; ++i) {
            if (i == kLimbs * kLaneBits || i == 2 * kLimbs * kLaneBits) {
                curve.put(bytes, power);
                laneLimbsFromBytes<kLimbs>(i == kLimbs * kLaneBits ? one_ : squared_, bytes,
                                           kBytes);
            }
            power = field.add(power, power);
        }
    }

    TV_LANES_TARGET static V lanesOf(uint64_t a, uint64_t b, uint64_t c, uint64_t d) {
        const uint64_t lanes[4] = {a, b, c, d};
        return V::load(lanes);
    }
    TV_LANES_TARGET static V lanesMask(bool a, bool b, bool c, bool d) {
        return lanesOf(uint64_t{0} - a, uint64_t{0} - b, uint64_t{0} - c, uint64_t{0} - d);
    }

    // The same number in every lane.
    TV_LANES_TARGET static Field everywhere(const uint64_t* limbs) {
        Field r;
        for (size_t i = 0; i < kLimbs; ++i) {
            r.v[i] = V::all(limbs[i]);
        }
        return r;
    }

    TV_LANES_TARGET Field enter(const uint8_t* point) const {
        uint64_t x[kLimbs], y[kLimbs];
        laneLimbsFromBytes<kLimbs>(x, point, kBytes);
        laneLimbsFromBytes<kLimbs>(y, point + kBytes, kBytes);
        Field p, minusT;
        for (size_t i = 0; i < kLimbs; ++i) {
            const uint64_t one = i == 0 ? 1 : 0;
            p.v[i] = lanesOf(x[i], y[i], one, 0);
            minusT.v[i] = lanesOf(0, 0, 0, 3 * one);
        }
        p = Field::difference(p, minusT, lanesMask(false, false, false, true)).carried();
        return p * everywhere(squared_);
    }

    // (X, Y, Z, T), carried.
    TV_LANES_TARGET static Field twice(const Field& p) {
        // (X^2, Y^2, Y Z, .)
        const Field q = p.template permuted<0, 1, 1, 3>() * p;
        // (Y^2, Y^2, alpha, .) with alpha = 3 X^2 + T; (X, Y^2, alpha, .)
        const Field qs = q.template permuted<1, 1, 0, 2>();
        const Field alpha = qs + qs + qs + p.template permuted<0, 1, 3, 2>();
        const Field right = Field::template blend<0b0100>(qs, alpha);
        // (beta, gamma, alpha^2, .) with beta = X Y^2, gamma = Y^4
        const Field w = Field::template blend<0b0001>(right, p) * right;
        // (12 beta - alpha^2, gamma, X', .) with X' = alpha^2 - 8 beta; (alpha, T, ., .)
        const Field d =
            Field::difference(w.times(lanesOf(12, 1, 1, 0)),
                              w.template permuted<2, 1, 0, 3>().times(lanesOf(1, 0, 8, 0)),
                              lanesMask(true, false, true, false))
                .carried();
        const Field factors =
            Field::template blend<0b1000>(right, p).template permuted<2, 3, 0, 1>();
        // (alpha (12 beta - alpha^2), gamma T, ., .)
        const Field m = d * factors;
        // (X', Y', Z', T') with Y' = m0 - 8 gamma, Z' = 2 Y Z, T' = 16 gamma T
        const Field xy = Field::template blend<0b1010>(d.template permuted<2, 3, 0, 1>(),
                                                       m.template permuted<0, 0, 1, 1>());
        return Field::difference(Field::template blend<0b0100>(xy, q).times(lanesOf(1, 1, 2, 16)),
                                 w.times(lanesOf(0, 8, 0, 0)), lanesMask(false, true, false, false))
            .carried();
    }

    // For finite points that are neither equal nor opposite; else Z becomes 0. The entry's halves:
    // first (., Y2, Z2^2, Z2^3), second (X2, ., Z2, .).
    TV_LANES_TARGET static Field addDistinct(const Field& p, const Field& first,
                                             const Field& second) {
        // (Z1^2, Y2 Z1, U1, S1)
        const Field zzxy = p.template permuted<2, 2, 0, 1>();
        const Field q1 = zzxy * Field::template blend<0b0001>(first, zzxy);
        // (U2, S2, Z1 Z2, .)
        const Field q2 = Field::template blend<0b0100>(q1.template permuted<0, 0, 2, 3>(), p) *
                         Field::template blend<0b0010>(second, q1);
        // (h, r, ., .) = (U2 - U1, S2 - S1)
        const Field us = q1.template permuted<2, 3, 2, 3>();
        const Field hr = Field::minus(q2, us);
        // (h^2, r^2, Z', .)
        const Field q3 = Field::template blend<0b0100>(hr, q2) * hr.template permuted<0, 1, 0, 1>();
        // (h^3, v, Z'^2, .) with v = U1 h^2
        const Field hu = Field::template blend<0b0010>(hr, us.template permuted<0, 0, 2, 3>());
        const Field q4 = q3.template permuted<0, 0, 2, 3>() * Field::template blend<0b0100>(hu, q3);
        // (v - X', h^3, Z'^2, X') with X' = r^2 - h^3 - 2 v
        const Field hhh = q4.template permuted<0, 0, 2, 0>();
        const Field sums = hhh + q4.template permuted<1, 1, 1, 1>().times(lanesOf(3, 0, 0, 2));
        const Field rr = q3.template permuted<1, 1, 1, 1>();
        const Field vx = Field::difference(Field::template blend<0b1000>(sums, rr),
                                           Field::template blend<0b1000>(rr, sums),
                                           lanesMask(true, false, false, true))
                             .carried();
        // (r (v - X'), S1 h^3, Z'^4, .)
        const Field rs = Field::template blend<0b0010>(hr.template permuted<1, 1, 0, 0>(), us);
        const Field m = vx * Field::template blend<0b0100>(rs, q4);
        // (X', Y', Z', T') with Y' = m0 - m1, T' = -3 Z'^4
        const Field xy = Field::template blend<0b0010>(vx.template permuted<3, 3, 3, 3>(),
                                                       m.template permuted<0, 0, 0, 0>());
        const Field xyz = Field::template blend<0b0100>(xy, q3);
        return Field::difference(Field::template blend<0b1000>(xyz, Field::zero()),
                                 m.template permuted<1, 1, 2, 2>().times(lanesOf(0, 1, 0, 3)),
                                 lanesMask(false, true, false, true))
            .carried();
    }

    TV_LANES_TARGET Entry entryOf(const Field& point) const {
        const Field p = point * everywhere(one_);
        // (., ., Z^2, .), then (., ., Z^3, .)
        const Field zz = p * p, zzz = zz * p;
        const Field first = Field::template blend<0b1000>(Field::template blend<0b0100>(p, zz),
                                                          zzz.template permuted<0, 1, 2, 2>());
        const Field second = p.template permuted<0, 3, 2, 3>();
        Entry entry;
        for (size_t i = 0; i < kLimbs; ++i) {
            V::store(entry.lanes[i], V::add(first.v[i], V::template shl<32>(second.v[i])));
        }
        return entry;
    }

    TV_LANES_TARGET static void split(const uint64_t (*lanes)[4], Field& first, Field& second) {
        for (size_t i = 0; i < kLimbs; ++i) {
            const V both = V::load(lanes[i]);
            first.v[i] = V::both(both, V::all(0xffffffff));
            second.v[i] = V::template shr<32>(both);
        }
    }

    // (X, Y, Z, T) of an entry's halves.
    TV_LANES_TARGET static Field pointOf(const Field& first, const Field& second) {
        const Field xzt = second.template permuted<0, 0, 2, 1>();
        return Field::template blend<0b0010>(xzt, first);
    }

    TV_LANES_TARGET static Field negateY(const Field& first) {
        const Field negated = Field::minus(Field::zero(), first);
        return Field::template blend<0b0010>(first, negated);
    }

    TV_LANES_TARGET void fillTable(Table& table, const Field& p) const {
        table[0] = entryOf(p);
        Field first, second, multiples[kTableSize];
        split(table[0].lanes, first, second);
        multiples[0] = p;
        for (size_t i = 1; i < kTableSize; ++i) {  // entry i is (i + 1) p
            multiples[i] =
                i % 2 == 1 ? twice(multiples[i / 2]) : addDistinct(multiples[i - 1], first, second);
            table[i] = entryOf(multiples[i]);
        }
    }

    // out = scalar * (the point of the tables), by signed windows of an even scalar: why this meets
    // no special case but infinity stands at Weierstrass::multiply. With several tables, for the
    // point and its multiples by 2^(kWindow * kPartWindows) and so on, the sum before the last
    // window's last digit is even as well, as are all digits' multiples but that one's.
    TV_LANES_TARGET void multiplyTables(uint8_t* out, const uint8_t* scalar, const Table* tables,
                                        size_t parts) const {
        Secrets s;
        s.even = curve_.number(scalar);
        const Limb odd = makeEven(s.even, curve_.order().modulus());
        s.sum = Field::zero();
        uint64_t none = ~uint64_t{0};  // all ones as long as the sum is infinity
        const size_t windows = kWindows / parts;
        for (size_t i = windows; i-- != 0;) {
            for (size_t k = 0; k < kWindow; ++k) {
                s.sum = twice(s.sum);
            }
            for (size_t part = parts; part-- != 0;) {
                addDigit(s, none, tables[part], signedWindow<kWindow>(s.even, i + part * windows));
            }
        }
        leave(out, s.sum, odd);
    }

    TV_LANES_TARGET static void addDigit(Secrets& s, uint64_t& none, const Table& table,
                                         SignedWindow digit) {
        for (size_t i = 0; i < kLimbs; ++i) {
            s.first.v[i] = V::all(0);
        }
        for (size_t k = 0; k < kTableSize; ++k) {
            const V mask = V::all(ctIsEqual(uint64_t{digit.size}, uint64_t{k + 1}));
            for (size_t i = 0; i < kLimbs; ++i) {
                s.first.v[i] = V::add(s.first.v[i], V::both(mask, V::load(table[k].lanes[i])));
            }
        }
        for (size_t i = 0; i < kLimbs; ++i) {
            V::store(s.limbs[i], s.first.v[i]);
        }
        split(s.limbs, s.first, s.second);
        const V negative = V::all(ctBarrier(uint64_t{0} - (digit.negative & 1)));
        s.first = Field::select(negative, negateY(s.first), s.first);
        const Field both = addDistinct(s.sum, s.first, s.second);
        const Field notFirst =
            Field::select(V::all(ctBarrier(none)), pointOf(s.first, s.second), both);
        const uint64_t skip = ctIsZero(uint64_t{digit.size});
        s.sum = Field::select(V::all(skip), s.sum, notFirst);
        none &= skip;
    }

    // a ^ (p - 2), which is 1 / a, in each lane.
    TV_LANES_TARGET Field invert(const Field& a) const {
        uint8_t exponent[kBytes];
        curve_.put(exponent, curve_.field().modulus());
        exponent[kBytes - 1] = static_cast<uint8_t>(exponent[kBytes - 1] - 2);  // p ends in ff
        Field power[16];
        power[0] = everywhere(one_);
        for (size_t i = 1; i < 16; ++i) {
            power[i] = power[i - 1] * a;
        }
        Field r = power[0];
        for (size_t i = 0; i < 2 * kBytes; ++i) {
            for (int k = 0; k < 4; ++k) {
                r = r * r;
            }
            r = r * power[(exponent[i / 2] >> (i % 2 == 0 ? 4 : 0)) & 15];
        }
        plat::wipe(static_cast<void*>(power), sizeof power);
        return r;
    }

    // Lane `lane` of a tight element as bytes.
    TV_LANES_TARGET static void putLane(uint8_t* out, const Field& a, size_t lane) {
        uint64_t limbs[kLimbs];
        for (size_t i = 0; i < kLimbs; ++i) {
            uint64_t lanes[4];
            V::store(lanes, a.v[i]);
            limbs[i] = lanes[lane];
        }
        laneLimbsToBytes<Curve>(out, kBytes, limbs);
        plat::wipe(limbs, sizeof limbs);
    }

    // Affine x and y, the latter negated where the mask is all ones.
    TV_LANES_TARGET void leave(uint8_t* out, const Field& p, Limb negated) const {
        const Field inverse = invert(p.template permuted<2, 2, 2, 2>());
        const Field square = inverse * inverse;
        const Field cube = Field::template blend<0b0010>(square, square * inverse);
        Field plainOne = Field::zero();
        plainOne.v[0] = V::all(1);
        const Field xy = p * cube * plainOne;
        const Field minusY = Field::minus(Field::zero(), xy);
        const V mask = V::all(uint64_t{negated} | uint64_t{negated} << 32);
        putLane(out, xy, 0);
        putLane(out + kBytes, Field::select(mask, minusY, xy).carried(), 1);
    }

    TV_LANES_TARGET OddTable oddMultiples(const uint8_t* point, int width) const {
        OddTable table(size_t{1} << (width - 2));
        Field p = enter(point), first, second;
        const Entry two = entryOf(twice(p));
        split(two.lanes, first, second);
        table[0] = entryOf(p);
        for (size_t i = 1; i < table.size(); ++i) {
            p = addDistinct(p, first, second);
            table[i] = entryOf(p);
        }
        return table;
    }

    // Public, as is all that follows.
    TV_LANES_TARGET bool sumOf(uint8_t* x, uint8_t* zz, const OddTable& baseTable,
                               const uint8_t* baseFactor, const uint8_t* factor,
                               const uint8_t* point) const {
        const std::vector<int8_t> baseDigits = signedDigits(curve_.number(baseFactor), kBaseWidth);
        const std::vector<int8_t> digits = signedDigits(curve_.number(factor), kWidth);
        const OddTable table = oddMultiples(point, kWidth);
        Field total = Field::zero();
        bool none = true;
        for (size_t i = std::max(baseDigits.size(), digits.size()); i-- != 0;) {
            if (!none) total = twice(total);
            if (i < digits.size()) addPublic(total, none, digits[i], table);
            if (i < baseDigits.size()) addPublic(total, none, baseDigits[i], baseTable);
        }
        Field plainOne = Field::zero();
        plainOne.v[0] = V::all(1);
        const Field plain = total * plainOne, square = total * total * plainOne;
        // Once points have met, Z is 0 and stays so.
        if (none || hasZeroZ(square)) return false;
        putLane(x, plain, 0);
        putLane(zz, square, 2);
        return true;
    }

    TV_LANES_TARGET static void addPublic(Field& total, bool& none, int digit,
                                          const OddTable& table) {
        if (digit == 0) return;
        Field first, second;
        split(table[static_cast<size_t>(digit < 0 ? -digit : digit) / 2].lanes, first, second);
        if (digit < 0) first = negateY(first);
        total = none ? pointOf(first, second).carried() : addDistinct(total, first, second);
        none = false;
    }

    // For a product, whose limbs are in order: 0 or p if it is 0.
    TV_LANES_TARGET static bool hasZeroZ(const Field& p) {
        uint64_t differenceToZero = 0, differenceToPrime = 0;
        for (size_t i = 0; i < kLimbs; ++i) {
            uint64_t lanes[4];
            V::store(lanes, p.v[i]);
            differenceToZero |= lanes[2];
            differenceToPrime |= lanes[2] ^ PrimeLimbs<Curve>::kPrime[i];
        }
        return differenceToZero == 0 || differenceToPrime == 0;
    }

    const Weierstrass& curve_;
    uint64_t one_[kLimbs], squared_[kLimbs];  // R and R^2
};

template <class V, class Curve>
inline constexpr EcOps kEcLanesOps = {EcLanes<V, Curve>::multiply, EcLanes<V, Curve>::multiplyBase,
                                      EcLanes<V, Curve>::sum};

}  // namespace
}  // namespace tv::crypto
