#include <gtest/gtest.h>

#include "base/CpuFeatures.h"
#include "base/Hex.h"
#include "base/crypto/AesCbc.h"
#include "tests/unit/base/crypto/AeadChecks.h"
#include "tests/unit/base/crypto/AesForms.h"
#include "tests/unit/base/crypto/Peer.h"

namespace tv::crypto {
namespace {

using test::Bytes;
using test::bytesOfHex;
using test::hexOf;
using test::Json;

class AesTest : public test::FormTest<AesForm> {};
TV_FOR_EACH_FORM(AesTest, AesForm);

TEST_P(AesTest, Fips197) {  // appendix C
    struct {
        const char* key;
        const char* cipher;
    } const cases[] = {
        {"000102030405060708090a0b0c0d0e0f", "69c4e0d86a7b0430d8cdb78070b4c55a"},
        {"000102030405060708090a0b0c0d0e0f1011121314151617", "dda97ca4864cdfe06eaf70a0ec0d7191"},
        {"000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f",
         "8ea2b7ca516745bfeafc49904b496089"},
    };
    const Bytes plain = bytesOfHex("00112233445566778899aabbccddeeff");
    for (const auto& c : cases) {
        const Aes aes(bytesOfHex(c.key));
        Bytes block = plain;
        aes.encryptBlocks(block.data(), block.data(), 1);
        EXPECT_EQ(c.cipher, hexLower(block));
        aes.decryptBlocks(block.data(), block.data(), 1);
        EXPECT_EQ(plain, block);
    }
}

// Each block of a batch is treated alike, wherever it stands and however many there are.
TEST_P(AesTest, BlocksAreIndependent) {
    std::mt19937 random(1);
    const Aes aes(test::randomBytesOf(random, 32));
    const Bytes plain = test::randomBytesOf(random, 16 * 23);
    for (size_t count = 0; count <= 23; ++count) {
        Bytes cipher(16 * count), one(16), back(16 * count);
        aes.encryptBlocks(plain.data(), cipher.data(), count);
        aes.decryptBlocks(cipher.data(), back.data(), count);
        EXPECT_TRUE(std::equal(back.begin(), back.end(), plain.begin())) << count;
        for (size_t i = 0; i < count; ++i) {
            aes.encryptBlocks(plain.data() + 16 * i, one.data(), 1);
            EXPECT_TRUE(std::equal(one.begin(), one.end(), cipher.data() + 16 * i)) << i;
        }
    }
}

TEST_P(AesTest, CbcSp80038a) {  // NIST SP 800-38A, F.2.1 and F.2.5
    struct {
        const char* key;
        const char* cipher;
    } const cases[] = {
        {"2b7e151628aed2a6abf7158809cf4f3c",
         "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2"
         "73bed6b8e3c1743b7116e69e222295163ff1caa1681fac09120eca307586e1a7"},
        {"603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4",
         "f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"
         "39f23369a9d9bacfa530e26304231461b2eb05e2c39be9fcda6c19078c6a9d1b"},
    };
    const Bytes iv = bytesOfHex("000102030405060708090a0b0c0d0e0f");
    const Bytes plain = bytesOfHex(
        "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
        "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710");
    for (const auto& c : cases) {
        AesCbc cbc(bytesOfHex(c.key));
        Bytes data = plain;
        cbc.setIv(std::span<const uint8_t, 16>(iv));
        cbc.encrypt(data);
        EXPECT_EQ(c.cipher, hexLower(data));
        cbc.setIv(std::span<const uint8_t, 16>(iv));
        cbc.decrypt(data);
        EXPECT_EQ(plain, data);
    }
}

// Takes the padding of PKCS #5 off, as the vectors want it; false if it is none.
bool removePadding(Bytes& data) {
    if (data.empty() || data.back() == 0 || data.back() > 16) return false;
    const size_t padding = data.back();
    for (size_t i = data.size() - padding; i < data.size(); ++i) {
        if (data[i] != padding) return false;
    }
    data.erase(data.end() - data.back(), data.end());
    return true;
}

TEST_P(AesTest, WycheproofCbc) {
    const char* const file = "aes_cbc_pkcs5_test.json";
    const auto count = test::forEachWycheproof(file, [](const Json&, const Json& test) {
        const Bytes iv = hexOf(test, "iv"), plain = hexOf(test, "msg"), cipher = hexOf(test, "ct");
        AesCbc cbc(hexOf(test, "key"));
        cbc.setIv(std::span<const uint8_t, 16>(iv));
        Bytes data = cipher;
        const bool whole = cipher.size() % 16 == 0;
        if (whole) cbc.decrypt(data);
        const bool valid = test["result"].text() == "valid";
        EXPECT_EQ(valid, whole && removePadding(data) && data == plain);
        if (valid) {
            const size_t padding = 16 - plain.size() % 16;
            data.resize(cipher.size(), static_cast<uint8_t>(padding));
            cbc.setIv(std::span<const uint8_t, 16>(iv));
            cbc.encrypt(data);
            EXPECT_EQ(cipher, data);
        }
        return true;
    });
    if (!count) GTEST_SKIP() << "no Wycheproof vectors here";
    test::printCount(std::string(file) + " " + GetParam()->name, *count);
}

TEST(AesChoice, TheFastestFormTheMachineRunsIsChosen) {
    limitCpuFeatures({});
    EXPECT_STREQ("portable", aesForms.get().name);
    unlimitCpuFeatures();
    if (detectedCpuFeatures().aesNi) {
        EXPECT_STREQ("aes-ni", aesForms.get().name);
    }
}

#ifdef TV_HAVE_LIBCRYPTO

TEST_P(AesTest, CbcLikeThePeer) {
    std::mt19937 random(2);
    const EVP_CIPHER* const ciphers[] = {EVP_aes_128_cbc(), EVP_aes_192_cbc(), EVP_aes_256_cbc()};
    for (size_t i = 0; i < 300; ++i) {
        const Bytes key = test::randomBytesOf(random, 16 + i % 3 * 8);
        const Bytes iv = test::randomBytesOf(random, 16);
        const Bytes plain = test::randomBytesOf(random, 16 * (i / 3));
        Bytes expected(plain.size() + 16), data = plain;
        int size = 0;
        EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
        EVP_EncryptInit_ex(context, ciphers[i % 3], nullptr, key.data(), iv.data());
        EVP_CIPHER_CTX_set_padding(context, 0);
        EVP_EncryptUpdate(context, expected.data(), &size, plain.data(),
                          static_cast<int>(plain.size()));
        EVP_CIPHER_CTX_free(context);
        expected.resize(static_cast<size_t>(size));
        AesCbc cbc(key);
        cbc.setIv(std::span<const uint8_t, 16>(iv));
        cbc.encrypt(data);
        ASSERT_EQ(expected, data);
        cbc.setIv(std::span<const uint8_t, 16>(iv));
        cbc.decrypt(data);
        ASSERT_EQ(plain, data);
    }
}

#endif

}  // namespace
}  // namespace tv::crypto
