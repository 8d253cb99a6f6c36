// The block ciphers, CBC and RC4.
#include <gtest/gtest.h>

#include "base/Hex.h"
#include "base/crypto/AesCbc.h"
#include "base/crypto/Des.h"
#include "base/crypto/Rc4.h"
#include "tests/unit/base/crypto/AeadChecks.h"
#include "tests/unit/base/crypto/FormTest.h"
#include "tests/unit/base/crypto/Peer.h"

namespace tv::crypto {
namespace {

using test::Bytes;
using test::bytesOfHex;
using test::hexOf;
using test::Json;

class AesTest : public test::FormTest<AesForm> {};
TV_FOR_EACH_FORM(AesTest, AesForm);

template <class Cipher>
void checkBlocks(const char* primitive) {
    test::forEachVector(primitive, [](const Json& v) {
        const Cipher cipher(hexOf(v, "key"));
        Bytes data = hexOf(v, "plain");
        const size_t count = data.size() / Cipher::kBlockSize;
        cipher.encryptBlocks(data.data(), data.data(), count);
        EXPECT_EQ(v["cipher"].text(), hexLower(data));
        cipher.decryptBlocks(data.data(), data.data(), count);
        EXPECT_EQ(v["plain"].text(), hexLower(data));
    });
}

// Both directions from the same vector.
template <class Cipher>
void checkCbc(const Bytes& key, const Bytes& iv, const Bytes& plain, const Bytes& cipher) {
    const std::span<const uint8_t, Cipher::kBlockSize> start(iv);
    Cipher cbc(key);
    Bytes data = plain;
    cbc.setIv(start);
    cbc.encrypt(data);
    EXPECT_EQ(cipher, data);
    cbc.setIv(start);
    cbc.decrypt(data);
    EXPECT_EQ(plain, data);
}

TEST_P(AesTest, PublishedExamples) {
    checkBlocks<Aes>("aes");
    test::forEachVector("aes-cbc", [](const Json& v) {
        checkCbc<AesCbc>(hexOf(v, "key"), hexOf(v, "iv"), hexOf(v, "plain"), hexOf(v, "cipher"));
    });
}

TEST(DesTest, PublishedExamples) {
    checkBlocks<Des>("des");
    checkBlocks<TripleDes>("3des");
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
    test::runWycheproof(
        "aes_cbc_pkcs5_test.json", GetParam()->name, [](const Json&, const Json& t) {
            const Bytes key = hexOf(t, "key"), iv = hexOf(t, "iv"), cipher = hexOf(t, "ct");
            Bytes plain = hexOf(t, "msg");
            if (test::isValid(t)) {
                plain.resize(cipher.size(), static_cast<uint8_t>(16 - plain.size() % 16));
                checkCbc<AesCbc>(key, iv, plain, cipher);
                return;
            }
            AesCbc cbc(key);
            cbc.setIv(std::span<const uint8_t, 16>(iv));
            Bytes data = cipher;
            if (cipher.size() % 16 != 0) return;
            cbc.decrypt(data);
            EXPECT_FALSE(removePadding(data) && data == plain);
        });
}

// The chain goes on over calls, and both directions agree however the data is cut.
TEST(TripleDesTest, CbcChainsOverCalls) {
    const auto key = bytesOfHex("0123456789abcdef23456789abcdef01456789abcdef0123");
    const std::array<uint8_t, 8> iv = {1, 2, 3, 4, 5, 6, 7, 8};
    const std::vector<uint8_t> plain(8 * 100, 0x41);
    std::vector<uint8_t> whole = plain;
    TripleDesCbc once(key);
    once.setIv(iv);
    once.encrypt(whole);
    std::vector<uint8_t> pieces = plain;
    TripleDesCbc encryptor(key), decryptor(key);
    encryptor.setIv(iv);
    decryptor.setIv(iv);
    const std::span<uint8_t> data(pieces);
    encryptor.encrypt(data.first(8));
    encryptor.encrypt(data.subspan(8, 0));
    encryptor.encrypt(data.subspan(8));
    EXPECT_EQ(whole, pieces);
    decryptor.decrypt(data.first(8 * 33));
    decryptor.decrypt(data.subspan(8 * 33));
    EXPECT_EQ(plain, pieces);
}

TEST(Rc4Test, Rfc6229) {
    test::forEachVector("rc4", [](const Json& v) {
        const auto offset = static_cast<size_t>(v["offset"].number());
        Bytes data(offset + 16);
        Rc4 rc4(hexOf(v, "key"));
        const std::span<uint8_t> bytes(data);
        rc4.apply(bytes.first(offset / 3));
        rc4.apply(bytes.subspan(offset / 3));
        EXPECT_EQ(v["stream"].text(), hexLower(bytes.subspan(offset))) << offset;
    });
}

#ifdef TV_HAVE_LIBCRYPTO

template <class Cipher>
void cbcLikeThePeer(const EVP_CIPHER* peer, std::mt19937& random, size_t keySize, size_t size) {
    const Bytes key = test::randomBytesOf(random, keySize);
    const Bytes iv = test::randomBytesOf(random, Cipher::kBlockSize);
    const Bytes plain = test::randomBytesOf(random, size);
    Bytes expected(size + Cipher::kBlockSize);
    int written = 0;
    EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
    EVP_EncryptInit_ex(context, peer, nullptr, key.data(), iv.data());
    EVP_CIPHER_CTX_set_padding(context, 0);
    EVP_EncryptUpdate(context, expected.data(), &written, plain.data(), static_cast<int>(size));
    EVP_CIPHER_CTX_free(context);
    expected.resize(static_cast<size_t>(written));
    checkCbc<Cipher>(key, iv, plain, expected);
}

TEST_P(AesTest, CbcLikeThePeer) {
    std::mt19937 random(2);
    const EVP_CIPHER* const ciphers[] = {EVP_aes_128_cbc(), EVP_aes_192_cbc(), EVP_aes_256_cbc()};
    for (size_t i = 0; i < 300 && !HasFailure(); ++i) {
        cbcLikeThePeer<AesCbc>(ciphers[i % 3], random, 16 + i % 3 * 8, 16 * (i / 3));
    }
}

TEST(TripleDesTest, LikeThePeer) {
    std::mt19937 random(98);
    for (size_t i = 0; i < 200 && !HasFailure(); ++i) {
        cbcLikeThePeer<TripleDesCbc>(EVP_des_ede3_cbc(), random, 24, 8 * (random() % 80));
    }
}

TEST(DesTest, LikeThePeer) {
    std::mt19937 random(99);
    for (int i = 0; i < 2000; ++i) {
        const auto key = test::randomBytesOf(random, 8);
        auto block = test::randomBytesOf(random, 8);
        DES_key_schedule schedule;
        DES_cblock peerKey, in, expected;
        std::copy(key.begin(), key.end(), peerKey);
        std::copy(block.begin(), block.end(), in);
        DES_set_key_unchecked(&peerKey, &schedule);
        DES_ecb_encrypt(&in, &expected, &schedule, i % 2);
        const Des des(key);
        i % 2 ? des.encryptBlocks(block.data(), block.data(), 1)
              : des.decryptBlocks(block.data(), block.data(), 1);
        ASSERT_EQ(hexLower(expected), hexLower(block));
    }
}

TEST(Rc4Test, LikeThePeer) {
    std::mt19937 random(97);
    for (size_t keySize = 1; keySize <= 256; ++keySize) {
        const auto key = test::randomBytesOf(random, keySize);
        auto data = test::randomBytesOf(random, 700);
        std::vector<uint8_t> expected(data.size());
        RC4_KEY schedule;
        RC4_set_key(&schedule, static_cast<int>(key.size()), key.data());
        RC4(&schedule, data.size(), data.data(), expected.data());
        Rc4(key).apply(data);
        ASSERT_EQ(expected, data) << keySize;
    }
}

#endif

}  // namespace
}  // namespace tv::crypto
