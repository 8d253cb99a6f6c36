// ECDH and ECDSA on every curve.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "base/ConstTime.h"
#include "base/Hex.h"
#include "base/crypto/Ecdh.h"
#include "base/crypto/Ecdsa.h"
#include "base/crypto/Hash.h"
#include "tests/fixtures/StackResidue.h"
#include "tests/unit/base/crypto/EcCases.h"
#include "tests/unit/base/crypto/RandomForTests.h"
#include "tests/unit/base/crypto/Vectors.h"

namespace tv::crypto {
namespace {

using test::bytesOf;
using test::bytesOfHex;
using test::hexOf;
using test::Json;

// The private key of a vector as fieldBytes() bytes: files leave zeros out or put one more.
std::vector<uint8_t> scalarOf(const EcCurve& curve, std::vector<uint8_t> bytes) {
    while (!bytes.empty() && bytes.front() == 0) {
        bytes.erase(bytes.begin());
    }
    bytes.insert(bytes.begin(), curve.fieldBytes() - bytes.size(), 0);
    return bytes;
}

class EcCurveTest : public test::EcFormTest {};
INSTANTIATE_TEST_SUITE_P(Curves, EcCurveTest, testing::ValuesIn(test::ecCases()), test::ecCaseName);

TEST_P(EcCurveTest, TwoKeysAgree) {
    EcdhKey a(GetParam().id), b(GetParam().id);
    ASSERT_TRUE(a.generate(test::SeededRandom(1)));
    ASSERT_TRUE(b.generate(test::SeededRandom(2)));
    EXPECT_TRUE(curve_.isPoint(a.publicPoint()));
    EXPECT_FALSE(std::ranges::equal(a.publicPoint(), b.publicPoint()));
    SecureBuffer ab, ba;
    ASSERT_TRUE(a.derive(ab, b.publicPoint()));
    ASSERT_TRUE(b.derive(ba, a.publicPoint()));
    EXPECT_EQ(curve_.fieldBytes(), ab.size());
    EXPECT_TRUE(ctEqual(ab.bytes(), ba.bytes()));
}

#ifndef __SANITIZE_ADDRESS__  // under it the stack is larger and laid out otherwise
TEST_P(EcCurveTest, NoSecretStaysOnTheStack) {
    const size_t size = curve_.fieldBytes();
    EcdhKey peer(GetParam().id);
    ASSERT_TRUE(peer.generate(test::SeededRandom(1)));
    std::vector<uint8_t> scalar(size), out(curve_.pointBytes());
    const auto choose = [&](size_t i) {
        test::SeededRandom(static_cast<uint32_t>(2 + i))(scalar);
        scalar[0] &= 1;  // below every order
    };
    const auto multiply = [&] {
        EXPECT_TRUE(curve_.multiply(std::span(out).first(size), scalar, peer.publicPoint()));
    };
    const auto multiplyBase = [&] { EXPECT_TRUE(curve_.multiplyBase(out, scalar)); };
    EXPECT_EQ(test::stackResidue(choose, multiply), 0u);
    EXPECT_EQ(test::stackResidue(choose, multiplyBase), 0u);
}
#endif

// Small scalars and those next to the order reach the ends of the ladder.
TEST_P(EcCurveTest, SmallMultiplesAddUp) {
    const size_t size = curve_.fieldBytes();
    const auto multiple = [&](uint8_t k) {
        std::vector<uint8_t> scalar(size), point(curve_.pointBytes());
        scalar.back() = k;
        EXPECT_TRUE(curve_.multiplyBase(point, scalar));
        return point;
    };
    for (uint8_t a = 1; a < 40; ++a) {
        std::vector<uint8_t> scalar(size), x(size);
        scalar.back() = a;
        // a * (3 base) and 3 a * base
        EXPECT_TRUE(curve_.multiply(x, scalar, multiple(3)));
        const std::vector<uint8_t> expected = multiple(static_cast<uint8_t>(3 * a));
        EXPECT_TRUE(std::equal(x.begin(), x.end(), expected.begin() + 1)) << int{a};
    }
}

TEST_P(EcCurveTest, RefusesWhatIsNoPoint) {
    EcdhKey key(GetParam().id);
    ASSERT_TRUE(key.generate(test::SeededRandom(1)));
    const size_t size = curve_.fieldBytes();
    const std::vector<uint8_t> good(key.publicPoint().begin(), key.publicPoint().end());
    const std::vector<uint8_t> ones(size, 0xff);
    struct {
        const char* what;
        std::function<void(std::vector<uint8_t>&)> change;
    } const cases[] = {
        {"empty", [](auto& p) { p.clear(); }},
        {"infinity", [](auto& p) { p.assign(1, 0); }},
        {"infinity in full length", [](auto& p) { std::fill(p.begin(), p.end(), 0); }},
        {"zero coordinates", [](auto& p) { std::fill(p.begin() + 1, p.end(), 0); }},
        {"one byte short", [](auto& p) { p.pop_back(); }},
        {"one byte long", [](auto& p) { p.push_back(0); }},
        {"compressed",
         [size](auto& p) {
             p[0] = 2;
             p.resize(1 + size);
         }},
        {"hybrid", [](auto& p) { p[0] = 6; }},
        {"y changed", [](auto& p) { p.back() ^= 1; }},
        {"x changed", [](auto& p) { p[1] ^= 1; }},
        {"x beyond the field", [&](auto& p) { std::ranges::copy(ones, p.begin() + 1); }},
        {"y beyond the field",
         [&](auto& p) { std::copy(ones.begin(), ones.end(), p.end() - ptrdiff_t(size)); }},
    };
    for (const auto& c : cases) {
        std::vector<uint8_t> point = good;
        c.change(point);
        SecureBuffer secret;
        EXPECT_FALSE(curve_.isPoint(point)) << c.what;
        EXPECT_FALSE(key.derive(secret, point)) << c.what;
        EXPECT_FALSE(
            ecdsaVerify(GetParam().id, point, bytesOfHex("00"), bytesOfHex("3006020101020101")))
            << c.what;
    }
}

TEST_P(EcCurveTest, RandomIsDrawnAgainUntilInRange) {
    const size_t size = curve_.fieldBytes();
    int draws = 0;
    EcdhKey key(GetParam().id);
    // Beyond the order, then zero, then one.
    EXPECT_TRUE(key.generate([&](std::span<uint8_t> out) {
        std::ranges::fill(out, draws == 0 ? 0xff : 0x00);
        if (++draws == 3) out.back() = 1;
        return true;
    }));
    EXPECT_EQ(3, draws);
    std::vector<uint8_t> one(size), base(curve_.pointBytes());
    one.back() = 1;
    ASSERT_TRUE(curve_.multiplyBase(base, one));
    EXPECT_TRUE(std::ranges::equal(base, key.publicPoint()));

    EcdhKey none(GetParam().id);
    SecureBuffer secret;
    EXPECT_FALSE(none.generate([](std::span<uint8_t>) { return false; }));
    EXPECT_FALSE(none.generate([](std::span<uint8_t> out) {
        std::ranges::fill(out, 0);
        return true;
    }));
    EXPECT_FALSE(none.derive(secret, base));
}

TEST_P(EcCurveTest, PublishedKeyAgreements) {
    int run = 0;
    test::forEachVector("ecdh", [&](const Json& v) {
        if (v["curve"].text() != GetParam().name) return;
        EcdhKey key(GetParam().id);
        SecureBuffer secret;
        ASSERT_TRUE(key.setPrivate(hexOf(v, "private")));
        EXPECT_TRUE(key.derive(secret, hexOf(v, "public")));
        EXPECT_EQ(v["shared"].text(), hexLower(secret.bytes()));
        ++run;
    });
    EXPECT_GT(run, 0);
}

class EcdsaTest : public test::EcFormTest {
protected:
    EcdsaTest() {
        test::forEachVector("ecdsa", [&](const Json& v) {
            if (v["curve"].text() != GetParam().name) return;
            point_ = hexOf(v, "point");
            signature_ = hexOf(v, "signature");
            digest_ = Hash::of(GetParam().hash, bytesOf(v["message"].text()));
        });
    }

    std::vector<uint8_t> point_, signature_;
    DigestBytes digest_;

    bool verify(std::span<const uint8_t> signature) const {
        return ecdsaVerify(GetParam().id, point_, digest_, signature);
    }
};
INSTANTIATE_TEST_SUITE_P(Curves, EcdsaTest, testing::ValuesIn(test::ecCases()), test::ecCaseName);

TEST_P(EcdsaTest, KnownSignature) {
    EXPECT_TRUE(verify(signature_));
    std::vector<uint8_t> digest(digest_.data(), digest_.data() + digest_.size());
    digest.back() ^= 1;
    EXPECT_FALSE(ecdsaVerify(GetParam().id, point_, digest, signature_));
}

TEST_P(EcdsaTest, OneEncodingOnly) {
    EXPECT_TRUE(verify(signature_));
    const bool longLength = signature_[1] == 0x81;
    const size_t r = longLength ? 3 : 2;  // where the first INTEGER begins
    const size_t s = r + 2 + signature_[r + 1];
    const struct {
        const char* what;
        std::function<void(std::vector<uint8_t>&)> change;
        int grow;  // what the outer length must follow
    } cases[] = {
        {"empty", [](auto& b) { b.clear(); }, 0},
        {"cut", [](auto& b) { b.pop_back(); }, 0},
        {"cut, length adjusted", [](auto& b) { b.pop_back(); }, -1},
        {"a byte behind", [](auto& b) { b.push_back(0); }, 0},
        {"a byte behind s", [](auto& b) { b.push_back(0); }, 1},
        {"NULL behind s",
         [](auto& b) {
             b.insert(b.end(), {5, 0});
         },
         2},
        {"SET", [](auto& b) { b[0] = 0x31; }, 0},
        {"r no INTEGER", [=](auto& b) { b[r] = 0x03; }, 0},
        {"s no INTEGER", [=](auto& b) { b[s] = 0x04; }, 0},
        {"indefinite length", [](auto& b) { b[1] = 0x80; }, 0},
        {"length too long by one", [=](auto& b) { ++b[r + 1]; }, 0},
        {"s too long by one", [=](auto& b) { ++b[s + 1]; }, 0},
        {"a zero before r", [=](auto& b) { ++b[r + 1], b.insert(b.begin() + ptrdiff_t(r) + 2, 0); },
         1},
        {"a zero before s", [=](auto& b) { ++b[s + 1], b.insert(b.begin() + ptrdiff_t(s) + 2, 0); },
         1},
        {"length of r in long form", [=](auto& b) { b.insert(b.begin() + ptrdiff_t(r) + 1, 0x81); },
         1},
        {"r of no bytes",
         [=](auto& b) {
             b.erase(b.begin() + ptrdiff_t(r) + 2, b.begin() + ptrdiff_t(s));
             b[r + 1] = 0;
         },
         -int(s - r - 2)},
        {"r zero",
         [=](auto& b) {
             b.erase(b.begin() + ptrdiff_t(r) + 3, b.begin() + ptrdiff_t(s));
             b[r + 1] = 1;
             b[r + 2] = 0;
         },
         -int(s - r - 3)},
        {"negative r", [=](auto& b) { b[r + 2] |= 0x80; }, 0},
        {"negative s", [=](auto& b) { b[s + 2] |= 0x80; }, 0},
    };
    for (const auto& c : cases) {
        std::vector<uint8_t> changed = signature_;
        c.change(changed);
        if (c.grow != 0) {
            uint8_t& length = changed[longLength ? 2 : 1];
            length = static_cast<uint8_t>(length + c.grow);
        }
        EXPECT_FALSE(verify(changed)) << c.what;
    }
    // The outer length in the other form than the shortest.
    std::vector<uint8_t> other = signature_;
    if (longLength) {
        other.insert(other.begin() + 2, 0);
        other[1] = 0x82;
    } else {
        other.insert(other.begin() + 1, 0x81);
    }
    EXPECT_FALSE(verify(other));
}

// The files there are for the curves that TLS uses most.
class EcVectorTest : public test::EcFormTest {
protected:
    void SetUp() override {
        EcFormTest::SetUp();
        if (IsSkipped()) return;
        std::vector<uint8_t> point(curve_.pointBytes()), one(curve_.fieldBytes());
        one.back() = 1;
        EXPECT_TRUE(curve_.multiplyBase(point, one));
    }
};

std::vector<test::EcCase> casesWithFiles() {
    std::vector<test::EcCase> cases = test::ecCases();
    std::erase_if(cases, [](const test::EcCase& c) {
        return std::string_view(c.name).starts_with("brainpool");
    });
    return cases;
}
INSTANTIATE_TEST_SUITE_P(Curves, EcVectorTest, testing::ValuesIn(casesWithFiles()),
                         test::ecCaseName);

TEST_P(EcVectorTest, WycheproofEcdh) {
    const std::string file = std::string("ecdh_") + GetParam().name + "_ecpoint_test.json";
    test::runWycheproof(file, GetParam().form->name, [&](const Json&, const Json& t) {
        std::vector<uint8_t> shared(curve_.fieldBytes());
        const bool ok =
            curve_.multiply(shared, scalarOf(curve_, hexOf(t, "private")), hexOf(t, "public"));
        // Compressed points count as acceptable there; TLS has none (RFC 8422 5.1.2).
        EXPECT_EQ(test::isValid(t), ok) << t["comment"].text();
        if (ok) {
            EXPECT_EQ(t["shared"].text(), hexLower(shared));
        }
    });
}

TEST_P(EcVectorTest, WycheproofEcdsa) {
    const std::string file = std::string("ecdsa_") + GetParam().name + "_sha" +
                             std::to_string(8 * digestSize(GetParam().hash)) + "_test.json";
    test::runWycheproof(file, GetParam().form->name, [&](const Json& group, const Json& t) {
        const DigestBytes digest = Hash::of(GetParam().hash, hexOf(t, "msg"));
        EXPECT_EQ(test::isValid(t),
                  ecdsaVerify(GetParam().id, hexOf(group["publicKey"], "uncompressed"), digest,
                              hexOf(t, "sig")))
            << t["comment"].text();
    });
}

}  // namespace
}  // namespace tv::crypto
