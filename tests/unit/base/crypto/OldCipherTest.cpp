// DES, triple DES and RC4.
#include <gtest/gtest.h>

#include <random>

#include "base/Hex.h"
#include "base/crypto/Des.h"
#include "base/crypto/Rc4.h"
#include "tests/fixtures/HexBytes.h"
#include "tests/unit/base/crypto/Peer.h"

namespace tv::crypto {
namespace {

using test::bytesOf;
using test::bytesOfHex;

TEST(DesTest, PublishedExamples) {
    struct {
        const char* key;
        const char* plain;
        const char* cipher;
    } const cases[] = {
        // FIPS 81, appendix B
        {"0123456789abcdef", "4e6f772069732074", "3fa40e8a984d4815"},
        // NBS SP 500-20: variable plain text, variable key, permutation, substitution
        {"0101010101010101", "95f8a5e5dd31d900", "8000000000000000"},
        {"8001010101010101", "0000000000000000", "95a8d72813daa94d"},
        {"1046913489980131", "0000000000000000", "88d55e54f54c97b4"},
        {"7ca110454a1a6e57", "01a1d6d039776742", "690f5b0d9a26939b"},
        {"0131d9619dc1376e", "5cd54ca83def57da", "7a389d10354bd271"},
    };
    for (const auto& c : cases) {
        const Des des(bytesOfHex(c.key));
        std::vector<uint8_t> block = bytesOfHex(c.plain);
        des.encryptBlocks(block.data(), block.data(), 1);
        EXPECT_EQ(c.cipher, hexLower(block)) << c.key;
        des.decryptBlocks(block.data(), block.data(), 1);
        EXPECT_EQ(c.plain, hexLower(block)) << c.key;
    }
}

TEST(TripleDesTest, PublishedExample) {  // NIST SP 800-67, appendix B
    const TripleDes des(bytesOfHex("0123456789abcdef23456789abcdef01456789abcdef0123"));
    std::vector<uint8_t> text = bytesOf("The qufck brown fox jump");
    des.encryptBlocks(text.data(), text.data(), 3);
    EXPECT_EQ("a826fd8ce53b855fcce21c8112256fe668d5c05dd9b6b900", hexLower(text));
    des.decryptBlocks(text.data(), text.data(), 3);
    EXPECT_EQ(bytesOf("The qufck brown fox jump"), text);
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
    struct {
        const char* key;
        size_t offset;
        const char* stream;
    } const cases[] = {
        {"0102030405", 0, "b2396305f03dc027ccc3524a0a1118a8"},
        {"0102030405", 4096, "ff25b58995996707e51fbdf08b34d875"},
        {"0102030405060708090a0b0c0d0e0f10", 0, "9ac7cc9a609d1ef7b2932899cde41b97"},
        {"0102030405060708090a0b0c0d0e0f10", 1536, "ffa0b514647ec04f6306b892ae661181"},
    };
    for (const auto& c : cases) {
        std::vector<uint8_t> data(c.offset + 16);
        Rc4 rc4(bytesOfHex(c.key));
        const std::span<uint8_t> bytes(data);
        rc4.apply(bytes.first(c.offset / 3));
        rc4.apply(bytes.subspan(c.offset / 3));
        EXPECT_EQ(c.stream, hexLower(bytes.subspan(c.offset))) << c.key << " at " << c.offset;
    }
}

#ifdef TV_HAVE_LIBCRYPTO

std::vector<uint8_t> randomBytesOf(std::mt19937& random, size_t size) {
    std::vector<uint8_t> out(size);
    for (uint8_t& byte : out) {
        byte = static_cast<uint8_t>(random());
    }
    return out;
}

TEST(DesTest, LikeThePeer) {
    std::mt19937 random(99);
    for (int i = 0; i < 2000; ++i) {
        const auto key = randomBytesOf(random, 8);
        auto block = randomBytesOf(random, 8);
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

TEST(TripleDesTest, LikeThePeer) {
    std::mt19937 random(98);
    for (int i = 0; i < 200; ++i) {
        const auto key = randomBytesOf(random, 24);
        const auto iv = randomBytesOf(random, 8);
        const auto plain = randomBytesOf(random, 8 * (random() % 80));
        std::vector<uint8_t> expected(plain.size() + 8);
        int size = 0;
        EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
        EVP_EncryptInit_ex(context, EVP_des_ede3_cbc(), nullptr, key.data(), iv.data());
        EVP_CIPHER_CTX_set_padding(context, 0);
        EVP_EncryptUpdate(context, expected.data(), &size, plain.data(),
                          static_cast<int>(plain.size()));
        EVP_CIPHER_CTX_free(context);
        expected.resize(static_cast<size_t>(size));
        std::vector<uint8_t> data = plain;
        TripleDesCbc cbc(key);
        cbc.setIv(std::span<const uint8_t, 8>(iv));
        cbc.encrypt(data);
        ASSERT_EQ(expected, data);
        cbc.setIv(std::span<const uint8_t, 8>(iv));
        cbc.decrypt(data);
        ASSERT_EQ(plain, data);
    }
}

TEST(Rc4Test, LikeThePeer) {
    std::mt19937 random(97);
    for (size_t keySize = 1; keySize <= 256; ++keySize) {
        const auto key = randomBytesOf(random, keySize);
        auto data = randomBytesOf(random, 700);
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
