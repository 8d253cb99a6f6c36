// Speed of the ciphers and hashes, each form that this machine can run, beside libcrypto's.
//     bench_crypto [NAME]     only rows whose name contains NAME
#include <cstdlib>
#include <memory>
#include <string_view>
#include <vector>

#include "Compare.h"
#include "base/crypto/AesCbc.h"
#include "base/crypto/AesGcm.h"
#include "base/crypto/ChaCha20Poly1305.h"
#include "base/crypto/Des.h"
#include "base/crypto/Hash.h"
#include "base/crypto/Rc4.h"

#ifdef TV_HAVE_LIBCRYPTO
#include <openssl/evp.h>
#endif

namespace tv::bench {
namespace {

constexpr size_t kRecord = 16384;
constexpr double kMegabytes = kRecord / 1e6;

std::string_view wanted;
std::vector<uint8_t> input(kRecord, 0x5a);
std::vector<uint8_t> sealed(kRecord);
std::vector<uint8_t> output(kRecord + 64);
const std::vector<uint8_t> kKey(32, 0x11);
const std::array<uint8_t, 12> kNonce = {1, 2, 3};
std::array<uint8_t, 16> tag;

void row(const std::string& what, const std::string& form, const Work& ours, const Work& peer) {
    if (what.find(wanted) != std::string::npos) printRow(what, form, kMegabytes, ours, peer);
}

#ifdef TV_HAVE_LIBCRYPTO

std::shared_ptr<EVP_CIPHER_CTX> keyedPeer(const char* name, int encrypt) {
    std::shared_ptr<EVP_CIPHER_CTX> context(EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
    EVP_CipherInit_ex(context.get(), EVP_get_cipherbyname(name), nullptr, kKey.data(), nullptr,
                      encrypt);
    EVP_CIPHER_CTX_set_padding(context.get(), 0);
    return context;
}

// One record; the nonce anew each time, as records need it.
Work peerCipher(const char* name, int encrypt = 1) {
    return [context = keyedPeer(name, encrypt)] {
        int size = 0;
        EVP_CipherInit_ex(context.get(), nullptr, nullptr, nullptr, kKey.data(), -1);
        EVP_CipherUpdate(context.get(), output.data(), &size, input.data(), kRecord);
        EVP_CipherFinal_ex(context.get(), output.data() + size, &size);
    };
}

Work peerDigest(const char* name) {
    std::shared_ptr<EVP_MD_CTX> context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    return [context, digest = EVP_get_digestbyname(name)] {
        EVP_DigestInit_ex(context.get(), digest, nullptr);
        EVP_DigestUpdate(context.get(), input.data(), input.size());
        EVP_DigestFinal_ex(context.get(), output.data(), nullptr);
    };
}

#else

Work peerCipher(const char*, int = 1) {
    return {};
}
Work peerDigest(const char*) {
    return {};
}

#endif

template <class Form>
void forEachForm(Dispatch<Form>& dispatch, const std::function<void(const char*)>& run) {
    for (const Form* form : dispatch.forms()) {
        if (!form->usable()) continue;
        dispatch.force(form);
        run(form->name);
    }
    dispatch.force(nullptr);
}

template <class Aead>
void aeadRows(const std::string& name, const char* form, size_t keySize) {
    const auto aead = std::make_shared<Aead>(std::span(kKey).first(keySize));
    const auto seal = [aead] { aead->seal(kNonce, {}, input, sealed.data(), tag); };
    const auto open = [aead] {
        if (!aead->open(kNonce, {}, sealed, tag, output.data())) std::abort();
    };
    row(name + " seal", form, seal, peerCipher(name.c_str()));
    seal();
    row(name + " open", form, open, peerCipher(name.c_str(), 0));
}

void aeads() {
    forEachForm<crypto::GcmForm>(crypto::gcmForms, [](const char* form) {
        aeadRows<crypto::AesGcm>("aes-128-gcm", form, 16);
        aeadRows<crypto::AesGcm>("aes-256-gcm", form, 32);
    });
    forEachForm<crypto::ChaChaForm>(crypto::chaChaForms, [](const char* form) {
        aeadRows<crypto::ChaCha20Poly1305>("chacha20-poly1305", form, 32);
    });
}

template <class Cipher>
void cbcRows(const std::string& name, const char* form, size_t keySize) {
    const auto cbc = std::make_shared<Cipher>(std::span(kKey).first(keySize));
    const std::span<uint8_t> data(output.data(), kRecord);
    row(
        name + " encrypt", form, [=] { cbc->encrypt(data); }, peerCipher(name.c_str()));
    row(
        name + " decrypt", form, [=] { cbc->decrypt(data); }, peerCipher(name.c_str(), 0));
}

void oldCiphers() {
    forEachForm<crypto::AesForm>(crypto::aesForms, [](const char* form) {
        cbcRows<crypto::AesCbc>("aes-128-cbc", form, 16);
    });
    cbcRows<crypto::TripleDesCbc>("des-ede3-cbc", "portable", 24);
    const auto rc4 = std::make_shared<crypto::Rc4>(std::span(kKey).first(16));
    row("rc4", "portable", [=] { rc4->apply({output.data(), kRecord}); }, {});
}

template <class Digest>
void hashRow(const char* name, const char* form) {
    row(
        name, form, [] { (void)Digest::of(input); }, peerDigest(name));
}

void hashes() {
    forEachForm<crypto::Sha256Form>(
        crypto::sha256Forms, [](const char* form) { hashRow<crypto::Sha256>("sha256", form); });
    forEachForm<crypto::Sha1Form>(crypto::sha1Forms,
                                  [](const char* form) { hashRow<crypto::Sha1>("sha1", form); });
    hashRow<crypto::Sha384>("sha384", "portable");
    hashRow<crypto::Md5>("md5", "portable");
}

}  // namespace
}  // namespace tv::bench

int main(int argc, char** argv) {
    using namespace tv::bench;
    if (argc > 1) wanted = argv[1];
    std::printf("Records of %zu bytes, %zu-bit code\n", kRecord, 8 * sizeof(void*));
    printHead("MB/s");
    aeads();
    oldCiphers();
    hashes();
}
