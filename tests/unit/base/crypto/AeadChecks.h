// What every authenticated cipher has to show, the same for AES-GCM and ChaCha20-Poly1305.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <span>
#include <vector>

#include "tests/unit/base/crypto/Peer.h"
#include "tests/unit/base/crypto/Vectors.h"

namespace tv::test {

using Bytes = std::vector<uint8_t>;

inline Bytes randomBytesOf(std::mt19937& random, size_t size) {
    Bytes out(size);
    for (uint8_t& byte : out) {
        byte = static_cast<uint8_t>(random());
    }
    return out;
}

struct AeadCase {
    Bytes key, nonce, additional, plain, cipher, tag;
};

template <class Aead>
bool openInPlace(const Aead& aead, const AeadCase& c, Bytes& data) {
    data = c.cipher;
    return aead.open(c.nonce, c.additional, data, std::span<const uint8_t, 16>(c.tag), data.data());
}

// Both directions, in place and into another buffer, and a refusal that leaves nothing readable.
template <class Aead>
void checkAead(const AeadCase& c) {
    const Aead aead(c.key);
    Bytes tag(16), data = c.plain, copy(c.plain.size());
    aead.seal(c.nonce, c.additional, data, data.data(), std::span<uint8_t, 16>(tag));
    EXPECT_EQ(c.cipher, data);
    EXPECT_EQ(c.tag, tag);
    EXPECT_TRUE(openInPlace(aead, c, data));
    EXPECT_EQ(c.plain, data);
    EXPECT_TRUE(aead.open(c.nonce, c.additional, c.cipher, std::span<const uint8_t, 16>(c.tag),
                          copy.data()));
    EXPECT_EQ(c.plain, copy);
    AeadCase bad = c;
    bad.tag[c.plain.size() % 16] ^= 0x10;
    EXPECT_FALSE(openInPlace(aead, bad, data));
    EXPECT_EQ(Bytes(c.plain.size()), data);
}

// Every bit of the tag, of a short text, of the additional data and of the nonce counts.
template <class Aead>
void checkEveryBitCounts(size_t keySize) {
    std::mt19937 random(5);
    AeadCase good;
    good.key = randomBytesOf(random, keySize);
    good.nonce = randomBytesOf(random, 12);
    good.additional = randomBytesOf(random, 13);
    good.cipher = randomBytesOf(random, 37);
    good.tag = Bytes(16);
    const Aead aead(good.key);
    Bytes data = good.cipher;
    aead.seal(good.nonce, good.additional, data, good.cipher.data(),
              std::span<uint8_t, 16>(good.tag));
    ASSERT_TRUE(openInPlace(aead, good, data));
    for (Bytes AeadCase::*field :
         {&AeadCase::tag, &AeadCase::cipher, &AeadCase::additional, &AeadCase::nonce}) {
        for (size_t bit = 0; bit < 8 * (good.*field).size(); ++bit) {
            AeadCase bad = good;
            (bad.*field)[bit / 8] ^= static_cast<uint8_t>(1 << bit % 8);
            ASSERT_FALSE(openInPlace(aead, bad, data)) << "bit " << bit;
        }
    }
}

inline AeadCase aeadCase(const Json& v, const char* additional, const char* plain,
                         const char* cipher, const char* nonce) {
    return {hexOf(v, "key"), hexOf(v, nonce),  hexOf(v, additional),
            hexOf(v, plain), hexOf(v, cipher), hexOf(v, "tag")};
}

template <class Aead>
void checkAeadExamples(const char* primitive) {
    forEachVector(primitive, [](const Json& v) {
        checkAead<Aead>(aeadCase(v, "additional", "plain", "cipher", "nonce"));
    });
}

template <class Aead>
void checkAeadFile(const char* file, const char* form) {
    runWycheproof(file, form, [&](const Json& group, const Json& test) {
        EXPECT_EQ(128, group["tagSize"].number());
        const AeadCase c = aeadCase(test, "aad", "msg", "ct", "iv");
        if (isValid(test)) {
            checkAead<Aead>(c);
        } else {
            Bytes data;
            EXPECT_FALSE(openInPlace(Aead(c.key), c, data));
        }
    });
}

#ifdef TV_HAVE_LIBCRYPTO

// Fills in what the peer makes of the plain text.
inline AeadCase sealedByPeer(const EVP_CIPHER* cipher, AeadCase c) {
    int size = 0;
    c.cipher.resize(c.plain.size());
    c.tag.resize(16);
    EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
    EVP_EncryptInit_ex(context, cipher, nullptr, nullptr, nullptr);
    EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_AEAD_SET_IVLEN, static_cast<int>(c.nonce.size()),
                        nullptr);
    EVP_EncryptInit_ex(context, nullptr, nullptr, c.key.data(), c.nonce.data());
    EVP_EncryptUpdate(context, nullptr, &size, c.additional.data(),
                      static_cast<int>(c.additional.size()));
    EVP_EncryptUpdate(context, c.cipher.data(), &size, c.plain.data(),
                      static_cast<int>(c.plain.size()));
    EVP_EncryptFinal_ex(context, c.cipher.data() + size, &size);
    EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_AEAD_GET_TAG, 16, c.tag.data());
    EVP_CIPHER_CTX_free(context);
    return c;
}

#endif

}  // namespace tv::test
