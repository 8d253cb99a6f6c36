// ECDH and ECDSA on every curve.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "base/Hex.h"
#include "base/crypto/Ecdh.h"
#include "base/crypto/Ecdsa.h"
#include "base/crypto/Hash.h"
#include "tests/fixtures/HexBytes.h"
#include "tests/fixtures/Wycheproof.h"
#include "tests/unit/base/crypto/EcCases.h"
#include "tests/unit/base/crypto/RandomForTests.h"

namespace tv::crypto {
namespace {

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

struct EcdhVector {
    const char *curve, *secret, *peer, *shared;
};

TEST_P(EcCurveTest, PublishedKeyAgreements) {
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
        {"secp521r1",
         "017eecc07ab4b329068fba65e56a1f8890aa935e57134ae0ffcce802735151f4ea"
         "c6564f6ee9974c5e6887a1fefee5743ae2241bfeb95d5ce31ddcb6f9edb4d6fc47",
         "0400685a48e86c79f0f0875f7bc18d25eb5fc8c0b07e5da4f4370f3a9490340854"
         "334b1e1b87fa395464c60626124a4e70d0f785601d37c09870ebf176666877a204"
         "6d01ba52c56fc8776d9e8f5db4f0cc27636d0b741bbe05400697942e80b739884a"
         "83bde99e0f6716939e632bc8986fa18dccd443a348b6c3e522497955a4f3c302f6"
         "76",
         "005fc70477c3e63bc3954bd0df3ea0d1f41ee21746ed95fc5e1fdf90930d5e1366"
         "72d72cc770742d1711c3c3a4c334a0ad9759436a4d3c5bf6e74b9578fac148c831"},
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
    int run = 0;
    for (const EcdhVector& v : vectors) {
        if (std::string_view(v.curve) != GetParam().name) continue;
        EcdhKey key(GetParam().id);
        SecureBuffer secret;
        ASSERT_TRUE(key.setPrivate(bytesOfHex(v.secret)));
        EXPECT_TRUE(key.derive(secret, bytesOfHex(v.peer)));
        EXPECT_EQ(v.shared, hexLower(secret.bytes()));
        ++run;
    }
    EXPECT_GT(run, 0);
}

// Signatures of the message "sample" with each curve's usual hash: the first one of RFC 6979 A.2.5,
// the others made with libcrypto.
struct EcdsaVector {
    const char *curve, *point, *signature;
};

const EcdsaVector kSignatures[] = {
    {"secp256r1",
     "0460fed4ba255a9d31c961eb74c6356d68c049b8923b61fa6ce669622e60f29fb6"
     "7903fe1008b8bc99a41ae9e95628bc64f2f1b20c2d7e9f5177a3c294d4462299",
     "3046022100efd48b2aacb6a8fd1140dd9cd45e81d69d2c877b56aaf991c34d0ea84eaf3716"
     "022100f7cb1c942d657c41d436c7a1b6e29f65f3e900dbb9aff4064dc4ab2f843acda8"},
    {"secp384r1",
     "042f1298a8a1b13ab515c88adec17ad3193270dfecfc57a3f21bff6f7bde0795ab"
     "5ff023ac90f58eb2cf441b4b8f74facdaf45700c79a4ea9571147d38c58db19723"
     "2162e9bb92f3b8e50f4a826a9278880cc41f433c81f7db2fb3c0bcd061853d",
     "30660231009d1ba89f808128cec42bb5dbab2bff87a8bb801a3ab12921157412e8"
     "47705e65880978bbc746a8402bb55d1ab3e7bd95023100c83d18ab838cbcfba54c"
     "553598931b02d8c9b07aacbf032eb89bbf096d5680cf73bc4d56a6ea5f6cc54823"
     "d97d636399"},
    {"secp521r1",
     "04009d6458791beeb34d2f0fe56a31ff675df2d590ec29e770d981aea20aa24b88"
     "97c42c9383488bb790990d3235bb04d2a24f009efd76a9fdaa2574c8bf46f8fa61"
     "1d011e78bc63e03c08f6303064a20a0cc08030f9b1908fba0182f61b533526d9f4"
     "02b8ee1bc2f83784333f9b7585ab569a65f168a3459e6b928f160c3332b0fe6106"
     "b1",
     "30818702420122d362e2654ff9b97389e8f41ed6c0588d01e588df96fa17fa744a"
     "afadfb34ad0047d6ea945528a371df2ff301e50d1b32f4cbf385d64851bf749d03"
     "f7c9594e300241359eee032ee6d778fa205f678e3e92fb8725f1a4dd1a9b9104e0"
     "fd06672bac1e3806138c05781a05477601f98d4ab7dbfc59bd553bff5fb3763a6e"
     "535ce28911a5"},
    {"brainpoolP256r1",
     "0479e1e49042a3035961cd002ea44c1c99ce3445212b73bf36c9df7eba98a1e9e3"
     "4f54442eafaf884344663b5c89e8ee1498812aaefee0aa4d24c283c85cd0bc3a",
     "304402206d79956bd75cd5b12112d6f35bd7fd20000b2129547af4244ccb725ca5"
     "da98b70220351262eb20fdbea3cd445a0bdc155607429661324d9c3c1f1f965656"
     "b8c08284"},
    {"brainpoolP384r1",
     "0451262005d5d6bf7717cc72e74e7256333bffce33584696faa489cbc003cc7473"
     "27aa8c38f77cbe43b4540375205802f137f455591e50720ed0f0f720ad55f1428e"
     "f27954a02007e7356e7a9430681373b9e67e4a026cae8b1c6f199e2c20b6f9",
     "3064023063eec8f271843c4096b8dec553cf6d79c875031e5deb9ce6f7f57bfe60"
     "ea1541281acf1943af03cac460a46d24a759d502307f61115b52fee66e7fc0821a"
     "9b83e9c2eaf2c535a38d0cb11c5aa3d0fcd92c40a8076887b68458aba4718302c0"
     "19ddab"},
    {"brainpoolP512r1",
     "042cee3744b5587fb4402be43bef45104af743a4ca86e9b37e1d973aaef277b700"
     "7e9a001729b736610a75a487da5d408efb3496ce7a87fbcb035a921a42b72fd312"
     "798c4c832222a325ef55bbd9e5e144383ff755555123e72564c661f69936587f37"
     "9c3ee943aeabdd31964a64732c45ec25ee10409510c612dc419ba29f6a17",
     "30818402403130ded71aa2b706afa568aec5c505a2b78a602d1033c45ff38ccbb2"
     "7d3045baa1e42f528b0d25ae0c39a6724df0678a596208592427a6c5b22536f14e"
     "a0c1a302407d444a6c07b8f3b4d579c262289f01d6b9c6a54d31c6cbd21361b9bb"
     "b270c4708599fc4c457e4568aa93b859782c6d03a59486fb51271b18d033526a37"
     "efe2c1"},
};

class EcdsaTest : public test::EcFormTest {
protected:
    const EcdsaVector& vector_ = *std::ranges::find_if(kSignatures, [](const EcdsaVector& v) {
        return std::string_view(v.curve) == GetParam().name;
    });
    const std::vector<uint8_t> point_ = bytesOfHex(vector_.point);
    const std::vector<uint8_t> signature_ = bytesOfHex(vector_.signature);
    const DigestBytes digest_ = Hash::of(GetParam().hash, test::bytesOf("sample"));

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

    void report(const std::string& file, const std::optional<test::WycheproofCount>& count) {
        if (!count) GTEST_SKIP() << "no vectors beside the repository";
        test::printCount(file + ", form " + GetParam().form->name, *count);
    }
};

std::vector<test::EcCase> casesWithFiles() {
    std::vector<test::EcCase> cases = test::ecCases();
    std::erase_if(cases, [](const test::EcCase& c) { return !c.member; });
    return cases;
}
INSTANTIATE_TEST_SUITE_P(Curves, EcVectorTest, testing::ValuesIn(casesWithFiles()),
                         test::ecCaseName);

TEST_P(EcVectorTest, WycheproofEcdh) {
    const std::string file = std::string("ecdh_") + GetParam().name + "_ecpoint_test.json";
    report(file, test::forEachWycheproof(file, [&](const Json& /*group*/, const Json& t) {
               std::vector<uint8_t> shared(curve_.fieldBytes());
               const bool ok = curve_.multiply(shared, scalarOf(curve_, hexOf(t, "private")),
                                               hexOf(t, "public"));
               // Compressed points count as acceptable there; TLS has none (RFC 8422 5.1.2).
               EXPECT_EQ(t["result"].text() == "valid", ok) << t["comment"].text();
               if (ok) {
                   EXPECT_EQ(t["shared"].text(), hexLower(shared));
               }
               return true;
           }));
}

TEST_P(EcVectorTest, WycheproofEcdsa) {
    const std::string file = std::string("ecdsa_") + GetParam().name + "_sha" +
                             std::to_string(8 * digestSize(GetParam().hash)) + "_test.json";
    report(file, test::forEachWycheproof(file, [&](const Json& group, const Json& t) {
               const DigestBytes digest = Hash::of(GetParam().hash, hexOf(t, "msg"));
               EXPECT_EQ(t["result"].text() == "valid",
                         ecdsaVerify(GetParam().id, hexOf(group["publicKey"], "uncompressed"),
                                     digest, hexOf(t, "sig")))
                   << t["comment"].text();
               return true;
           }));
}

}  // namespace
}  // namespace tv::crypto
