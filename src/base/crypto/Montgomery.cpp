// Reduction, multiplication and squaring over limbs, and on them the powers for public and for
// secret bases and exponents.
#include "base/crypto/Montgomery.h"

#include <algorithm>
#include <bit>
#include <vector>

#include "platform/SysWipe.h"

namespace tv::crypto {

namespace {

constexpr size_t kMaxLimbs = BigNum::kMaxLimbs;
constexpr size_t kWindowBits = 4;  // of the exponent at a time: half a byte
constexpr size_t kWindowEntries = size_t{1} << kWindowBits;

// accumulator[0..n) += a[0..n) * factor; the limb carried out is returned.
Limb mulAddRow(Limb* accumulator, const Limb* a, size_t n, Limb factor) {
    Limb carry = 0;
    for (size_t i = 0; i < n; ++i) {
        accumulator[i] = mulAdd(a[i], factor, accumulator[i], carry);
    }
    return carry;
}

// accumulator[0..n) -= a[0..n) * factor; the limb borrowed is returned.
Limb mulSubRow(Limb* accumulator, const Limb* a, size_t n, Limb factor) {
    Limb carry = 0, borrow = 0;
    for (size_t i = 0; i < n; ++i) {
        const Limb low = mulAdd(a[i], factor, 0, carry);
        accumulator[i] = subBorrow(accumulator[i], low, borrow);
    }
    return carry + borrow;
}

// out = a * 2^shift over n limbs, shift below kLimbBits; the bits shifted out are returned.
Limb shiftLeft(Limb* out, const Limb* a, size_t n, unsigned shift) {
    Limb carry = 0;
    for (size_t i = 0; i < n; ++i) {
        const Limb limb = a[i];
        out[i] = (limb << shift) | carry;
        carry = shift == 0 ? 0 : limb >> (kLimbBits - shift);
    }
    return carry;
}

void shiftRight(Limb* out, const Limb* a, size_t n, unsigned shift) {
    for (size_t i = 0; i < n; ++i) {
        const Limb above = i + 1 < n && shift != 0 ? a[i + 1] << (kLimbBits - shift) : 0;
        out[i] = (a[i] >> shift) | above;
    }
}

// One step of schoolbook division, for public values: rest = rest * 2^kLimbBits modulo divisor,
// whose top bit is set. rest has n + 1 limbs and lies below the divisor before and after.
void shiftInLimb(Limb* rest, const Limb* divisor, size_t n) {
    for (size_t i = n; i > 0; --i) {
        rest[i] = rest[i - 1];
    }
    rest[0] = 0;
    const Limb top = divisor[n - 1];
    const DoubleLimb head = (static_cast<DoubleLimb>(rest[n]) << kLimbBits) | rest[n - 1];
    const Limb digit = rest[n] >= top ? ~Limb{0} : static_cast<Limb>(head / top);
    // The digit is at most two too large (Knuth, volume 2, 4.3.1, theorem B).
    Limb borrow = 0;
    rest[n] = subBorrow(rest[n], mulSubRow(rest, divisor, n, digit), borrow);
    while (borrow != 0) {
        const Limb carry = addLimbs(rest, rest, divisor, n);
        rest[n] += carry;
        borrow -= carry != 0 && rest[n] == 0 ? 1 : 0;
    }
}

void setOne(Limb* out, size_t n) {
    std::fill(out, out + n, Limb{0});
    out[0] = 1;
}

}  // namespace

bool Montgomery::setModulus(const BigNum& modulus) {
    if (!modulus.isOdd() || modulus.bits() < 2) return false;
    modulus_ = modulus;
    negatedInverse_ = crypto::negatedInverse(modulus.limbs()[0]);
    return true;
}

// Takes a public value into Montgomery form by division: half the price of one multiplication, and
// nothing to prepare per modulus. With both sides shifted so that the divisor's top bit is set.
void Montgomery::enter(Limb* out, const Limb* value) const {
    const size_t n = modulus_.size();
    Limb rest[kMaxLimbs + 1], divisor[kMaxLimbs];
    const auto shift = static_cast<unsigned>(std::countl_zero(modulus_.limbs()[n - 1]));
    shiftLeft(divisor, modulus_.limbs(), n, shift);
    rest[n] = shiftLeft(rest, value, n, shift);
    for (size_t i = 0; i < n; ++i) {
        shiftInLimb(rest, divisor, n);
    }
    shiftRight(out, rest, n, shift);
}

void Montgomery::reduce(Limb* out, Product& product) const {
    const size_t n = modulus_.size();
    const Limb* m = modulus_.limbs();
    Limb carry = 0;
    for (size_t i = 0; i < n; ++i) {
        const Limb high = mulAddRow(product + i, m, n, product[i] * negatedInverse_);
        product[i + n] = addCarry(product[i + n], high, carry);
    }
    Limb* reduced = product;
    const Limb borrow = subLimbs(reduced, product + n, m, n);
    // Below the modulus before the subtraction only if that borrows and there was no carry.
    selectLimbs(out, maskIfSet(borrow & (1 ^ carry)), product + n, reduced, n);
}

void Montgomery::multiply(Limb* out, const Limb* a, const Limb* b, Product& product) const {
    const size_t n = modulus_.size();
    std::fill(product, product + n, Limb{0});
    for (size_t i = 0; i < n; ++i) {
        product[i + n] = mulAddRow(product + i, a, n, b[i]);
    }
    reduce(out, product);
}

void Montgomery::square(Limb* out, const Limb* a, Product& product) const {
    const size_t n = modulus_.size();
    std::fill(product, product + n + 1, Limb{0});
    for (size_t i = 0; i + 1 < n; ++i) {
        product[i + n] = mulAddRow(product + 2 * i + 1, a + i + 1, n - i - 1, a[i]);
    }
    product[2 * n - 1] = 0;
    // Each product of two different limbs counts twice, each square once.
    Limb shifted = 0, carry = 0;
    for (size_t i = 0; i < n; ++i) {
        const Limb low = product[2 * i], high = product[2 * i + 1];
        Limb squareHigh = 0;
        const Limb squareLow = mulAdd(a[i], a[i], 0, squareHigh);
        product[2 * i] = addCarry((low << 1) | shifted, squareLow, carry);
        product[2 * i + 1] = addCarry((high << 1) | (low >> (kLimbBits - 1)), squareHigh, carry);
        shifted = high >> (kLimbBits - 1);
    }
    reduce(out, product);
}

void Montgomery::raise(Limb* out, const Limb* base, const Limb* entered, uint64_t exponent,
                       Product& product) const {
    const size_t n = modulus_.size();
    std::copy(entered, entered + n, out);
    for (int bit = static_cast<int>(std::bit_width(exponent)) - 2; bit > 0; --bit) {
        square(out, out, product);
        if ((exponent >> bit & 1) != 0) multiply(out, out, entered, product);
    }
    // The last multiplication takes the plain base (or one) and so leaves Montgomery form.
    if (exponent > 1) square(out, out, product);
    if (exponent > 1 && (exponent & 1) != 0) {
        multiply(out, out, base, product);
    } else {
        Limb one[kMaxLimbs];
        setOne(one, n);
        multiply(out, out, one, product);
    }
}

void Montgomery::powPublic(BigNum& out, const BigNum& base, uint64_t exponent) const {
    const size_t n = modulus_.size();
    Limb plain[kMaxLimbs], entered[kMaxLimbs], result[kMaxLimbs];
    Product product;
    base.toLimbs(plain, n);
    enter(entered, plain);
    raise(result, plain, entered, exponent, product);
    out.fromLimbs(result, n);
}

void Montgomery::powSecretBase(std::span<uint8_t> out, std::span<const uint8_t> base,
                               uint64_t exponent) const {
    const size_t n = modulus_.size();
    Limb plain[kMaxLimbs], entered[kMaxLimbs], result[kMaxLimbs];
    Product product;
    // The square of the form's factor, by entering one twice, takes a value in without a division.
    setOne(entered, n);
    enter(entered, entered);
    enter(entered, entered);
    limbsFromBytes(plain, n, base);
    multiply(entered, entered, plain, product);
    raise(result, plain, entered, exponent, product);
    limbsToBytes(out, result, n);
    plat::wipe(plain, n * sizeof(Limb));
    plat::wipe(entered, n * sizeof(Limb));
    plat::wipe(result, n * sizeof(Limb));
    plat::wipe(product, 2 * n * sizeof(Limb));
}

void Montgomery::powSecretExponent(std::span<uint8_t> out, const BigNum& base,
                                   std::span<const uint8_t> exponent) const {
    const size_t n = modulus_.size();
    // The powers 0 to 15 of the base, then result and the entry of the table in turn.
    std::vector<Limb> work((kWindowEntries + 2) * n);
    Product product;
    Limb* result = work.data() + kWindowEntries * n;
    Limb* entry = result + n;
    setOne(entry, n);
    enter(work.data(), entry);
    base.toLimbs(entry, n);
    enter(work.data() + n, entry);
    for (size_t i = 2; i < kWindowEntries; ++i) {
        multiply(work.data() + i * n, work.data() + (i - 1) * n, work.data() + n, product);
    }
    std::copy(work.data(), work.data() + n, result);
    for (size_t i = 0; i < 2 * exponent.size(); ++i) {
        for (size_t k = 0; k < kWindowBits; ++k) {
            square(result, result, product);
        }
        const Limb window = (exponent[i / 2] >> (i % 2 == 0 ? 4 : 0)) & 15;
        std::fill(entry, entry + n, Limb{0});
        for (size_t k = 0; k < kWindowEntries; ++k) {
            const Limb mask = ctIsEqual(window, static_cast<Limb>(k));
            for (size_t j = 0; j < n; ++j) {
                entry[j] |= mask & work[k * n + j];
            }
        }
        multiply(result, result, entry, product);
    }
    setOne(entry, n);
    multiply(result, result, entry, product);
    limbsToBytes(out, result, n);
    plat::wipe(work.data(), work.size() * sizeof(Limb));
    plat::wipe(product, 2 * n * sizeof(Limb));
}

}  // namespace tv::crypto
