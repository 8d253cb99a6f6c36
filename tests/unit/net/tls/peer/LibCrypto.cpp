#include "tests/unit/net/tls/peer/LibCrypto.h"

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/param_build.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <map>
#include <stdexcept>

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
                  : EVP_EC_gen(kind.substr(0, kind.find('#')).c_str());
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
