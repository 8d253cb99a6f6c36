// Block ciphers, CBC, RC4 and the authenticated ciphers, in every form.
#include <gtest/gtest.h>

#include "base/Hex.h"
#include "base/crypto/AesCbc.h"
#include "base/crypto/Des.h"
#include "base/crypto/Endian.h"
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

#ifdef TV_HAVE_LIBCRYPTO
// Fills in cipher and, where it has one, tag.
void encryptByPeer(const std::string& name, Message& m) {
    EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
    const auto sizeOf = [](const Bytes& bytes) { return static_cast<int>(bytes.size()); };
    int size = 0;
    ASSERT_EQ(1, EVP_EncryptInit_ex(context, EVP_get_cipherbyname(name.c_str()), nullptr, nullptr,
                                    nullptr));
    if (!m.tag.empty()) {
        EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_AEAD_SET_IVLEN, sizeOf(m.iv), nullptr);
    }
    EVP_EncryptInit_ex(context, nullptr, nullptr, m.key.data(), m.iv.data());
    EVP_CIPHER_CTX_set_padding(context, 0);
    if (!m.tag.empty()) {
        EVP_EncryptUpdate(context, nullptr, &size, m.additional.data(), sizeOf(m.additional));
    }
    EVP_EncryptUpdate(context, m.cipher.data(), &size, m.plain.data(), sizeOf(m.plain));
    EVP_EncryptFinal_ex(context, m.cipher.data() + size, &size);
    if (!m.tag.empty()) EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_AEAD_GET_TAG, 16, m.tag.data());
    EVP_CIPHER_CTX_free(context);
}
#endif

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

// Every bit of the tag, of a short text, of the additional data and of the nonce counts.
template <class Aead>
void checkEveryBit(size_t keySize) {
    Message good = randomMessage(keySize, 12, 37);
    good.tag = Bytes(16);
    const Aead aead(good.key);
    aead.seal(good.iv, good.additional, good.plain, good.cipher.data(),
              std::span<uint8_t, 16>(good.tag));
    Bytes data;
    ASSERT_TRUE(openInPlace(aead, good, data));
    for (const auto field : {&Message::tag, &Message::cipher, &Message::additional, &Message::iv}) {
        for (size_t bit = 0; bit < 8 * (good.*field).size(); ++bit) {
            Message bad = good;
            (bad.*field)[bit / 8] ^= static_cast<uint8_t>(1 << bit % 8);
            ASSERT_FALSE(openInPlace(aead, bad, data)) << "bit " << bit;
        }
    }
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

// Each block of a batch is treated alike, wherever it stands and however many there are.
TEST_P(AesTest, blocksAreIndependent) {
    Message m = {randomBytesOf(32), {}, {}, {}, {}, {}};
    for (size_t count = 0; count <= 23; ++count) {
        checkBlocks<Aes>(m);
        const Bytes block = randomBytesOf(16, static_cast<uint32_t>(count));
        m.plain.insert(m.plain.end(), block.begin(), block.end());
        m.cipher.resize(m.plain.size());
        Aes(m.key).encryptBlocks(block.data(), m.cipher.data() + 16 * count, 1);
    }
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
    checkEveryBit<AesGcm>(16);
    checkEveryBit<AesGcm>(32);
}

TEST_P(ChaChaTest, vectors) {
    checkAeadVectors<ChaCha20Poly1305>("chacha20-poly1305", "chacha20_poly1305");
    checkEveryBit<ChaCha20Poly1305>(32);
}

// The counter of 32 bits wraps to zero without a carry, wherever in a batch that happens.
TEST_P(GcmTest, counterWraps) {
    const Bytes key = randomBytesOf(16), plain = randomBytesOf(16 * 100);
    GcmKey portableKey, thisKey;
    kGcmPortable.expand(portableKey, key);
    const GcmForm& form = gcmForms.get();
    form.expand(thisKey, key);
    for (uint32_t before = 0; before < 99; ++before) {
        GcmState expectedState{};
        storeBe(expectedState.counter.data() + 12, 0u - before);
        GcmState state = expectedState, backState = expectedState;
        Bytes expected(plain.size()), cipher(plain.size()), back(plain.size());
        kGcmPortable.encrypt(portableKey, expectedState, plain.data(), expected.data(), 100);
        form.encrypt(thisKey, state, plain.data(), cipher.data(), 100);
        form.decrypt(thisKey, backState, cipher.data(), back.data(), 100);
        ASSERT_EQ(expected, cipher) << before;
        ASSERT_EQ(plain, back) << before;
        for (const GcmState* s : {&state, &backState}) {
            ASSERT_EQ(expectedState.counter, s->counter) << before;
            ASSERT_EQ(expectedState.sum, s->sum) << before;
        }
    }
}

// Forms that take many blocks at once against the one that takes them singly: all counts, a counter
// that wraps, extreme limbs, sums that stand already.
TEST_P(ChaChaTest, manyBlocksLikeSingleOnes) {
    const ChaChaForm& form = chaChaForms.get();
    for (uint32_t blocks = 0; blocks < 70; ++blocks) {
        const Bytes in = randomBytesOf(64 * blocks, blocks), words = randomBytesOf(64);
        Bytes expected(in.size()), out(in.size());
        ChaChaState state;
        std::memcpy(state.data(), words.data(), words.size());
        if (blocks % 2) state[12] = 0xfffffffeu - blocks / 4;
        ChaChaState simple = state;
        kChaChaPortable.apply(simple, in.data(), expected.data(), blocks);
        form.apply(state, in.data(), out.data(), blocks);
        ASSERT_EQ(expected, out) << blocks;
        ASSERT_EQ(simple, state) << blocks;
    }
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

#ifdef TV_HAVE_LIBCRYPTO
// Every length up to some batches of the widest form.
template <class Aead>
void checkAeadLengths(const std::string& name, size_t keySize) {
    for (size_t size = 0; size < 20000; size += size < 1600 ? 1 : 3001) {
        Message m = randomMessage(keySize, 12, size);
        m.tag = Bytes(16);
        encryptByPeer(name, m);
        checkAead<Aead>(m);
        ASSERT_FALSE(testing::Test::HasFailure()) << name << ", " << size;
    }
}

template <class Cipher>
void checkCbcLengths(const std::string& name, size_t keySize) {
    for (size_t blocks = 0; blocks < 100; ++blocks) {
        Message m = randomMessage(keySize, Cipher::kBlockSize, Cipher::kBlockSize * blocks);
        encryptByPeer(name, m);
        checkCbc<Cipher>(m);
        ASSERT_FALSE(testing::Test::HasFailure()) << name << ", " << blocks;
    }
}

TEST_P(GcmTest, everyLengthLikeLibcrypto) {
    checkAeadLengths<AesGcm>("aes-128-gcm", 16);
    checkAeadLengths<AesGcm>("aes-256-gcm", 32);
}
TEST_P(ChaChaTest, everyLengthLikeLibcrypto) {
    checkAeadLengths<ChaCha20Poly1305>("chacha20-poly1305", 32);
}
TEST_P(AesTest, everyLengthLikeLibcrypto) {
    checkCbcLengths<AesCbc>("aes-128-cbc", 16);
    checkCbcLengths<AesCbc>("aes-192-cbc", 24);
    checkCbcLengths<AesCbc>("aes-256-cbc", 32);
}
TEST(DesTest, everyLengthLikeLibcrypto) {
    checkCbcLengths<TripleDesCbc>("des-ede3-cbc", 24);
}
#endif

}  // namespace
}  // namespace tv::crypto
