// Run under valgrind these tests prove, form by form, that no branch and no address in the ciphers,
// hashes and MACs depends on keys or texts.
#include <gtest/gtest.h>

#include "base/crypto/AesCbc.h"
#include "base/crypto/Des.h"
#include "base/crypto/Hkdf.h"
#include "base/crypto/Md4.h"
#include "tests/fixtures/SecretMemory.h"
#include "tests/unit/base/crypto/AeadChecks.h"
#include "tests/unit/base/crypto/AesForms.h"
#include "tests/unit/base/crypto/ChaChaForms.h"
#include "tests/unit/base/crypto/HashForms.h"

namespace tv::crypto {
namespace {

using test::Bytes;
using test::makePublic;
using test::makeSecret;

constexpr size_t kText = 1000;  // some batches of the widest form, a rest, a broken block

struct Secrets {
    Bytes key;
    Bytes text;

    explicit Secrets(size_t keySize, size_t textSize = kText) {
        std::mt19937 random(11);
        key = test::randomBytesOf(random, keySize);
        text = test::randomBytesOf(random, textSize);
        makeSecret(key);
        makeSecret(text);
    }
};

// Seals secret text under a secret key and looks at the result; the way back runs without the last
// comparison, whose answer is public.
template <class Aead>
Bytes sealSecrets(const Secrets& s) {
    const Bytes nonce(12, 1), additional(13, 2);
    const Aead aead(s.key);
    Bytes out(kText + 16);
    aead.seal(nonce, additional, s.text, out.data(),
              std::span<uint8_t, 16>(out.data() + kText, 16));
    makePublic(out);
    return out;
}

class AesGcmSecretFlow : public test::FormTest<GcmForm> {};
TV_FOR_EACH_FORM(AesGcmSecretFlow, GcmForm);

TEST_P(AesGcmSecretFlow, SealAndDecrypt) {
    for (const size_t keySize : {16u, 32u}) {
        EXPECT_NE(Bytes(kText + 16), sealSecrets<AesGcm>(Secrets(keySize)));
        const Secrets s(keySize);
        const GcmForm& form = gcmForms.get();
        GcmKey key;
        GcmState state{};
        Bytes out(960);
        form.expand(key, s.key);
        form.decrypt(key, state, s.text.data(), out.data(), out.size() / 16);
        makePublic(out);
        makePublic(state.sum);
        EXPECT_NE(Bytes(960), out);
        EXPECT_NE(decltype(state.sum){}, state.sum);
    }
}

class ChaChaSecretFlow : public test::FormTest<ChaChaForm> {};
TV_FOR_EACH_FORM(ChaChaSecretFlow, ChaChaForm);

TEST_P(ChaChaSecretFlow, Seal) {
    EXPECT_NE(Bytes(kText + 16), sealSecrets<ChaCha20Poly1305>(Secrets(32)));
}

template <class Cipher>
void checkCbc(size_t keySize) {
    Secrets s(keySize, 960);
    Cipher cbc(s.key);
    cbc.encrypt(s.text);
    cbc.decrypt(s.text);
    makePublic(s.text);
    EXPECT_NE(Bytes(960), s.text);
}

class AesSecretFlow : public test::FormTest<AesForm> {};
TV_FOR_EACH_FORM(AesSecretFlow, AesForm);

TEST_P(AesSecretFlow, Cbc) {
    checkCbc<AesCbc>(16);
    checkCbc<AesCbc>(32);
}

TEST(DesSecretFlow, Cbc) {
    checkCbc<DesCbc>(8);
    checkCbc<TripleDesCbc>(24);
}

void checkMac(HashId id) {
    const Secrets s(20);
    const DigestBytes key = hkdfExtract(id, s.key, s.text);
    Bytes out(100);
    ASSERT_TRUE(hkdfExpand(id, key, {}, out));
    makePublic(out);
    EXPECT_NE(Bytes(100), out);
}

class Sha1SecretFlow : public test::FormTest<Sha1Form> {};
class Sha256SecretFlow : public test::FormTest<Sha256Form> {};
TV_FOR_EACH_FORM(Sha1SecretFlow, Sha1Form);
TV_FOR_EACH_FORM(Sha256SecretFlow, Sha256Form);

TEST_P(Sha1SecretFlow, Mac) {
    checkMac(HashId::kSha1);
}
TEST_P(Sha256SecretFlow, Mac) {
    checkMac(HashId::kSha256);
}
TEST(Sha512SecretFlow, Mac) {
    checkMac(HashId::kSha384);
    checkMac(HashId::kSha512);
}
TEST(Md5SecretFlow, Mac) {
    checkMac(HashId::kMd5);
}

TEST(Md4SecretFlow, Digest) {
    const Secrets s(1);
    auto digest = Md4::of(s.text);
    makePublic(digest);
    EXPECT_NE(decltype(digest){}, digest);
}

}  // namespace
}  // namespace tv::crypto
