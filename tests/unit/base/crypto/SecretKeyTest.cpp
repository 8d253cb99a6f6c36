// Ciphers, with and without authentication, and hashes in every form; HMAC and HKDF.
#include <gtest/gtest.h>

#include "base/Base64.h"
#include "base/CpuFeatures.h"
#include "base/Hex.h"
#include "base/crypto/AesCbc.h"
#include "base/crypto/Des.h"
#include "base/crypto/Hkdf.h"
#include "base/crypto/Md4.h"
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

Message messageOf(const Vector& v) {
    const auto optional = [&](const char* name) {
        return v.test.has(name) ? v.bytes(name) : Bytes();
    };
    return {v.bytes("key"), v.bytes("iv"), optional("aad"),
            v.bytes("msg"), v.bytes("ct"), optional("tag")};
}

template <class Cipher>
constexpr bool kIsAead = requires {
    Cipher::kTagSize;
};

// Fills in cipher text and tag.
template <class Cipher>
void encrypt(Message& m) {
    Cipher cipher(m.key);
    m.cipher = m.plain;
    if constexpr (kIsAead<Cipher>) {
        m.tag.resize(Cipher::kTagSize);
        cipher.seal(m.iv, m.additional, m.cipher, m.cipher.data(), std::span<uint8_t, 16>(m.tag));
    } else {
        cipher.setIv(std::span<const uint8_t, Cipher::kBlockSize>(m.iv));
        cipher.encrypt(m.cipher);
    }
}

template <class Aead>
bool open(const Message& m, const Bytes& from, Bytes& to) {
    return Aead(m.key).open(m.iv, m.additional, from, std::span<const uint8_t, 16>(m.tag),
                            to.data());
}

// Both directions, in place and into another buffer; CBC in two pieces also, for the chain goes on
// over calls; a refusal leaves nothing readable.
template <class Cipher>
void check(const Message& m) {
    Message ours = m;
    encrypt<Cipher>(ours);
    EXPECT_EQ(hexLower(m.cipher) + hexLower(m.tag), hexLower(ours.cipher) + hexLower(ours.tag));
    if constexpr (kIsAead<Cipher>) {
        Bytes copy(m.plain.size());
        EXPECT_TRUE(open<Cipher>(m, m.cipher, copy));
        EXPECT_EQ(m.plain, copy);
        EXPECT_TRUE(open<Cipher>(m, ours.cipher, ours.cipher));
        EXPECT_EQ(m.plain, ours.cipher);
        ours.tag[m.plain.size() % 16] ^= 0x10;
        EXPECT_FALSE(open<Cipher>(ours, m.cipher, copy));
        EXPECT_EQ(Bytes(m.plain.size()), copy);
    } else {
        const size_t cut = m.plain.size() / 2 / Cipher::kBlockSize * Cipher::kBlockSize;
        Cipher cipher(m.key);
        Bytes data = m.plain;
        for (const bool back : {false, true}) {
            const std::span<uint8_t> all(data);
            cipher.setIv(std::span<const uint8_t, Cipher::kBlockSize>(m.iv));
            for (const auto& part : {all.first(cut), all.subspan(cut)}) {
                back ? cipher.decrypt(part) : cipher.encrypt(part);
            }
            EXPECT_EQ(back ? m.plain : m.cipher, data);
        }
    }
}

template <class Aead>
void checkAeadVectors(const char* name, const char* file) {
    forEachVector(name, {file}, [](const Vector& v) {
        const Message m = messageOf(v);
        if (v.isValid()) return check<Aead>(m);
        Bytes data = m.cipher;
        EXPECT_FALSE(open<Aead>(m, data, data));
    });
}

template <class Cipher>
void checkBlockVectors(const char* name) {
    forEachVector(name, {}, [](const Vector& v) {
        const Cipher cipher(v.bytes("key"));
        const Bytes plain = v.bytes("msg");
        Bytes data = plain;
        cipher.encryptBlocks(data.data(), data.data(), data.size() / Cipher::kBlockSize);
        EXPECT_EQ(v["ct"].text(), hexLower(data));
        cipher.decryptBlocks(data.data(), data.data(), data.size() / Cipher::kBlockSize);
        EXPECT_EQ(plain, data);
    });
}

// The judge is libcrypto where it is linked, else the portable form.
template <class Cipher, class Form>
void encryptByJudge([[maybe_unused]] const char* name, [[maybe_unused]] Dispatch<Form>& forms,
                    Message& m) {
#ifdef TV_HAVE_LIBCRYPTO
    const auto sizeOf = [](const Bytes& bytes) { return static_cast<int>(bytes.size()); };
    EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
    int size = 0;
    EVP_EncryptInit_ex(context, EVP_get_cipherbyname(name), nullptr, m.key.data(), m.iv.data());
    EVP_CIPHER_CTX_set_padding(context, 0);
    if (kIsAead<Cipher>) {
        EVP_EncryptUpdate(context, nullptr, &size, m.additional.data(), sizeOf(m.additional));
    }
    m.cipher.resize(m.plain.size());
    EVP_EncryptUpdate(context, m.cipher.data(), &size, m.plain.data(), sizeOf(m.plain));
    ASSERT_EQ(1, EVP_EncryptFinal_ex(context, m.cipher.data() + size, &size)) << name;
    m.tag.resize(kIsAead<Cipher> ? 16 : 0);
    if (kIsAead<Cipher>) EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_AEAD_GET_TAG, 16, m.tag.data());
    EVP_CIPHER_CTX_free(context);
#else
    const Form& tested = forms.get();
    forms.force(forms.forms().back());
    encrypt<Cipher>(m);
    forms.force(&tested);
#endif
}

// Up to some batches of the widest form, and some long texts; keys and texts of one run differ.
template <class Cipher, class Form>
void checkEveryLength(const char* name, Dispatch<Form>& forms, size_t keySize) {
    size_t step = 1, ivSize = 12;
    if constexpr (!kIsAead<Cipher>) step = ivSize = Cipher::kBlockSize;
    for (size_t size = 0; size < 20000; size += size < 1600 ? step : 300 * step) {
        const auto seed = static_cast<uint32_t>(5 * size);
        Message m = {randomBytesOf(keySize, seed),
                     randomBytesOf(ivSize, seed + 1),
                     randomBytesOf(kIsAead<Cipher> ? size % 40 : 0, seed + 2),
                     randomBytesOf(size, seed + 3),
                     {},
                     {}};
        encryptByJudge<Cipher>(name, forms, m);
        check<Cipher>(m);
        ASSERT_FALSE(testing::Test::HasFailure()) << name << ", " << size;
    }
}

class AesTest : public test::FormTest<AesForm> {};
TV_FOR_EACH_FORM(AesTest, AesForm);
class GcmTest : public test::FormTest<GcmForm> {};
TV_FOR_EACH_FORM(GcmTest, GcmForm);
class ChaChaTest : public test::FormTest<ChaChaForm> {};
TV_FOR_EACH_FORM(ChaChaTest, ChaChaForm);

TEST_P(AesTest, vectorsAndEveryLength) {
    checkBlockVectors<Aes>("aes");
    forEachVector("aes-cbc", {"aes_cbc_pkcs5"}, [](const Vector& v) {
        Message m = messageOf(v);
        if (!v.isValid()) return;  // bad padding, which is not known here
        m.plain.resize(m.cipher.size(), static_cast<uint8_t>(16 - m.plain.size() % 16));
        check<AesCbc>(m);
    });
    checkEveryLength<AesCbc>("aes-128-cbc", aesForms, 16);
    checkEveryLength<AesCbc>("aes-192-cbc", aesForms, 24);
    checkEveryLength<AesCbc>("aes-256-cbc", aesForms, 32);
}

TEST_P(GcmTest, vectorsAndEveryLength) {
    checkAeadVectors<AesGcm>("aes-gcm", "aes_gcm");
    checkEveryLength<AesGcm>("aes-128-gcm", gcmForms, 16);
    checkEveryLength<AesGcm>("aes-256-gcm", gcmForms, 32);
}

TEST_P(ChaChaTest, vectorsAndEveryLength) {
    checkAeadVectors<ChaCha20Poly1305>("chacha20-poly1305", "chacha20_poly1305");
    checkEveryLength<ChaCha20Poly1305>("chacha20-poly1305", chaChaForms, 32);
}

// Forms that take many blocks at once against the one that takes them singly: extreme limbs, all
// counts, sums that stand already.
TEST_P(ChaChaTest, sumsLikeTheSimpleOne) {
    const auto tagOf = [](auto absorb, const Bytes& key, const Bytes& text, size_t cut) {
        Poly1305State state;
        Bytes tag(16);
        startPoly1305(state, key.data());
        absorb(state, text.data(), cut);
        absorb(state, text.data() + 16 * cut, text.size() / 16 - cut);
        finishPoly1305(state, tag.data());
        return hexLower(tag);
    };
    const auto absorb = chaChaForms.get().absorb;
    for (uint32_t blocks = 0; blocks < 400; ++blocks) {
        const Bytes key = blocks % 4 ? randomBytesOf(32, blocks) : Bytes(32, 0xff);
        const Bytes text =
            blocks % 3 ? randomBytesOf(16 * blocks, blocks) : Bytes(16 * blocks, 0xff);
        const size_t cut = 37 * blocks % (blocks + 1);
        ASSERT_EQ(tagOf(absorbPoly1305, key, text, 0), tagOf(absorb, key, text, cut)) << blocks;
    }
    forEachVector("poly1305", {}, [&](const Vector& v) {
        EXPECT_EQ(v["tag"].text(), tagOf(absorb, v.bytes("key"), v.bytes("msg"), 0));
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

template <class Digest>
void checkDigest(const char* name) {
    forEachVector(name, {}, [](const Vector& v) {
        std::string text = v["text"].text();
        if (v.test.has("times")) text.assign(v.number("times"), text[0]);
        EXPECT_EQ(v["digest"].text(), hexLower(Digest::of(test::bytesOf(text))));
    });
    // Cutting the input anywhere, and copying the state there, changes nothing.
    const Bytes large = randomBytesOf(100000);
    const std::span<const uint8_t> whole = std::span(large).first(3 * Digest::kBlockSize + 5);
    Digest digest;  // after finish it is as new
    for (size_t cut = 0; cut <= whole.size(); ++cut) {
        digest.update(whole.first(cut));
        Digest copy = digest;
        digest.update(whole.subspan(cut));
        EXPECT_EQ(Digest::of(whole), digest.finish()) << cut;
        EXPECT_EQ(Digest::of(whole.first(cut)), copy.finish()) << cut;
    }
#ifdef TV_HAVE_LIBCRYPTO
    const EVP_MD* peer = std::is_same_v<Digest, Md4> ? nullptr : EVP_get_digestbyname(name);
    for (size_t size = 0; peer && size <= large.size(); size += size < 600 ? 1 : 9937) {
        const auto part = std::span(large).last(size);
        typename Digest::Digest theirs;
        ASSERT_EQ(1, EVP_Digest(part.data(), size, theirs.data(), nullptr, peer, nullptr));
        ASSERT_EQ(theirs, Digest::of(part)) << size;
    }
#endif
}

class Sha1Test : public test::FormTest<Sha1Form> {};
TV_FOR_EACH_FORM(Sha1Test, Sha1Form);
TEST_P(Sha1Test, digests) {
    checkDigest<Sha1>("sha1");
}

class Sha256Test : public test::FormTest<Sha256Form> {};
TV_FOR_EACH_FORM(Sha256Test, Sha256Form);
TEST_P(Sha256Test, digests) {
    checkDigest<Sha256>("sha256");
}

TEST(Hashes, digests) {
    checkDigest<Md4>("md4");
    checkDigest<Md5>("md5");
    checkDigest<Sha384>("sha384");
    checkDigest<Sha512>("sha512");
}

TEST(Hmac, vectors) {
    forEachVector("hmac", {"hmac_sha1", "hmac_sha256", "hmac_sha384"}, [](const Vector& v) {
        std::string mac = hexLower(Hmac::of(v.hash(), v.bytes("key"), v.bytes("msg")));
        if (v.group.has("tagSize")) mac.resize(v.number("tagSize") / 4);
        EXPECT_EQ(v.isValid(), mac == v["tag"].text());
    });
}

TEST(Hkdf, vectors) {
    forEachVector("hkdf", {"hkdf_sha256", "hkdf_sha384"}, [](const Vector& v) {
        const auto key = hkdfExtract(v.hash(), v.bytes("salt"), v.bytes("ikm"));
        EXPECT_TRUE(!v.test.has("prk") || v["prk"].text() == hexLower(key));
        const Bytes before(v.number("size"), 0x55);
        Bytes out = before;
        EXPECT_EQ(v.isValid(), hkdfExpand(v.hash(), key, v.bytes("info"), out));
        EXPECT_EQ(v.isValid() ? v.bytes("okm") : before, out);
    });
}

TEST(FormChoice, isTheFastestThatTheMachineRuns) {
    const auto chosen = [](const CpuFeatures& allowed) {
        limitCpuFeatures(allowed);
        std::string names;
        for (const char* name :
             {base64Forms.get().name, sha1Forms.get().name, sha256Forms.get().name,
              aesForms.get().name, gcmForms.get().name, chaChaForms.get().name})
            names += name + std::string(" ");
        unlimitCpuFeatures();
        return names;
    };
    EXPECT_EQ("portable portable portable portable portable portable ", chosen({}));
    CpuFeatures all = detectedCpuFeatures();
    if (!all.shaNi || !all.aesNi || !all.pclmul || !all.avx512Vbmi || !all.vaes || !all.vpclmul) {
        GTEST_SKIP() << "this machine cannot run every form";
    }
    EXPECT_EQ("avx512-vbmi sha-ni sha-ni aes-ni vaes-avx512 avx512 ", chosen(all));
    all.avx512 = all.vaes = all.avx512Vbmi = false;
    EXPECT_EQ("avx2 sha-ni sha-ni aes-ni aes-ni avx2 ", chosen(all));
    EXPECT_EQ("ssse3 portable portable portable portable portable ", chosen({.ssse3 = true}));
}

}  // namespace
}  // namespace tv::crypto
