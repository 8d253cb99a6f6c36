// ECDH and ECDSA on every curve.
#include <gtest/gtest.h>

#include <algorithm>

#include "base/Hex.h"
#include "base/crypto/Ecdh.h"
#include "base/crypto/Ecdsa.h"
#include "base/crypto/Hash.h"
#include "tests/fixtures/HexBytes.h"
#include "tests/fixtures/Wycheproof.h"
#include "tests/unit/base/crypto/Peer.h"
#include "tests/unit/base/crypto/RandomForTests.h"

namespace tv::crypto {
namespace {

using test::bytesOfHex;
using test::hexOf;
using test::Json;

struct CurveCase {
    const char* name;
    EcCurveId id;
    HashId hash;
    const char* peerName;
};

const CurveCase kCurves[] = {
    {"secp256r1", EcCurveId::kSecp256r1, HashId::kSha256, "P-256"},
    {"secp384r1", EcCurveId::kSecp384r1, HashId::kSha384, "P-384"},
    {"secp521r1", EcCurveId::kSecp521r1, HashId::kSha512, "P-521"},
    {"brainpoolP256r1", EcCurveId::kBrainpoolP256r1, HashId::kSha256, "brainpoolP256r1"},
    {"brainpoolP384r1", EcCurveId::kBrainpoolP384r1, HashId::kSha384, "brainpoolP384r1"},
    {"brainpoolP512r1", EcCurveId::kBrainpoolP512r1, HashId::kSha512, "brainpoolP512r1"},
};

const CurveCase& curveNamed(const std::string& name) {
    return *std::ranges::find_if(kCurves, [&](const CurveCase& c) { return name == c.name; });
}

// The private key of a vector as fieldBytes() bytes: files leave zeros out or put one more.
std::vector<uint8_t> scalarOf(const EcCurve& curve, std::vector<uint8_t> bytes) {
    while (!bytes.empty() && bytes.front() == 0) {
        bytes.erase(bytes.begin());
    }
    bytes.insert(bytes.begin(), curve.fieldBytes() - bytes.size(), 0);
    return bytes;
}

class EcCurveTest : public testing::TestWithParam<CurveCase> {
protected:
    const EcCurve& curve_ = ecCurve(GetParam().id);
};
INSTANTIATE_TEST_SUITE_P(Curves, EcCurveTest, testing::ValuesIn(kCurves),
                         [](const auto& c) { return std::string(c.param.name); });

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
    EXPECT_TRUE(ab.equals(ba.bytes()));
}

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
        EXPECT_FALSE(ecdsaVerify(GetParam().id, point, bytesOfHex("00"),
                                 bytesOfHex("3006020101020101")))
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

struct EcdhVector {
    const char *curve, *secret, *peer, *shared;
};

TEST(EcdhTest, PublishedExamples) {
    const EcdhVector vectors[] = {
        // NIST CAVS 14.1, ECC CDH primitive, the first of each curve
        {"secp256r1", "7d7dc5f71eb29ddaf80d6214632eeae03d9058af1fb6d22ed80badb62bc1a534",
         "04700c48f77f56584c5cc632ca65640db91b6bacce3a4df6b42ce7cc838833d287"
         "db71e509e3fd9b060ddb20ba5c51dcc5948d46fbf640dfe0441782cab85fa4ac",
         "46fc62106420ff012e54a434fbdd2d25ccc5852060561e68040dd7778997bd7b"},
        // RFC 5903 8.2: g^ir of the 384-bit group
        {"secp384r1",
         "099f3c7034d4a2c699884d73a375a67f7624ef7c6b3c0f160647b67414dce655"
         "e35b538041e649ee3faef896783ab194",
         "04e558dbef53eecde3d3fccfc1aea08a89a987475d12fd950d83cfa41732bc509d"
         "0d1ac43a0336def96fda41d0774a3571dcfbec7aacf3196472169e838430367f66"
         "eebe3c6e70c416dd5f0c68759dd1fff83fa40142209dff5eaad96db9e6386c",
         "11187331c279962d93d604243fd592cb9d0a926f422e47187521287e7156c5c4"
         "d603135569b9e9d09cf5d4a270f59746"},
        // RFC 5903 8.1: g^ir of the 256-bit group
        {"secp256r1", "c88f01f510d9ac3f70a292daa2316de544e9aab8afe84049c62a9c57862d1433",
         "04d12dfb5289c8d4f81208b70270398c342296970a0bccb74c736fc7554494bf63"
         "56fbf3ca366cc23e8157854c13c58d6aac23f046ada30f8353e74f33039872ab",
         "d6840f6b42f6edafd13116e0e12565202fef8e9ece7dce03812464d04b9442de"},
        // RFC 7027 A.1 to A.3
        {"brainpoolP256r1", "81db1ee100150ff2ea338d708271be38300cb54241d79950f77b063039804f1d",
         "048d2d688c6cf93e1160ad04cc4429117dc2c41825e1e9fca0addd34e6f1b39f7b"
         "990c57520812be512641e47034832106bc7d3e8dd0e4c7f1136d7006547cec6a",
         "89afc39d41d3b327814b80940b042590f96556ec91e6ae7939bce31f3a18bf2b"},
        {"brainpoolP384r1",
         "1e20f5e048a5886f1f157c74e91bde2b98c8b52d58e5003d57053fc4b0bd65d6"
         "f15eb5d1ee1610df870795143627d042",
         "044d44326f269a597a5b58bba565da5556ed7fd9a8a9eb76c25f46db69d19dc8ce"
         "6ad18e404b15738b2086df37e71d1eb462d692136de56cbe93bf5fa3188ef58bc8"
         "a3a0ec6c1e151a21038a42e9185329b5b275903d192f8d4e1f32fe9cc78c48",
         "0bd9d3a7ea0b3d519d09d8e48d0785fb744a6b355e6304bc51c229fbbce239bb"
         "adf6403715c35d4fb2a5444f575d4f42"},
        {"brainpoolP512r1",
         "16302ff0dbbb5a8d733dab7141c1b45acbc8715939677f6a56850a38bd87bd59"
         "b09e80279609ff333eb9d4c061231fb26f92eeb04982a5f1d1764cad57665422",
         "049d45f66de5d67e2e6db6e93a59ce0bb48106097ff78a081de781cdb31fce8ccb"
         "aaea8dd4320c4119f1e9cd437a2eab3731fa9668ab268d871deda55a5473199f2f"
         "dc313095bcdd5fb3a91636f07a959c8e86b5636a1e930e8396049cb481961d365c"
         "c11453a06c719835475b12cb52fc3c383bce35e27ef194512b71876285fa",
         "a7927098655f1f9976fa50a9d566865dc530331846381c87256baf3226244b76"
         "d36403c024d7bbf0aa0803eaff405d3d24f11a9b5c0bef679fe1454b21c4cd1f"},
    };
    for (const EcdhVector& v : vectors) {
        EcdhKey key(curveNamed(v.curve).id);
        SecureBuffer secret;
        ASSERT_TRUE(key.setPrivate(bytesOfHex(v.secret))) << v.curve;
        EXPECT_TRUE(key.derive(secret, bytesOfHex(v.peer))) << v.curve;
        EXPECT_EQ(v.shared, hexLower(secret.bytes())) << v.curve;
    }
}

TEST(EcdhTest, Wycheproof) {
    for (const char* name : {"secp256r1", "secp384r1", "secp521r1"}) {
        const std::string file = std::string("ecdh_") + name + "_ecpoint_test.json";
        const CurveCase& c = curveNamed(name);
        const EcCurve& curve = ecCurve(c.id);
        const auto count = test::forEachWycheproof(file, [&](const Json& /*group*/, const Json& t) {
            std::vector<uint8_t> shared(curve.fieldBytes());
            const bool ok = curve.multiply(shared, scalarOf(curve, hexOf(t, "private")),
                                           hexOf(t, "public"));
            // Compressed points count as acceptable there; TLS has none (RFC 8422 5.1.2).
            EXPECT_EQ(t["result"].text() == "valid", ok) << t["comment"].text();
            if (ok) {
                EXPECT_EQ(t["shared"].text(), hexLower(shared));
            }
            return true;
        });
        if (!count) GTEST_SKIP() << "no vectors beside the repository";
        test::printCount(file, *count);
    }
}

TEST(EcdsaTest, Wycheproof) {
    const struct {
        const char *file, *curve;
    } cases[] = {
        {"ecdsa_secp256r1_sha256_test.json", "secp256r1"},
        {"ecdsa_secp384r1_sha384_test.json", "secp384r1"},
        {"ecdsa_secp521r1_sha512_test.json", "secp521r1"},
    };
    for (const auto& c : cases) {
        const CurveCase& curve = curveNamed(c.curve);
        const auto count = test::forEachWycheproof(c.file, [&](const Json& group, const Json& t) {
            const DigestBytes digest = Hash::of(curve.hash, hexOf(t, "msg"));
            EXPECT_EQ(t["result"].text() == "valid",
                      ecdsaVerify(curve.id, hexOf(group["publicKey"], "uncompressed"), digest,
                                  hexOf(t, "sig")))
                << t["comment"].text();
            return true;
        });
        if (!count) GTEST_SKIP() << "no vectors beside the repository";
        test::printCount(c.file, *count);
    }
}

}  // namespace
}  // namespace tv::crypto
