// Block ciphers, CBC, RC4 and the authenticated ciphers, in every form.
#include <gtest/gtest.h>

#include "base/Hex.h"
#include "base/crypto/AesCbc.h"
#include "base/crypto/Des.h"
#include "base/crypto/Rc4.h"
#include "tests/unit/base/crypto/Vectors.h"

#ifdef TV_HAVE_LIBCRYPTO
#include <openssl/evp.h>
#endif

namespace tv::crypto {
namespace {

using test::Bytes;
using test::forEachVector;
using test::randomBytesOf;
using test::Vector;

struct Message {
    Bytes key, iv, additional, plain, cipher, tag;  // the last empty where the cipher makes none
};

// Keys, vectors and texts of one run differ.
Message randomMessage(size_t keySize, size_t ivSize, size_t size) {
    const auto seed = static_cast<uint32_t>(5 * size);
    return {randomBytesOf(keySize, seed),
            randomBytesOf(ivSize, seed + 1),
            randomBytesOf(ivSize == 0 ? 0 : size % 40, seed + 2),
            randomBytesOf(size, seed + 3),
            Bytes(size),
            {}};
}

// Fills in the cipher text and, where there is room for one, the tag: by libcrypto where it is
// linked, else by the portable form.
template <class Cipher, class Form>
void encryptByJudge([[maybe_unused]] const char* name, [[maybe_unused]] Dispatch<Form>& forms,
                    Message& m) {
#ifdef TV_HAVE_LIBCRYPTO
    const auto sizeOf = [](const Bytes& bytes) { return static_cast<int>(bytes.size()); };
    EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
    int size = 0;
    EVP_EncryptInit_ex(context, EVP_get_cipherbyname(name), nullptr, m.key.data(), m.iv.data());
    EVP_CIPHER_CTX_set_padding(context, 0);
    if (!m.tag.empty()) {
        EVP_EncryptUpdate(context, nullptr, &size, m.additional.data(), sizeOf(m.additional));
    }
    EVP_EncryptUpdate(context, m.cipher.data(), &size, m.plain.data(), sizeOf(m.plain));
    ASSERT_EQ(1, EVP_EncryptFinal_ex(context, m.cipher.data() + size, &size)) << name;
    if (!m.tag.empty()) EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_AEAD_GET_TAG, 16, m.tag.data());
    EVP_CIPHER_CTX_free(context);
#else
    const Form& tested = forms.get();
    forms.force(forms.forms().back());
    Cipher cipher(m.key);
    forms.force(&tested);
    m.cipher = m.plain;
    if constexpr (requires { Cipher::kTagSize; }) {
        cipher.seal(m.iv, m.additional, m.plain, m.cipher.data(), std::span<uint8_t, 16>(m.tag));
    } else {
        cipher.setIv(std::span<const uint8_t, Cipher::kBlockSize>(m.iv));
        cipher.encrypt(m.cipher);
    }
#endif
}

template <class Cipher>
void checkBlocks(const Message& m) {
    const Cipher cipher(m.key);
    const size_t count = m.plain.size() / Cipher::kBlockSize;
    Bytes data = m.plain;
    cipher.encryptBlocks(data.data(), data.data(), count);
    EXPECT_EQ(hexLower(m.cipher), hexLower(data));
    cipher.decryptBlocks(data.data(), data.data(), count);
    EXPECT_EQ(m.plain, data);
}

// Whole and in two pieces: the chain goes on over calls.
template <class Cipher>
void checkCbc(const Message& m) {
    constexpr size_t kBlock = Cipher::kBlockSize;
    const std::span<const uint8_t, kBlock> iv(m.iv);
    Cipher cbc(m.key);
    for (const size_t cut : {size_t{0}, m.plain.size() / 2 / kBlock * kBlock}) {
        Bytes data = m.plain;
        const std::span<uint8_t> all(data);
        cbc.setIv(iv);
        cbc.encrypt(all.first(cut));
        cbc.encrypt(all.subspan(cut));
        EXPECT_EQ(hexLower(m.cipher), hexLower(data));
        cbc.setIv(iv);
        cbc.decrypt(all.first(cut));
        cbc.decrypt(all.subspan(cut));
        EXPECT_EQ(m.plain, data);
    }
}

template <class Aead>
bool openInPlace(const Aead& aead, const Message& m, Bytes& data) {
    data = m.cipher;
    return aead.open(m.iv, m.additional, data, std::span<const uint8_t, 16>(m.tag), data.data());
}

// Both directions, in place and into another buffer, and a refusal that leaves nothing readable.
template <class Aead>
void checkAead(const Message& m) {
    const Aead aead(m.key);
    Bytes tag(16), data = m.plain, copy(m.plain.size());
    aead.seal(m.iv, m.additional, data, data.data(), std::span<uint8_t, 16>(tag));
    EXPECT_EQ(m.cipher, data);
    EXPECT_EQ(m.tag, tag);
    EXPECT_TRUE(openInPlace(aead, m, data));
    EXPECT_EQ(m.plain, data);
    EXPECT_TRUE(
        aead.open(m.iv, m.additional, m.cipher, std::span<const uint8_t, 16>(m.tag), copy.data()));
    EXPECT_EQ(m.plain, copy);
    Message bad = m;
    bad.tag[m.plain.size() % 16] ^= 0x10;
    EXPECT_FALSE(openInPlace(aead, bad, data));
    EXPECT_EQ(Bytes(m.plain.size()), data);
}

template <class Aead>
void checkAeadVectors(const char* name, const char* file) {
    forEachVector(name, {file}, [](const Vector& v) {
        const Message m = {v.bytes("key"), v.bytes("iv"), v.bytes("aad"),
                           v.bytes("msg"), v.bytes("ct"), v.bytes("tag")};
        if (v.isValid()) return checkAead<Aead>(m);
        Bytes data;
        EXPECT_FALSE(openInPlace(Aead(m.key), m, data));
    });
}

template <class Cipher>
void checkBlockVectors(const char* name) {
    forEachVector(name, {}, [](const Vector& v) {
        checkBlocks<Cipher>({v.bytes("key"), {}, {}, v.bytes("msg"), v.bytes("ct"), {}});
    });
}

class AesTest : public test::FormTest<AesForm> {};
TV_FOR_EACH_FORM(AesTest, AesForm);
class GcmTest : public test::FormTest<GcmForm> {};
TV_FOR_EACH_FORM(GcmTest, GcmForm);
class ChaChaTest : public test::FormTest<ChaChaForm> {};
TV_FOR_EACH_FORM(ChaChaTest, ChaChaForm);

TEST_P(AesTest, vectors) {
    checkBlockVectors<Aes>("aes");
    forEachVector("aes-cbc", {"aes_cbc_pkcs5"}, [](const Vector& v) {
        Message m = {v.bytes("key"), v.bytes("iv"), {}, v.bytes("msg"), v.bytes("ct"), {}};
        if (!v.isValid()) return;  // bad padding, which is not known here
        m.plain.resize(m.cipher.size(), static_cast<uint8_t>(16 - m.plain.size() % 16));
        checkCbc<AesCbc>(m);
    });
}

TEST(DesTest, vectors) {
    checkBlockVectors<Des>("des");
    checkBlockVectors<TripleDes>("3des");
}

TEST(Rc4Test, vectors) {
    forEachVector("rc4", {}, [](const Vector& v) {
        const size_t offset = v.number("offset");
        Bytes data(offset + 16);
        Rc4 rc4(v.bytes("key"));
        const std::span<uint8_t> bytes(data);
        rc4.apply(bytes.first(offset / 3));
        rc4.apply(bytes.subspan(offset / 3));
        EXPECT_EQ(v["stream"].text(), hexLower(bytes.subspan(offset))) << offset;
    });
}

TEST_P(GcmTest, vectors) {
    checkAeadVectors<AesGcm>("aes-gcm", "aes_gcm");
}

TEST_P(ChaChaTest, vectors) {
    checkAeadVectors<ChaCha20Poly1305>("chacha20-poly1305", "chacha20_poly1305");
}

// Forms that take many blocks at once against the one that takes them singly: extreme limbs, all
// counts, sums that stand already.
TEST_P(ChaChaTest, sumsLikeTheSimpleOne) {
    const ChaChaForm& form = chaChaForms.get();
    for (uint32_t blocks = 0; blocks < 400; ++blocks) {
        const Bytes key = blocks % 4 ? randomBytesOf(32, blocks) : Bytes(32, 0xff);
        const Bytes text =
            blocks % 3 ? randomBytesOf(16 * blocks, blocks) : Bytes(16 * blocks, 0xff);
        const size_t cut = 37 * blocks % (blocks + 1);
        Poly1305State simple, state;
        Bytes expected(16), tag(16);
        startPoly1305(simple, key.data());
        absorbPoly1305(simple, text.data(), blocks);
        finishPoly1305(simple, expected.data());
        startPoly1305(state, key.data());
        form.absorb(state, text.data(), cut);
        form.absorb(state, text.data() + 16 * cut, blocks - cut);
        finishPoly1305(state, tag.data());
        ASSERT_EQ(expected, tag) << blocks << " blocks, cut at " << cut;
    }
    forEachVector("poly1305", {}, [&](const Vector& v) {
        const Bytes text = v.bytes("msg");
        Poly1305State state;
        Bytes tag(16);
        startPoly1305(state, v.bytes("key").data());
        form.absorb(state, text.data(), text.size() / 16);
        finishPoly1305(state, tag.data());
        EXPECT_EQ(v["tag"].text(), hexLower(tag));
    });
}

// Up to some batches of the widest form, and some long texts.
template <class Cipher, class Form>
void checkEveryLength(const char* name, Dispatch<Form>& forms, size_t keySize,
                      void (*check)(const Message&)) {
    constexpr bool kIsAead = requires {
        Cipher::kTagSize;
    };
    size_t step = 1, ivSize = 12;
    if constexpr (!kIsAead) step = ivSize = Cipher::kBlockSize;
    for (size_t size = 0; size < 20000; size += size < 1600 ? step : 300 * step) {
        Message m = randomMessage(keySize, ivSize, size);
        m.tag.resize(kIsAead ? 16 : 0);
        encryptByJudge<Cipher>(name, forms, m);
        check(m);
        ASSERT_FALSE(testing::Test::HasFailure()) << name << ", " << size;
    }
}

TEST_P(GcmTest, everyLength) {
    checkEveryLength<AesGcm>("aes-128-gcm", gcmForms, 16, checkAead<AesGcm>);
    checkEveryLength<AesGcm>("aes-256-gcm", gcmForms, 32, checkAead<AesGcm>);
}
TEST_P(ChaChaTest, everyLength) {
    checkEveryLength<ChaCha20Poly1305>("chacha20-poly1305", chaChaForms, 32,
                                       checkAead<ChaCha20Poly1305>);
}
TEST_P(AesTest, everyLength) {
    checkEveryLength<AesCbc>("aes-128-cbc", aesForms, 16, checkCbc<AesCbc>);
    checkEveryLength<AesCbc>("aes-192-cbc", aesForms, 24, checkCbc<AesCbc>);
    checkEveryLength<AesCbc>("aes-256-cbc", aesForms, 32, checkCbc<AesCbc>);
}
#ifdef TV_HAVE_LIBCRYPTO  // it has no other form to judge it
TEST(DesTest, everyLength) {
    checkEveryLength<TripleDesCbc>("des-ede3-cbc", aesForms, 24, checkCbc<TripleDesCbc>);
}
#endif

}  // namespace
}  // namespace tv::crypto
