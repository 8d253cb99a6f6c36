// Diffie-Hellman: X25519 and the other curves in every form, and over finite fields.
#include <gtest/gtest.h>

#include "base/ConstTime.h"
#include "base/Hex.h"
#include "base/crypto/Dhe.h"
#include "base/crypto/Ecdh.h"
#include "base/crypto/Ecdsa.h"
#include "tests/fixtures/StackResidue.h"
#include "tests/unit/base/crypto/EcForms.h"

namespace tv::crypto {
namespace {

using test::Bytes;
using test::forEachVector;
using test::Json;
using test::randomBytesOf;
using test::Vector;
using X25519Value = std::array<uint8_t, kX25519Size>;

RandomSource seeded(uint32_t seed) {
    return [seed](std::span<uint8_t> out) mutable {
        std::ranges::copy(randomBytesOf(out.size(), seed++), out.begin());
        return true;
    };
}

RandomSource repeating(Bytes bytes) {
    return [bytes](std::span<uint8_t> out) {
        for (size_t i = 0; i < out.size(); ++i) {
            out[i] = bytes[i % bytes.size()];
        }
        return true;
    };
}

bool failing(std::span<uint8_t>) {
    return false;
}

class X25519Test : public test::FormTest<X25519Form> {};
TV_FOR_EACH_FORM(X25519Test, X25519Form);

X25519Value valueOf(const Bytes& bytes) {
    X25519Value value{};
    EXPECT_EQ(value.size(), bytes.size());
    std::copy_n(bytes.begin(), std::min(bytes.size(), value.size()), value.begin());
    return value;
}

TEST_P(X25519Test, vectors) {
    forEachVector("x25519", {"x25519"}, [](const Vector& v) {
        X25519Value out;
        const X25519Value shared = valueOf(v.bytes("shared"));
        EXPECT_EQ(shared != X25519Value{},
                  x25519(out, valueOf(v.bytes("private")), valueOf(v.bytes("public"))));
        EXPECT_EQ(shared, out);
    });
    X25519Value k{9}, u{9}, out;  // RFC 7748 5.2
    for (int i = 1; i <= 1000; ++i) {
        ASSERT_TRUE(x25519(out, k, u));
        u = std::exchange(k, out);
    }
    EXPECT_EQ("684cf59ba83309552800ef566f2f4d3c1c3887c49360e3875f2eb94d99532c51", hexLower(k));
}

TEST_P(X25519Test, twoKeysAgree) {
    X25519Key a, b;
    EXPECT_FALSE(a.generate(failing));
    ASSERT_TRUE(a.generate(seeded(1)) && b.generate(seeded(2)));
    EXPECT_FALSE(std::ranges::equal(a.publicValue(), b.publicValue()));
    X25519Value ab, ba;
    EXPECT_TRUE(a.derive(ab, b.publicValue()) && b.derive(ba, a.publicValue()));
    EXPECT_EQ(ab, ba);
}

TEST_P(X25519Test, noSecretStaysOnTheStack) {
    if (!test::kStackIsSeen) GTEST_SKIP() << "the stack is laid out otherwise";
    X25519Value secret{}, out;
    const size_t left = test::stackResidue([&](size_t i) { secret.fill(uint8_t(77 + i)); },
                                           [&] { x25519Public(out, secret); });
    EXPECT_EQ(left, 0u);
}

class EcdhTest : public test::EcFormTest {};
INSTANTIATE_TEST_SUITE_P(Curves, EcdhTest, testing::ValuesIn(test::ecCases()),
                         testing::PrintToStringParamName());

TEST_P(EcdhTest, vectors) {
    forEachVector("ecdh " + name_, files("ecdh_", "_ecpoint"), [&](const Vector& v) {
        // Files leave zeros out before a scalar or put one more.
        Bytes scalar = v.bytes("private"), shared(curve_.fieldBytes());
        while (!scalar.empty() && scalar.front() == 0) {
            scalar.erase(scalar.begin());
        }
        scalar.insert(scalar.begin(), curve_.fieldBytes() - scalar.size(), 0);
        // Compressed points count as acceptable there; TLS has none (RFC 8422 5.1.2).
        EXPECT_EQ(v.isValid(), curve_.multiply(shared, scalar, v.bytes("public")));
        EXPECT_TRUE(!v.isValid() || v["shared"].text() == hexLower(shared));
    });
}

TEST_P(EcdhTest, twoKeysAgree) {
    EcdhKey a(GetParam().id), b(GetParam().id);
    const Bytes scalar = scalarOf(77);
    ASSERT_TRUE(a.setPrivate(scalar) && b.generate(seeded(2)));
    EXPECT_TRUE(curve_.isPoint(a.publicPoint()));
    EXPECT_FALSE(std::ranges::equal(a.publicPoint(), b.publicPoint()));
    SecureBuffer ab, ba;
    Bytes x(curve_.fieldBytes());
    ASSERT_TRUE(a.derive(ab, b.publicPoint()) && b.derive(ba, a.publicPoint()));
    EXPECT_TRUE(curve_.multiply(x, scalar, b.publicPoint()));
    EXPECT_EQ(hexLower(x), hexLower(ab.bytes()));
    EXPECT_EQ(hexLower(x), hexLower(ba.bytes()));
}

TEST_P(EcdhTest, noSecretStaysOnTheStack) {
    if (!test::kStackIsSeen) GTEST_SKIP() << "the stack is laid out otherwise";
    const Bytes peer = multiple(scalarOf(1));
    Bytes scalar(curve_.fieldBytes()), out(curve_.pointBytes());
    const auto choose = [&](size_t i) {
        std::ranges::copy(scalarOf(uint32_t(2 + i)), scalar.begin());
    };
    const auto x = std::span(out).first(curve_.fieldBytes());
    const size_t left[] = {
        test::stackResidue(choose, [&] { EXPECT_TRUE(curve_.multiply(x, scalar, peer)); }),
        test::stackResidue(choose, [&] { EXPECT_TRUE(curve_.multiplyBase(out, scalar)); }),
    };
    EXPECT_EQ(left[0] + left[1], 0u);
}

// Both ways of multiplying agree; small scalars, those next to the order and others.
TEST_P(EcdhTest, multiplesAddUp) {
    const Bytes base = multiple(small(1));
    Bytes x(curve_.fieldBytes());
    for (uint8_t k = 1; k < 70; ++k) {
        const Bytes point = multiple(small(k)), opposite = multiple(belowOrder(k));
        const auto xOf = [&](const Bytes& p) {
            return hexLower(std::span(p).subspan(1, x.size()));
        };
        EXPECT_TRUE(curve_.isPoint(point) && curve_.isPoint(opposite)) << int{k};
        EXPECT_EQ(xOf(point), xOf(opposite)) << int{k};
        EXPECT_NE(point, opposite) << int{k};
        EXPECT_TRUE(curve_.multiply(x, small(k), multiple(small(3))));
        EXPECT_EQ(xOf(multiple(small(uint8_t(3 * k)))), hexLower(x)) << int{k};
        for (const Bytes& scalar : {belowOrder(k), scalarOf(k)}) {
            EXPECT_TRUE(curve_.multiply(x, scalar, base));
            EXPECT_EQ(xOf(multiple(scalar)), hexLower(x)) << int{k};
        }
    }
}

TEST_P(EcdhTest, refusesWhatIsNoPoint) {
    const size_t size = curve_.fieldBytes();
    EcdhKey key(GetParam().id);
    ASSERT_TRUE(key.generate(seeded(1)));
    const Bytes kAnySignature = {0x30, 6, 2, 1, 1, 2, 1, 1};
    using Change = std::function<void(Bytes&)>;
    const std::pair<const char*, Change> rows[] = {
        {"empty", [](Bytes& p) { p.clear(); }},
        {"infinity", [](Bytes& p) { p.assign(1, 0); }},
        {"infinity in full length", [](Bytes& p) { std::ranges::fill(p, 0); }},
        {"zero coordinates", [](Bytes& p) { std::fill(p.begin() + 1, p.end(), 0); }},
        {"one byte short", [](Bytes& p) { p.pop_back(); }},
        {"one byte long", [](Bytes& p) { p.push_back(0); }},
        {"compressed", [&](Bytes& p) { p[0] = 2, p.resize(1 + size); }},
        {"hybrid", [](Bytes& p) { p[0] = 6; }},
        {"y changed", [](Bytes& p) { p.back() ^= 1; }},
        {"x changed", [](Bytes& p) { p[1] ^= 1; }},
        {"x beyond the field", [&](Bytes& p) { std::fill_n(p.begin() + 1, size, 0xff); }},
        {"y beyond the field", [&](Bytes& p) { std::fill_n(p.rbegin(), size, 0xff); }},
    };
    for (const auto& [name, change] : rows) {
        Bytes point(key.publicPoint().begin(), key.publicPoint().end());
        change(point);
        SecureBuffer secret;
        EXPECT_FALSE(curve_.isPoint(point)) << name;
        EXPECT_FALSE(key.derive(secret, point)) << name;
        EXPECT_FALSE(ecdsaVerify(GetParam().id, point, small(1), kAnySignature)) << name;
    }
}

TEST_P(EcdhTest, randomIsDrawnAgainUntilInRange) {
    int draws = 0;
    EcdhKey key(GetParam().id);
    // Beyond the order, then the order, then zero, then one.
    EXPECT_TRUE(key.generate([&](std::span<uint8_t> out) {
        const Bytes draw[] = {Bytes(out.size(), 0xff), belowOrder(0), Bytes(out.size()), small(1)};
        std::ranges::copy(draw[draws++], out.begin());
        return true;
    }));
    EXPECT_EQ(4, draws);
    const Bytes base = multiple(small(1));
    EXPECT_EQ(hexLower(base), hexLower(key.publicPoint()));

    EcdhKey none(GetParam().id);
    SecureBuffer secret;
    EXPECT_FALSE(none.generate(failing));
    EXPECT_FALSE(none.generate(repeating({0})));
    EXPECT_FALSE(none.derive(secret, base));
}

const std::vector<Json>& exchanges() {
    static const Json data = Json::load(testDataPath("crypto/dhe.json")).value();
    return data["exchanges"].items();
}

TEST(Dhe, vectors) {
    ASSERT_FALSE(exchanges().empty());
    for (const Json& e : exchanges()) {
        const Vector v{e, e, e};
        SCOPED_TRACE(v["name"].text());
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
    }
}

TEST(Dhe, checksTheServersNumbers) {
    using Check = Dhe::Check;
    const Vector v{exchanges().front(), exchanges().front(), exchanges().front()};
    const Bytes p = v.bytes("p"), g{2}, ys = v.bytes("ys"), wide(100'000, 0x01);
    const auto ending = [&](std::initializer_list<uint8_t> last) {  // p ends in ffffffff
        Bytes bytes = p;
        std::copy(last.begin(), last.end(), bytes.end() - ptrdiff_t(last.size()));
        return bytes;
    };
    Bytes small(96, 0xff), pPlus1 = ending({0, 0, 0, 0, 0, 0, 0, 0});
    small[0] = 0x7f;
    ++pPlus1[p.size() - 9];
    const struct {
        const char* what;
        Bytes p, g, ys;
        Check expected;
    } rows[] = {
        {"as it should be", p, g, ys, Check::Ok},
        {"Ys 0", p, g, {0}, Check::BadPeerKey},
        {"Ys empty", p, g, {}, Check::BadPeerKey},
        {"Ys 1", p, g, {1}, Check::BadPeerKey},
        {"Ys 2", p, g, {2}, Check::Ok},
        {"Ys p - 2", p, g, ending({0xfd}), Check::Ok},
        {"Ys p - 1", p, g, ending({0xfe}), Check::BadPeerKey},
        {"Ys p", p, g, p, Check::BadPeerKey},
        {"Ys p + 1", p, g, pPlus1, Check::BadPeerKey},
        {"Ys far too long", p, g, wide, Check::BadPeerKey},
        {"g 0", p, {0}, ys, Check::BadGroup},
        {"g 1", p, {1}, ys, Check::BadGroup},
        {"g p - 1", p, ending({0xfe}), ys, Check::BadGroup},
        {"g p", p, p, ys, Check::BadGroup},
        {"g far too long", p, wide, ys, Check::BadGroup},
        {"p even", ending({0xfe}), g, ys, Check::BadGroup},
        {"p 767 bits", small, g, ys, Check::GroupTooSmall},
        {"p empty", {}, g, ys, Check::GroupTooSmall},
        {"p 8193 bits", Bytes(1025, 0x01), g, ys, Check::GroupTooLarge},
        {"p far too long", wide, g, ys, Check::GroupTooLarge},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.expected, Dhe().setServerParams(row.p, row.g, row.ys)) << row.what;
    }
}

// Nothing without a key, and no secret of one: modulo 2^768 - 1, no prime, 2^384 has order two.
TEST(Dhe, givesNoWorthlessSecret) {
    Bytes p(96, 0xff), ys(96);
    ys[47] = 1;
    Dhe dhe;
    SecureBuffer secret;
    ASSERT_EQ(Dhe::Check::Ok, dhe.setServerParams(p, Bytes{2}, ys));
    EXPECT_EQ(768u, dhe.bits());
    EXPECT_FALSE(dhe.generate(failing));
    EXPECT_FALSE(dhe.derive(secret) || dhe.deriveStripped(secret));
    ASSERT_TRUE(dhe.generate(repeating({0x42})));
    EXPECT_FALSE(dhe.derive(secret) || dhe.deriveStripped(secret));
}

TEST(Dhe, noSecretStaysOnTheStack) {
    if (!test::kStackIsSeen) GTEST_SKIP() << "the stack is laid out otherwise";
    const Vector v{exchanges().front(), exchanges().front(), exchanges().front()};
    Dhe dhe;
    ASSERT_EQ(Dhe::Check::Ok, dhe.setServerParams(v.bytes("p"), v.bytes("g"), v.bytes("ys")));
    Bytes key(32);
    SecureBuffer secret;
    const RandomSource random = [&key](std::span<uint8_t> out) {
        std::ranges::copy(key, out.begin());
        return true;
    };
    const size_t left =
        test::stackResidue([&](size_t i) { std::ranges::fill(key, uint8_t(77 + i)); },
                           [&] { EXPECT_TRUE(dhe.generate(random) && dhe.derive(secret)); });
    EXPECT_EQ(left, 0u);
}

}  // namespace
}  // namespace tv::crypto
