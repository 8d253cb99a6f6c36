#include "base/crypto/Dhe.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "base/Hex.h"
#include "tests/fixtures/HexBytes.h"
#include "tests/fixtures/StackResidue.h"
#include "tests/fixtures/TestData.h"
#include "tests/fixtures/Wycheproof.h"

namespace tv::crypto {
namespace {

using test::hexOf;
using test::Json;

const std::vector<Json>& exchanges() {
    static const Json data = *Json::load(testDataPath("crypto/dhe.json"));
    return data["exchanges"].items();
}

auto randomOf(std::vector<uint8_t> bytes) {
    return [bytes](std::span<uint8_t> out) {
        EXPECT_EQ(bytes.size(), out.size());
        std::copy(bytes.begin(), bytes.end(), out.begin());
        return true;
    };
}

TEST(DheTest, ExchangesComputedByHand) {
    for (const Json& e : exchanges()) {
        SCOPED_TRACE(e["name"].text());
        Dhe dhe;
        ASSERT_EQ(Dhe::Check::Ok,
                  dhe.setServerParams(hexOf(e, "p"), hexOf(e, "g"), hexOf(e, "ys")));
        ASSERT_TRUE(dhe.generate(randomOf(hexOf(e, "random"))));
        EXPECT_EQ(e["public"].text(), hexLower(dhe.publicValue()));
        SecureBuffer secret, stripped;
        ASSERT_TRUE(dhe.derive(secret));
        EXPECT_EQ(e["secret"].text(), hexLower(secret.bytes()));
        ASSERT_TRUE(dhe.deriveStripped(stripped));
        std::vector<uint8_t> expected = hexOf(e, "secret");
        while (expected.front() == 0) {
            expected.erase(expected.begin());
        }
        EXPECT_EQ(hexLower(expected), hexLower(stripped.bytes()));
        EXPECT_EQ(e["name"].text().find("leading zero") != std::string::npos,
                  stripped.size() < secret.size());
    }
}

TEST(DheTest, ChecksOfTheServersNumbers) {
    using Check = Dhe::Check;
    const Json& e = exchanges().front();
    const std::vector<uint8_t> p = hexOf(e, "p"), g{2}, ys = hexOf(e, "ys");
    const auto pPlus = [&](int delta) {  // p ends in ff
        std::vector<uint8_t> bytes = p;
        if (delta > 0) {
            size_t i = bytes.size();
            while (++bytes[--i] == 0) {
            }
        } else {
            bytes.back() = static_cast<uint8_t>(bytes.back() + delta);
        }
        return bytes;
    };
    std::vector<uint8_t> small(96, 0xff), large(1025, 0x01), wide(100'000, 0x01);
    small[0] = 0x7f;
    const struct {
        const char* what;
        std::vector<uint8_t> p, g, ys;
        Check expected;
    } cases[] = {
        {"as it should be", p, g, ys, Check::Ok},
        {"Ys 0", p, g, {0}, Check::BadPeerKey},
        {"Ys empty", p, g, {}, Check::BadPeerKey},
        {"Ys 1", p, g, {1}, Check::BadPeerKey},
        {"Ys 2", p, g, {2}, Check::Ok},
        {"Ys p - 2", p, g, pPlus(-2), Check::Ok},
        {"Ys p - 1", p, g, pPlus(-1), Check::BadPeerKey},
        {"Ys p", p, g, p, Check::BadPeerKey},
        {"Ys p + 1", p, g, pPlus(1), Check::BadPeerKey},
        {"Ys far too long", p, g, wide, Check::BadPeerKey},
        {"g 0", p, {0}, ys, Check::BadGroup},
        {"g 1", p, {1}, ys, Check::BadGroup},
        {"g p - 1", p, pPlus(-1), ys, Check::BadGroup},
        {"g p", p, p, ys, Check::BadGroup},
        {"g far too long", p, wide, ys, Check::BadGroup},
        {"p even", pPlus(-1), g, ys, Check::BadGroup},
        {"p 767 bits", small, g, ys, Check::GroupTooSmall},
        {"p empty", {}, g, ys, Check::GroupTooSmall},
        {"p 8193 bits", large, g, ys, Check::GroupTooLarge},
        {"p far too long", wide, g, ys, Check::GroupTooLarge},
    };
    for (const auto& c : cases) {
        Dhe one;
        EXPECT_EQ(c.expected, one.setServerParams(c.p, c.g, c.ys)) << c.what;
    }
    Dhe dhe;
    ASSERT_EQ(Check::Ok, dhe.setServerParams(p, g, ys));
    EXPECT_EQ(768U, dhe.bits());
}

// In a group that is no prime a power may come out as 1; such a secret is refused.
TEST(DheTest, SecretOfOneIsRefused) {
    const Json& e = exchanges().front();
    // Modulo 2^768 - 1 the number 2^384 has order two.
    std::vector<uint8_t> p(96, 0xff), ys(96, 0);
    ys[47] = 1;
    Dhe dhe;
    ASSERT_EQ(Dhe::Check::Ok, dhe.setServerParams(p, hexOf(e, "g"), ys));
    std::vector<uint8_t> even(32, 0x42);
    ASSERT_TRUE(dhe.generate(randomOf(even)));
    SecureBuffer secret;
    EXPECT_FALSE(dhe.derive(secret));
    EXPECT_FALSE(dhe.deriveStripped(secret));
}

#ifndef __SANITIZE_ADDRESS__  // under it the stack is larger and laid out otherwise
TEST(DheTest, NoSecretStaysOnTheStack) {
    const Json& e = exchanges().front();
    Dhe dhe;
    ASSERT_EQ(Dhe::Check::Ok, dhe.setServerParams(hexOf(e, "p"), hexOf(e, "g"), hexOf(e, "ys")));
    std::vector<uint8_t> key(32);
    const crypto::RandomSource random = [&key](std::span<uint8_t> out) {
        std::copy(key.begin(), key.end(), out.begin());
        return true;
    };
    SecureBuffer secret;
    EXPECT_EQ(
        test::stackResidue(
            [&](size_t i) { std::fill(key.begin(), key.end(), static_cast<uint8_t>(77 + i)); },
            [&] { EXPECT_TRUE(dhe.generate(random) && dhe.derive(secret)); }),
        0u);
}
#endif

TEST(DheTest, NothingWithoutAKey) {
    const Json& e = exchanges().front();
    Dhe dhe;
    ASSERT_EQ(Dhe::Check::Ok, dhe.setServerParams(hexOf(e, "p"), hexOf(e, "g"), hexOf(e, "ys")));
    EXPECT_FALSE(dhe.generate([](std::span<uint8_t>) { return false; }));
    SecureBuffer secret;
    EXPECT_FALSE(dhe.derive(secret));
    EXPECT_FALSE(dhe.deriveStripped(secret));
}

}  // namespace
}  // namespace tv::crypto
