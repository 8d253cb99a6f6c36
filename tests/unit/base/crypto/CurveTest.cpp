// X25519, ECDH and ECDSA: every curve with every form of its arithmetic.
#include <gtest/gtest.h>

#include "base/Hex.h"
#include "base/crypto/Ecdh.h"
#include "base/crypto/Ecdsa.h"
#include "tests/fixtures/StackResidue.h"
#include "tests/unit/base/crypto/Vectors.h"

namespace tv::crypto {
namespace {

using test::Bytes;
using test::bytesOfHex;
using test::forEachVector;
using test::randomBytesOf;
using test::repeating;
using test::Vector;
using X25519Value = std::array<uint8_t, kX25519Size>;

class X25519Test : public test::FormTest<X25519Form> {};
TV_FOR_EACH_FORM(X25519Test, X25519Form);

TEST_P(X25519Test, vectors) {
    const auto valueOf = [](const Bytes& bytes) {
        return std::span<const uint8_t>(bytes).first<kX25519Size>();
    };
    forEachVector("x25519", {"x25519"}, [&](const Vector& v) {
        X25519Value out;
        const bool isZero = v.bytes("shared") == Bytes(out.size());
        const Bytes secret = v.bytes("private"), peer = v.bytes("public");
        EXPECT_EQ(!isZero, x25519(out, valueOf(secret), valueOf(peer)));
        EXPECT_EQ(v["shared"].text(), hexLower(out));
    });
    X25519Value k{9}, u{9}, out;  // RFC 7748 5.2
    for (int i = 1; i <= 1000; ++i) {
        ASSERT_TRUE(x25519(out, k, u));
        u = std::exchange(k, out);
    }
    EXPECT_EQ("684cf59ba83309552800ef566f2f4d3c1c3887c49360e3875f2eb94d99532c51", hexLower(k));
}

#ifndef __SANITIZE_ADDRESS__
TEST_P(X25519Test, noSecretStaysOnTheStack) {
    X25519Value secret{}, out;
    EXPECT_EQ(0u, test::stackResidue([&](size_t i) { secret.fill(uint8_t(77 + i)); },
                                     [&] { x25519Public(out, secret); }));
}
#endif

struct EcCase {
    const char* name;
    EcCurveId id;
    const EcParams* params;
    const EcOps* EcForm::*member;  // null: this curve has no forms
    const EcForm* form = &kEcPortable;
};

std::ostream& operator<<(std::ostream& out, const EcCase& c) {
    return out << c.name << '_' << c.form->name;
}

std::vector<EcCase> ecCases() {
    const EcCase curves[] = {
        {"secp256r1", EcCurveId::kSecp256r1, &kSecp256r1, &EcForm::secp256r1},
        {"secp384r1", EcCurveId::kSecp384r1, &kSecp384r1, &EcForm::secp384r1},
        {"secp521r1", EcCurveId::kSecp521r1, &kSecp521r1, nullptr},
        {"brainpoolP256r1", EcCurveId::kBrainpoolP256r1, &kBrainpoolP256r1, nullptr},
        {"brainpoolP384r1", EcCurveId::kBrainpoolP384r1, &kBrainpoolP384r1, nullptr},
        {"brainpoolP512r1", EcCurveId::kBrainpoolP512r1, &kBrainpoolP512r1, nullptr},
    };
    std::vector<EcCase> all(std::begin(curves), std::end(curves));
    for (EcCase c : {curves[0], curves[1]}) {
        for (const EcForm* form : ecForms.forms()) {
            c.form = form;
            // A form may take the portable functions for one of its curves.
            if (form->*c.member != &kEcPortableOps) all.push_back(c);
        }
    }
    return all;
}

class CurveTest : public testing::TestWithParam<EcCase> {
protected:
    void SetUp() override {
        const EcCase& c = GetParam();
        if (!c.form->usable()) {
            GTEST_SKIP() << "this machine cannot run the form " << c.form->name;
        }
        if (!c.member) return;
        countedOps_ = test::counting<&EcOps::multiply, &EcOps::multiplyBase, &EcOps::sum>(
            *(c.form->*c.member));
        counted_ = *c.form;
        counted_.*c.member = &countedOps_;
        ecForms.force(&counted_);
    }

    void TearDown() override {
        ecForms.force(nullptr);
        if (GetParam().member && !IsSkipped()) {
            EXPECT_GT(test::Calls<EcOps>::count, 0) << "another form did the work";
        }
    }

    // Wycheproof files, which there are for the curves that TLS uses most.
    std::vector<std::string> files(const std::string& prefix, const std::string& suffix) const {
        if (name_.starts_with("brainpool")) return {};
        return {prefix + name_ + suffix};
    }

    // Scalars: a small number, one a little below the order, and one below every order.
    Bytes small(uint8_t k) const {
        Bytes scalar(size_);
        scalar.back() = k;
        return scalar;
    }
    Bytes belowOrder(uint8_t k) const {
        EcNumber number = weierstrass_.order().modulus();
        number[0] -= k;
        Bytes scalar(size_);
        weierstrass_.put(scalar.data(), number);
        return scalar;
    }
    Bytes scalarOf(uint32_t seed) const {
        Bytes scalar = randomBytesOf(size_, seed);
        scalar[0] &= 1;
        return scalar;
    }
    Bytes multiple(const Bytes& scalar) const {
        Bytes point(curve_.pointBytes());
        EXPECT_TRUE(curve_.multiplyBase(point, scalar));
        return point;
    }
    std::string xOf(const Bytes& point) const {
        return hexLower(std::span(point).subspan(1, size_));
    }

    const std::string name_ = GetParam().name;
    const EcCurve& curve_ = ecCurve(GetParam().id);
    const size_t size_ = curve_.fieldBytes();
    const Weierstrass weierstrass_{*GetParam().params};

private:
    EcOps countedOps_{};
    EcForm counted_{};
};
INSTANTIATE_TEST_SUITE_P(Curves, CurveTest, testing::ValuesIn(ecCases()),
                         testing::PrintToStringParamName());

TEST_P(CurveTest, agreesAsPublished) {
    forEachVector("ecdh " + name_, files("ecdh_", "_ecpoint"), [&](const Vector& v) {
        // Files leave zeros out before a scalar or put one more.
        Bytes scalar(2 * size_), x(size_);
        const Bytes given = v.bytes("private");
        scalar.insert(scalar.end(), given.begin(), given.end());
        scalar.erase(scalar.begin(), scalar.end() - ptrdiff_t(size_));
        // Compressed points count as acceptable there; TLS has none (RFC 8422 5.1.2).
        EXPECT_EQ(v.isValid(), curve_.multiply(x, scalar, v.bytes("public")));
        EXPECT_TRUE(!v.isValid() || v["shared"].text() == hexLower(x));
    });
}

TEST_P(CurveTest, drawsKeysUntilInRange) {
    EcdhKey key(GetParam().id);
    SecureBuffer secret;
    const Bytes base = multiple(small(1));
    EXPECT_FALSE(key.generate(repeating({})) || key.generate(repeating({0})));
    EXPECT_FALSE(key.derive(secret, base));
    int draws = 0;
    EXPECT_TRUE(key.generate([&](std::span<uint8_t> out) {
        const Bytes draw[] = {Bytes(size_, 0xff), belowOrder(0), Bytes(size_), small(1)};
        std::ranges::copy(draw[draws++], out.begin());
        return true;
    }));
    EXPECT_EQ(4, draws);
    EXPECT_EQ(hexLower(base), hexLower(key.publicPoint()));
    EXPECT_TRUE(key.derive(secret, multiple(small(3))));
    EXPECT_EQ(xOf(multiple(small(3))), hexLower(secret.bytes()));
}

#ifndef __SANITIZE_ADDRESS__
TEST_P(CurveTest, noSecretStaysOnTheStack) {
    const Bytes peer = multiple(scalarOf(1));
    Bytes scalar(size_), x(size_), point(curve_.pointBytes());
    const auto choose = [&](size_t i) {
        std::ranges::copy(scalarOf(uint32_t(2 + i)), scalar.begin());
    };
    EXPECT_EQ(0u,
              test::stackResidue(choose, [&] { EXPECT_TRUE(curve_.multiply(x, scalar, peer)); }));
    EXPECT_EQ(0u,
              test::stackResidue(choose, [&] { EXPECT_TRUE(curve_.multiplyBase(point, scalar)); }));
}
#endif

// Both ways of multiplying agree; small scalars, those next to the order and others.
TEST_P(CurveTest, multiplesAddUp) {
    const Bytes base = multiple(small(1)), triple = multiple(small(3));
    Bytes x(size_);
    for (uint8_t k = 1; k < 70; ++k) {
        const Bytes point = multiple(small(k)), opposite = multiple(belowOrder(k));
        EXPECT_TRUE(curve_.isPoint(point) && curve_.isPoint(opposite)) << int{k};
        EXPECT_EQ(xOf(point), xOf(opposite)) << int{k};
        EXPECT_NE(point, opposite) << int{k};
        EXPECT_TRUE(curve_.multiply(x, small(k), triple));
        EXPECT_EQ(xOf(multiple(small(uint8_t(3 * k)))), hexLower(x)) << int{k};
        for (const Bytes& scalar : {belowOrder(k), scalarOf(k)}) {
            EXPECT_TRUE(curve_.multiply(x, scalar, base));
            EXPECT_EQ(xOf(multiple(scalar)), hexLower(x)) << int{k};
        }
    }
}

// Beside the wrong points of the Wycheproof files.
TEST_P(CurveTest, refusesWhatIsNoPoint) {
    const Bytes good = multiple(small(1));
    Bytes longer = good, wideX = good, wideY = good;
    longer.push_back(0);
    std::fill_n(wideX.begin() + 1, size_, 0xff);
    std::fill_n(wideY.rbegin(), size_, 0xff);
    Bytes hybrid = good, otherY = good;
    hybrid[0] = 6;
    otherY.back() ^= 1;
    const Bytes shorter(good.begin(), good.end() - 1);
    for (const Bytes& point :
         {Bytes{0}, Bytes(good.size()), shorter, longer, wideX, wideY, hybrid, otherY}) {
        Bytes x(size_);
        EXPECT_FALSE(curve_.isPoint(point)) << hexLower(point);
        EXPECT_FALSE(curve_.multiply(x, small(1), point)) << hexLower(point);
        EXPECT_FALSE(ecdsaVerify(GetParam().id, point, x, Bytes{0x30, 6, 2, 1, 1, 2, 1, 1}));
    }
}

TEST_P(CurveTest, verifiesAsPublished) {
    const std::string size = name_ == "secp521r1" ? "512" : name_.substr(4, 3);
    forEachVector("ecdsa " + name_, files("ecdsa_", "_sha" + size), [&](const Vector& v) {
        const Bytes point = bytesOfHex(v["publicKey"]["uncompressed"].text());
        const Bytes digest = v.digest();
        Bytes signature = v.bytes("sig");
        const auto verify = [&](const Bytes& d) {
            return ecdsaVerify(GetParam().id, point, d, signature);
        };
        EXPECT_EQ(v.isValid(), verify(digest));
        if (!v.test.has("private")) return;
        EXPECT_EQ(hexLower(point), hexLower(multiple(v.bytes("private"))));
        EXPECT_FALSE(verify(Bytes(digest.rbegin(), digest.rend())));
        // One encoding only: a zero too many before r, whose length stands behind those of all.
        const size_t r = signature[1] == 0x81 ? 3 : 2;
        ++signature[r - 1];
        ++signature[r + 1];
        signature.insert(signature.begin() + ptrdiff_t(r) + 2, 0);
        EXPECT_FALSE(verify(digest));
    });
}

// Sums in which equal or opposite points meet, or infinity comes out: the signer's point is a small
// multiple of the base point, and so are both summands.
TEST_P(CurveTest, verifiesSumsOfRelatedPoints) {
    const MontField& order = weierstrass_.order();
    const auto bytesOfElement = [&](const EcNumber& element) {
        Bytes out(size_);
        weierstrass_.put(out.data(), order.leave(element));
        return out;
    };
    std::vector<EcNumber> xs(1);
    for (uint8_t k = 1; k < 126; ++k) {
        const EcNumber x = weierstrass_.number(multiple(small(k)).data() + 1);
        xs.push_back(order.enter(order.reduceOnce(x)));
    }
    xs[0] = xs[1];
    for (int factor = -40; factor <= 40; factor += factor == -1 ? 2 : 1) {
        const auto size = static_cast<uint8_t>(std::abs(factor));
        const Bytes point = multiple(factor < 0 ? belowOrder(size) : small(size));
        for (int u1 = 1; u1 < 6; ++u1) {
            for (int u2 = 1; u2 < 4; ++u2) {
                // With s = r / u2 and e = s u1 the factors of the sum come out as u1 and u2.
                const int sum = u1 + u2 * factor;
                const EcNumber r = xs[static_cast<size_t>(std::abs(sum))];
                const EcNumber s = order.mul(r, order.invert(order.enter({Limb(u2)})));
                const EcNumber e = order.mul(s, order.enter({Limb(u1)}));
                EXPECT_EQ(sum != 0, curve_.verify(bytesOfElement(r), bytesOfElement(s),
                                                  bytesOfElement(e), point))
                    << factor << " " << u1 << " " << u2;
            }
        }
    }
}

}  // namespace
}  // namespace tv::crypto
