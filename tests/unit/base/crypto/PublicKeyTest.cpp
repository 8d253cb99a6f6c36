// Public keys: RSA, Diffie-Hellman over finite fields, and every curve with every form of its
// arithmetic.
#include <gtest/gtest.h>

#include <cstring>

#include "base/Hex.h"
#include "base/crypto/Dhe.h"
#include "base/crypto/Ecdh.h"
#include "base/crypto/Ecdsa.h"
#include "base/crypto/Rsa.h"
#include "tests/unit/base/crypto/Vectors.h"

namespace tv::crypto {
namespace {

using test::Bytes;
using test::bytesOfHex;
using test::forEachVector;
using test::Json;
using test::randomBytesOf;
using test::repeating;
using test::Vector;
using X25519Value = std::array<uint8_t, kX25519Size>;

RsaPublicKey keyOf(const Json& json) {
    RsaPublicKey key;
    EXPECT_TRUE(
        key.set(bytesOfHex(json["modulus"].text()), bytesOfHex(json["publicExponent"].text())));
    return key;
}

// Every scheme, hash and size in our file; what is no signature, above all in the others.
TEST(Rsa, verifiesAsPublished) {
    const auto check = [](const Vector& v) {
        const RsaPublicKey key = keyOf(v["publicKey"]);
        const bool isPss = v.test.has("sLen") || v.group.has("sLen");
        const Bytes digest = v.digest();
        Bytes signature = v.bytes("sig");
        const auto verify = [&](const Bytes& d) {
            if (v["sha"].text() == "md5sha1") return key.verifyPkcs1Md5Sha1(d, signature);
            return isPss ? key.verifyPss(v.hash(), d, v.number("sLen"), signature)
                         : key.verifyPkcs1(v.hash(), d, signature);
        };
        // "Acceptable" there are names of the hash without its NULL, which are refused here.
        EXPECT_EQ(v.isValid(), verify(digest));
        if (!v.isValid()) return;
        EXPECT_FALSE(verify(Bytes(digest.begin(), digest.end() - 1)));
        EXPECT_FALSE(verify(Bytes(digest.rbegin(), digest.rend())));
        EXPECT_TRUE(isPss || !key.verifyPss(v.hash(), digest, digest.size(), signature));
        EXPECT_FALSE(isPss && key.verifyPkcs1(v.hash(), digest, signature));
        for (const size_t salt : {digest.size() - 1, digest.size() + 1, size_t{0}, SIZE_MAX}) {
            EXPECT_FALSE(isPss && key.verifyPss(v.hash(), digest, salt, signature)) << salt;
        }
        signature.back() ^= 1;
        EXPECT_FALSE(verify(digest));
        signature.pop_back();
        EXPECT_FALSE(verify(digest));
    };
    test::forEachTest("crypto/rsa.json", check);
    for (const char* file : {"rsa_signature_2048_sha256", "rsa_signature_4096_sha512",
                             "rsa_pss_2048_sha256_mgf1_32"}) {
        test::forEachTest(test::kWycheproof + file + "_test.json", check);
    }
}

TEST(Rsa, encryptsAsPublished) {
    const Json file = Json::load(testDataPath("crypto/rsa.json")).value();
    for (const Json& group : file["testGroups"].items()) {
        const RsaPublicKey key = keyOf(group["publicKey"]);
        // Counts 1 .. 255 and again; a zero every third byte at first, which must be drawn anew.
        int draws = 0, value = 0;
        const auto random = [&](std::span<uint8_t> out) {
            ++draws;
            for (size_t i = 0; i < out.size(); ++i) {
                out[i] = draws == 1 ? static_cast<uint8_t>(i % 3 == 0 ? 0 : i % 255 + 1)
                                    : static_cast<uint8_t>(3 * value++ % 255 + 1);
            }
            return true;
        };
        Bytes out(key.bytes());
        const Json& row = group["encryption"];
        ASSERT_TRUE(key.encryptPkcs1(bytesOfHex(row["message"].text()), random, out));
        EXPECT_EQ(row["result"].text(), hexLower(out)) << key.bits();
        EXPECT_EQ(2, draws);
    }
}

TEST(Rsa, refusesToEncrypt) {
    RsaPublicKey key, none;
    ASSERT_TRUE(key.set(Bytes(256, 0xff), Bytes{3}));
    const auto encrypt = [&key](size_t size, size_t room, const RandomSource& random) {
        Bytes out(room);
        return key.encryptPkcs1(Bytes(size), random, out);
    };
    EXPECT_TRUE(encrypt(245, 256, repeating({1})));
    EXPECT_FALSE(encrypt(246, 256, repeating({1})) || encrypt(245, 255, repeating({1})));
    EXPECT_FALSE(encrypt(0, 256, repeating({}))) << "random fails";
    EXPECT_FALSE(encrypt(0, 256, repeating({0}))) << "zeros alone";
    EXPECT_FALSE(none.encryptPkcs1({}, repeating({1}), {}));
    EXPECT_FALSE(none.verifyPkcs1(HashId::kSha256, Bytes(32), {}));
    EXPECT_FALSE(none.verifyPss(HashId::kSha256, Bytes(32), 32, {}));
}

TEST(Rsa, limitsOfKeys) {
    const auto number = [](size_t bits, uint8_t last) {
        Bytes bytes((bits + 7) / 8);
        bytes[0] = static_cast<uint8_t>(1 << ((bits - 1) % 8));
        bytes.back() |= last;
        return bytes;
    };
    for (const size_t bits : {511u, 512u, 8192u, 8193u, 40'000'000u}) {
        EXPECT_EQ(bits >= 512 && bits <= 8192, RsaPublicKey().set(number(bits, 1), Bytes{3}))
            << bits;
    }
    EXPECT_FALSE(RsaPublicKey().set(number(2048, 2), Bytes{3})) << "even";
    EXPECT_FALSE(RsaPublicKey().set({}, Bytes{3}));
    const std::pair<const char*, bool> exponents[] = {
        {"", false},        {"00", false},         {"01", false},
        {"04", false},      {"03", true},          {"00000000000000000003", true},
        {"ffffffff", true}, {"0100000001", false},
    };
    for (const auto& [digits, taken] : exponents) {
        EXPECT_EQ(taken, RsaPublicKey().set(Bytes(256, 0xff), bytesOfHex(digits))) << digits;
    }
}

TEST(Dhe, agreesAsPublished) {
    forEachVector("dhe", {}, [](const Vector& v) {
        Dhe dhe;
        ASSERT_EQ(Dhe::Check::Ok, dhe.setServerParams(v.bytes("p"), v.bytes("g"), v.bytes("ys")));
        ASSERT_TRUE(dhe.generate(repeating(v.bytes("random"))));
        EXPECT_EQ(v["public"].text(), hexLower(dhe.publicValue()));
        SecureBuffer secret, stripped;
        ASSERT_TRUE(dhe.derive(secret) && dhe.deriveStripped(stripped));
        std::string expected = v["secret"].text();
        EXPECT_EQ(expected, hexLower(secret.bytes()));
        while (expected.starts_with("00")) {
            expected.erase(0, 2);
        }
        EXPECT_EQ(expected, hexLower(stripped.bytes()));
    });
}

TEST(Dhe, checksTheServersNumbers) {
    using Check = Dhe::Check;
    const Bytes p(96, 0xff), two{2}, wide(100'000, 0x01);
    Bytes less1 = p, less2 = p, small = p, above(97);
    less1.back() = 0xfe;
    less2.back() = 0xfd;
    small[0] = 0x7f;
    above[0] = 1;
    const auto check = [](const Bytes& modulus, const Bytes& g, const Bytes& ys) {
        return Dhe().setServerParams(modulus, g, ys);
    };
    EXPECT_EQ(Check::Ok, check(p, two, two));
    EXPECT_EQ(Check::Ok, check(p, two, less2));
    for (const Bytes& bad : {Bytes{}, Bytes{0}, Bytes{1}, less1, p, above, wide}) {
        EXPECT_EQ(Check::BadPeerKey, check(p, two, bad)) << hexLower(bad);
        EXPECT_EQ(Check::BadGroup, check(p, bad, two)) << hexLower(bad);
    }
    EXPECT_EQ(Check::BadGroup, check(less1, two, two)) << "even";
    EXPECT_EQ(Check::GroupTooSmall, check({}, two, two));
    EXPECT_EQ(Check::GroupTooSmall, check(small, two, two));
    EXPECT_EQ(Check::GroupTooLarge, check(Bytes(1025, 0x01), two, two));
    EXPECT_EQ(Check::GroupTooLarge, check(wide, two, two));
}

// Nothing without a key, and no secret of one: modulo 2^768 - 1, no prime, 2^384 has order two.
TEST(Dhe, givesNoWorthlessSecret) {
    Bytes ys(96);
    ys[47] = 1;
    Dhe dhe;
    SecureBuffer secret;
    ASSERT_EQ(Dhe::Check::Ok, dhe.setServerParams(Bytes(96, 0xff), Bytes{2}, ys));
    EXPECT_EQ(768u, dhe.bits());
    EXPECT_FALSE(dhe.generate(repeating({})));
    EXPECT_FALSE(dhe.derive(secret) || dhe.deriveStripped(secret));
    ASSERT_TRUE(dhe.generate(repeating({0x42})));
    EXPECT_FALSE(dhe.derive(secret) || dhe.deriveStripped(secret));
}

class X25519Test : public test::FormTest<X25519Form> {};
TV_FOR_EACH_FORM(X25519Test, X25519Form);

TEST_P(X25519Test, vectors) {
    forEachVector("x25519", {"x25519"}, [&](const Vector& v) {
        X25519Value out, secret, peer;
        std::ranges::copy(v.bytes("private"), secret.begin());
        std::ranges::copy(v.bytes("public"), peer.begin());
        EXPECT_EQ(v.bytes("shared") != Bytes(out.size()), x25519(out, secret, peer));
        EXPECT_EQ(v["shared"].text(), hexLower(out));
    });
    X25519Value k{9}, u{9}, out;  // RFC 7748 5.2
    for (int i = 1; i <= 1000; ++i) {
        ASSERT_TRUE(x25519(out, k, u));
        u = std::exchange(k, out);
    }
    EXPECT_EQ("684cf59ba83309552800ef566f2f4d3c1c3887c49360e3875f2eb94d99532c51", hexLower(k));
}

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
        if (!c.form->usable()) GTEST_SKIP() << "not for this machine";
        if (!c.member) return;
        countedOps_ = test::counting<&EcOps::multiply, &EcOps::multiplyBase, &EcOps::sum>(
            *(c.form->*c.member));
        counted_ = *c.form;
        counted_.*c.member = &countedOps_;
        ecForms.force(&counted_);
    }

    void TearDown() override {
        ecForms.force(nullptr);
        EXPECT_TRUE(!GetParam().member || IsSkipped() || test::Calls<EcOps>::count > 0);
    }

    // k itself, or the order and k for one that is not positive.
    Bytes scalarOf(int k) const {
        EcNumber number = weierstrass_.order().modulus();
        number[0] -= static_cast<Limb>(-k);
        if (k > 0) number = {static_cast<Limb>(k)};
        Bytes scalar(size_);
        weierstrass_.put(scalar.data(), number);
        return scalar;
    }
    Bytes randomScalar(uint32_t seed) const {  // below every order
        Bytes scalar = randomBytesOf(size_, seed);
        scalar[0] &= 1;
        return scalar;
    }
    Bytes multiple(const Bytes& scalar) const {
        Bytes point(curve_.pointBytes());
        EXPECT_TRUE(curve_.multiplyBase(point, scalar));
        return point;
    }
    Bytes multiple(int k) const { return multiple(scalarOf(k)); }
    std::string xOf(const Bytes& point) const {
        return hexLower(std::span(point).subspan(1, size_));
    }
    // The examples of that name and, for the curves that TLS uses most, those of Wycheproof.
    void forEachExample(const std::string& kind, const std::string& suffix,
                        const test::Check& check) const {
        std::vector<std::string> files = {kind + "_" + name_ + suffix};
        if (name_.starts_with("brainpool")) files.clear();
        forEachVector(kind + " " + name_, files, check);
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
    forEachExample("ecdh", "_ecpoint", [&](const Vector& v) {
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
    EXPECT_FALSE(key.generate(repeating({})) || key.generate(repeating({0})));
    EXPECT_FALSE(key.derive(secret, multiple(1)));
    int draws = 0;
    EXPECT_TRUE(key.generate([&](std::span<uint8_t> out) {
        const Bytes draw[] = {Bytes(size_, 0xff), scalarOf(0), Bytes(size_), scalarOf(1)};
        std::ranges::copy(draw[draws++], out.begin());
        return true;
    }));
    EXPECT_EQ(4, draws);
    EXPECT_EQ(hexLower(multiple(1)), hexLower(key.publicPoint()));
    EXPECT_TRUE(key.derive(secret, multiple(3)));
    EXPECT_EQ(xOf(multiple(3)), hexLower(secret.bytes()));
}

// Both ways of multiplying agree; small scalars, those next to the order and others.
TEST_P(CurveTest, multiplesAddUp) {
    const Bytes base = multiple(1), triple = multiple(3);
    Bytes x(size_);
    for (int k = 1; k < 70; ++k) {
        const Bytes point = multiple(k), opposite = multiple(-k);
        EXPECT_TRUE(curve_.isPoint(point) && curve_.isPoint(opposite)) << k;
        EXPECT_EQ(xOf(point), xOf(opposite)) << k;
        EXPECT_NE(point, opposite) << k;
        EXPECT_TRUE(curve_.multiply(x, scalarOf(k), triple));
        EXPECT_EQ(xOf(multiple(3 * k)), hexLower(x)) << k;
        for (const Bytes& scalar : {scalarOf(-k), randomScalar(uint32_t(k))}) {
            EXPECT_TRUE(curve_.multiply(x, scalar, base));
            EXPECT_EQ(xOf(multiple(scalar)), hexLower(x)) << k;
        }
    }
}

// Beside the wrong points of the Wycheproof files.
TEST_P(CurveTest, refusesWhatIsNoPoint) {
    const Bytes good = multiple(1);
    std::vector<Bytes> bad(5, good);
    bad[0].push_back(0);
    bad[1].pop_back();
    std::fill_n(bad[2].begin() + 1, size_, 0xff);  // x, then y beyond the field
    std::fill_n(bad[3].rbegin(), size_, 0xff);
    bad[4][0] = 6;  // the hybrid form
    bad.push_back(Bytes{0});
    bad.push_back(Bytes(good.size()));
    for (const Bytes& point : bad) {
        Bytes x(size_);
        EXPECT_FALSE(curve_.isPoint(point)) << hexLower(point);
        EXPECT_FALSE(curve_.multiply(x, scalarOf(1), point)) << hexLower(point);
        EXPECT_FALSE(ecdsaVerify(GetParam().id, point, x, Bytes{0x30, 6, 2, 1, 1, 2, 1, 1}));
    }
}

TEST_P(CurveTest, verifiesAsPublished) {
    const std::string size = name_ == "secp521r1" ? "512" : name_.substr(4, 3);
    forEachExample("ecdsa", "_sha" + size, [&](const Vector& v) {
        const Bytes point = bytesOfHex(v["publicKey"]["uncompressed"].text());
        const Bytes digest = v.digest();
        const auto verify = [&](const Bytes& d) {
            return ecdsaVerify(GetParam().id, point, d, v.bytes("sig"));
        };
        EXPECT_EQ(v.isValid(), verify(digest));
        if (!v.test.has("private")) return;
        EXPECT_EQ(hexLower(point), hexLower(multiple(v.bytes("private"))));
        EXPECT_FALSE(verify(Bytes(digest.rbegin(), digest.rend())));
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
    for (int k = 1; k < 126; ++k) {
        const EcNumber x = weierstrass_.number(multiple(k).data() + 1);
        xs.push_back(order.enter(order.reduceOnce(x)));
    }
    xs[0] = xs[1];
    EcNumber inverses[4];
    for (int u2 = 1; u2 < 4; ++u2) {
        inverses[u2] = order.invert(order.enter({Limb(u2)}));
    }
    for (int factor = -40; factor <= 40; factor += factor == -1 ? 2 : 1) {
        const Bytes point = multiple(factor);
        for (int u1 = 1; u1 < 6; ++u1) {
            for (int u2 = 1; u2 < 4; ++u2) {
                // With s = r / u2 and e = s u1 the factors of the sum come out as u1 and u2.
                const int sum = u1 + u2 * factor;
                const EcNumber r = xs[static_cast<size_t>(std::abs(sum))];
                const EcNumber s = order.mul(r, inverses[u2]);
                const EcNumber e = order.mul(s, order.enter({Limb(u1)}));
                EXPECT_EQ(sum != 0, curve_.verify(bytesOfElement(r), bytesOfElement(s),
                                                  bytesOfElement(e), point))
                    << factor << " " << u1 << " " << u2;
            }
        }
    }
}

#ifndef __SANITIZE_ADDRESS__  // which lays the stack out otherwise
constexpr size_t kStackSeen = 128 * 1024;

__attribute__((noinline)) void clearStack() {
    uint8_t below[kStackSeen];
    std::memset(below, 0, sizeof below);
    __asm__ __volatile__("" : : "r"(below) : "memory");
}

// Into memory that is there: where an allocation lies would be another difference.
__attribute__((noinline)) void copyStack(std::vector<uint8_t>& out) {
    uint8_t below[kStackSeen];
    __asm__ __volatile__("" : "=m"(below));  // as it was left
    std::memcpy(out.data(), below, sizeof below);
}

// How many bytes of the stack tell work() after choose(0) from work() after choose(1): what it
// keeps there of the secret that was chosen.
template <class Choose, class Work>
size_t stackResidue(Choose choose, Work work) {
    std::vector<uint8_t> left[2] = {std::vector<uint8_t>(kStackSeen),
                                    std::vector<uint8_t>(kStackSeen)};
    // Things are made on first use: two runs with the first secret. What counts the runs stands in
    // no register, which the work would save on its stack.
    volatile size_t run = 0;
    while (run < 3) {
        choose(run / 2);
        clearStack();
        work();
        copyStack(left[run / 2]);
        const size_t next = run + 1;
        run = next;
    }
    size_t different = 0;
    for (size_t i = 0; i < kStackSeen; ++i) {
        different += left[0][i] != left[1][i];
    }
    return different;
}

TEST(Dhe, noSecretStaysOnTheStack) {
    Dhe dhe;
    ASSERT_EQ(Dhe::Check::Ok, dhe.setServerParams(Bytes(96, 0xff), Bytes{2}, Bytes{5}));
    RandomSource random;
    SecureBuffer secret;
    EXPECT_EQ(0u, stackResidue([&](size_t i) { random = repeating({uint8_t(77 + i)}); },
                               [&] { EXPECT_TRUE(dhe.generate(random) && dhe.derive(secret)); }));
}

TEST_P(X25519Test, noSecretStaysOnTheStack) {
    X25519Value secret{}, out;
    EXPECT_EQ(0u, stackResidue([&](size_t i) { secret.fill(uint8_t(77 + i)); },
                               [&] { x25519Public(out, secret); }));
}

TEST_P(CurveTest, noSecretStaysOnTheStack) {
    const Bytes peer = multiple(3);
    Bytes scalar(size_), x(size_), point(curve_.pointBytes());
    const auto choose = [&](size_t i) {
        std::ranges::copy(randomScalar(uint32_t(i)), scalar.begin());
    };
    EXPECT_EQ(0u, stackResidue(choose, [&] { EXPECT_TRUE(curve_.multiply(x, scalar, peer)); }));
    EXPECT_EQ(0u, stackResidue(choose, [&] { EXPECT_TRUE(curve_.multiplyBase(point, scalar)); }));
}
#endif

}  // namespace
}  // namespace tv::crypto
