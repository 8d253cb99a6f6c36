#include "tests/unit/net/tls/peer/LibCrypto.h"

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/hmac.h>
#include <openssl/kdf.h>
#include <openssl/param_build.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <map>
#include <stdexcept>

#include "base/ByteWriter.h"

namespace tv::tls::test {
namespace {

void must(bool ok, const char* what) {
    if (!ok) throw std::runtime_error(what);
}

using Bn = std::unique_ptr<BIGNUM, decltype(&BN_free)>;

Bn number(View bytes) {
    return {BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), nullptr), BN_free};
}

Bytes bytesOf(const BIGNUM* n) {
    Bytes out(static_cast<size_t>(BN_num_bytes(n)));
    BN_bn2bin(n, out.data());
    return out;
}

const EVP_CIPHER* aes(View key, bool gcm) {
    if (gcm) return key.size() == 16 ? EVP_aes_128_gcm() : EVP_aes_256_gcm();
    return key.size() == 16 ? EVP_aes_128_cbc() : EVP_aes_256_cbc();
}

using CipherContext = std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;

CipherContext cipher(bool encrypt, bool gcm, View key, View iv) {
    CipherContext ctx(EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
    EVP_CipherInit_ex(ctx.get(), aes(key, gcm), nullptr, key.data(), iv.data(), encrypt ? 1 : 0);
    EVP_CIPHER_CTX_set_padding(ctx.get(), 0);
    return ctx;
}

void update(EVP_CIPHER_CTX* ctx, uint8_t* out, View in) {
    int n = 0;
    must(in.empty() || EVP_CipherUpdate(ctx, out, &n, in.data(), static_cast<int>(in.size())) == 1,
         "cipher");
}

Bytes derOf(X509* cert) {
    uint8_t* der = nullptr;
    const int size = i2d_X509(cert, &der);
    must(size > 0, "certificate");
    Bytes out(der, der + size);
    OPENSSL_free(der);
    return out;
}

Bytes certified(EVP_PKEY* key, EVP_PKEY* signer, const char* usage = nullptr) {
    const std::unique_ptr<X509, decltype(&X509_free)> cert(X509_new(), X509_free);
    X509_set_version(cert.get(), 2);
    ASN1_INTEGER_set(X509_get_serialNumber(cert.get()), 1);
    // Good at whatever moment a test has.
    ASN1_TIME_set_string(X509_getm_notBefore(cert.get()), "20200101000000Z");
    ASN1_TIME_set_string(X509_getm_notAfter(cert.get()), "21200101000000Z");
    must(X509_set_pubkey(cert.get(), key) == 1, "public key");
    X509_NAME* name = X509_get_subject_name(cert.get());
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>("server.test"), -1, -1, 0);
    X509_set_issuer_name(cert.get(), name);
    if (usage) {
        const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> extension(
            X509V3_EXT_conf_nid(nullptr, nullptr, NID_key_usage, usage), X509_EXTENSION_free);
        must(X509_add_ext(cert.get(), extension.get(), -1) == 1, "key usage");
    }
    must(X509_sign(cert.get(), signer, EVP_sha256()) > 0, "signing the certificate");
    return derOf(cert.get());
}

const char* hashOfScheme(uint16_t scheme) {
    if (scheme == 0x0804) return "SHA256";
    if (scheme == 0x0805) return "SHA384";
    if (scheme == 0x0806) return "SHA512";
    static const char* const names[] = {"", "MD5", "SHA1", "", "SHA256", "SHA384", "SHA512"};
    return names[scheme >> 8];
}

}  // namespace

Bytes joined(std::initializer_list<View> parts) {
    Bytes out;
    for (const View part : parts) {
        out.insert(out.end(), part.begin(), part.end());
    }
    return out;
}

Bytes randomBytes(size_t size) {
    Bytes out(size);
    RAND_bytes(out.data(), static_cast<int>(size));
    return out;
}

Bytes digestOf(const char* hash, View data) {
    uint8_t out[EVP_MAX_MD_SIZE];
    size_t size = sizeof out;
    must(EVP_Q_digest(nullptr, hash, nullptr, data.data(), data.size(), out, &size) == 1, hash);
    return {out, out + size};
}

Bytes hmacOf(const char* hash, View key, View data) {
    uint8_t out[EVP_MAX_MD_SIZE];
    size_t size = 0;
    static const uint8_t kNone = 0;  // an empty key must not be a null pointer
    EVP_Q_mac(nullptr, "HMAC", nullptr, hash, nullptr, key.empty() ? &kNone : key.data(),
              key.size(), data.data(), data.size(), out, sizeof out, &size);
    must(size != 0, hash);
    return {out, out + size};
}

Bytes prf(const char* hash, View secret, const std::string& label, View seed, size_t size) {
    EVP_KDF* kdf = EVP_KDF_fetch(nullptr, "TLS1-PRF", nullptr);
    EVP_KDF_CTX* ctx = EVP_KDF_CTX_new(kdf);
    EVP_KDF_free(kdf);
    const Bytes key(secret.begin(), secret.end());
    const Bytes all =
        joined({{reinterpret_cast<const uint8_t*>(label.data()), label.size()}, seed});
    const OSSL_PARAM params[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, const_cast<char*>(hash), 0),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SECRET, const_cast<uint8_t*>(key.data()),
                                          key.size()),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SEED, const_cast<uint8_t*>(all.data()),
                                          all.size()),
        OSSL_PARAM_construct_end()};
    Bytes out(size);
    const int ok = EVP_KDF_derive(ctx, out.data(), size, params);
    EVP_KDF_CTX_free(ctx);
    must(ok == 1, "PRF");
    return out;
}

Bytes expandLabel(const char* hash, View secret, const std::string& label, View context,
                  size_t size) {
    ByteWriter info;
    info.u16(size);
    info.vector(1, [&] { info.append("tls13 " + label); });
    info.vector8(context);
    info.u8(1);  // the first block of HKDF-Expand is all that is needed
    Bytes out = hmacOf(hash, secret, info.bytes());
    out.resize(size);
    return out;
}

Bytes gcmSeal(View key, View nonce, View additional, View text) {
    const CipherContext ctx = cipher(true, true, key, nonce);
    Bytes out(text.size() + 16);
    update(ctx.get(), nullptr, additional);
    update(ctx.get(), out.data(), text);
    int n = 0;
    EVP_CipherFinal_ex(ctx.get(), out.data(), &n);
    EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_AEAD_GET_TAG, 16, out.data() + text.size());
    return out;
}

bool gcmOpen(View key, View nonce, View additional, View sealed, Bytes& text) {
    if (sealed.size() < 16) return false;
    const CipherContext ctx = cipher(false, true, key, nonce);
    text.resize(sealed.size() - 16);
    Bytes tag(sealed.end() - 16, sealed.end());
    update(ctx.get(), nullptr, additional);
    update(ctx.get(), text.data(), sealed.first(text.size()));
    EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_AEAD_SET_TAG, 16, tag.data());
    int n = 0;
    uint8_t rest[16];
    return EVP_CipherFinal_ex(ctx.get(), rest, &n) == 1;
}

Bytes cbc(bool encrypt, View key, View iv, View data) {
    const CipherContext ctx = cipher(encrypt, false, key, iv);
    Bytes out(data.size());
    update(ctx.get(), out.data(), data);
    return out;
}

Pkey groupKey(uint16_t group) {
    static const std::map<uint16_t, const char*> names = {
        {23, "P-256"},           {24, "P-384"},           {25, "P-521"},
        {26, "brainpoolP256r1"}, {27, "brainpoolP384r1"}, {28, "brainpoolP512r1"}};
    EVP_PKEY* key =
        group == 29 ? EVP_PKEY_Q_keygen(nullptr, nullptr, "X25519") : EVP_EC_gen(names.at(group));
    return {key, EVP_PKEY_free};
}

Bytes publicOf(EVP_PKEY* key) {
    uint8_t* bytes = nullptr;
    const size_t size = EVP_PKEY_get1_encoded_public_key(key, &bytes);
    Bytes out(bytes, bytes + size);
    OPENSSL_free(bytes);
    return out;
}

Bytes sharedWith(EVP_PKEY* key, View peer) {
    const Pkey other(EVP_PKEY_new(), EVP_PKEY_free);
    EVP_PKEY_copy_parameters(other.get(), key);
    must(EVP_PKEY_set1_encoded_public_key(other.get(), peer.data(), peer.size()) == 1, "share");
    EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new(key, nullptr);
    EVP_PKEY_derive_init(ctx);
    EVP_PKEY_derive_set_peer(ctx, other.get());
    Bytes out(128);
    size_t size = out.size();
    const int ok = EVP_PKEY_derive(ctx, out.data(), &size);
    EVP_PKEY_CTX_free(ctx);
    must(ok == 1, "derive");
    out.resize(size);
    return out;
}

Bytes signatureOf(EVP_PKEY* key, uint16_t scheme, View data) {
    const bool rsa = EVP_PKEY_is_a(key, "RSA") == 1;
    const char* hash = rsa ? "MD5-SHA1" : "SHA1";
    if (scheme != 0) hash = hashOfScheme(scheme);
    EVP_MD_CTX* ctx = EVP_MD_CTX_new();
    EVP_PKEY_CTX* keyContext = nullptr;
    EVP_DigestSignInit_ex(ctx, &keyContext, hash, nullptr, nullptr, key, nullptr);
    if (scheme >> 8 == 8) {
        EVP_PKEY_CTX_set_rsa_padding(keyContext, RSA_PKCS1_PSS_PADDING);
        EVP_PKEY_CTX_set_rsa_pss_saltlen(keyContext, RSA_PSS_SALTLEN_DIGEST);
    }
    Bytes out(1024);
    size_t size = out.size();
    const int ok = EVP_DigestSign(ctx, out.data(), &size, data.data(), data.size());
    EVP_MD_CTX_free(ctx);
    must(ok == 1, "signature");
    out.resize(size);
    return out;
}

Bytes rsaDecrypt(EVP_PKEY* key, View sealed) {
    EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new(key, nullptr);
    EVP_PKEY_decrypt_init(ctx);
    EVP_PKEY_CTX_set_rsa_padding(ctx, RSA_PKCS1_PADDING);
    Bytes out(1024);
    size_t size = out.size();
    const int ok = EVP_PKEY_decrypt(ctx, out.data(), &size, sealed.data(), sealed.size());
    EVP_PKEY_CTX_free(ctx);
    must(ok == 1, "premaster");
    out.resize(size);
    return out;
}

Bytes powerModulo(View base, View exponent, View modulus) {
    BN_CTX* ctx = BN_CTX_new();
    const Bn result(BN_new(), BN_free);
    BN_mod_exp(result.get(), number(base).get(), number(exponent).get(), number(modulus).get(),
               ctx);
    BN_CTX_free(ctx);
    return bytesOf(result.get());
}

Bytes dhPrime(int bits) {
    const Bn p(bits == 768    ? BN_get_rfc2409_prime_768(nullptr)
               : bits == 1024 ? BN_get_rfc2409_prime_1024(nullptr)
                              : BN_get_rfc3526_prime_2048(nullptr),
               BN_free);
    return bytesOf(p.get());
}

EVP_PKEY* keyOf(const std::string& kind) {
    static auto& keys = *new std::map<std::string, EVP_PKEY*>;  // until the process ends
    EVP_PKEY*& key = keys[kind];
    if (!key) {
        key = kind.rfind("RSA-", 0) == 0
                  ? EVP_RSA_gen(static_cast<unsigned>(std::stoul(kind.substr(4))))
                  : EVP_EC_gen(kind.c_str());
    }
    return key;
}

Bytes certificateOf(EVP_PKEY* key) {
    static auto& made = *new std::map<EVP_PKEY*, Bytes>;
    Bytes& der = made[key];
    if (der.empty()) der = certified(key, key);
    return der;
}

Bytes signingCertificateOf(EVP_PKEY* key) {
    return certified(key, key, "digitalSignature");
}

Bytes rsaCertificate(View modulus, View exponent) {
    OSSL_PARAM_BLD* builder = OSSL_PARAM_BLD_new();
    const Bn n = number(modulus), e = number(exponent);
    OSSL_PARAM_BLD_push_BN(builder, OSSL_PKEY_PARAM_RSA_N, n.get());
    OSSL_PARAM_BLD_push_BN(builder, OSSL_PKEY_PARAM_RSA_E, e.get());
    OSSL_PARAM* params = OSSL_PARAM_BLD_to_param(builder);
    EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr);
    EVP_PKEY* key = nullptr;
    EVP_PKEY_fromdata_init(ctx);
    const int ok = EVP_PKEY_fromdata(ctx, &key, EVP_PKEY_PUBLIC_KEY, params);
    EVP_PKEY_CTX_free(ctx);
    OSSL_PARAM_free(params);
    OSSL_PARAM_BLD_free(builder);
    must(ok == 1, "RSA key");
    const Pkey owner(key, EVP_PKEY_free);
    return certified(key, keyOf("P-256"));
}

}  // namespace tv::tls::test
