#include "tests/unit/net/tls/peer/LibCrypto.h"

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/param_build.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>

#include <stdexcept>

#include "tests/unit/net/x509/peer/MadeCertificate.h"

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

// Good at whatever moment a test has.
x509::peer::Spec selfSigned(const std::string& key) {
    x509::peer::Spec spec{"server.test", "server.test", key, key, {}};
    spec.notBefore = 0;
    spec.notAfter += 100 * 365 * x509::peer::kDay;
    return spec;
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

EVP_PKEY* keyOf(const std::string& name) {
    return x509::peer::keyNamed(name);
}

Bytes certificateOf(const std::string& key) {
    static auto& made = *new std::map<std::string, Bytes>;
    Bytes& der = made[key];
    if (der.empty()) der = x509::peer::make(selfSigned(key));
    return der;
}

Bytes signingCertificateOf(const std::string& key) {
    x509::peer::Spec spec = selfSigned(key);
    spec.extensions[NID_key_usage] = "digitalSignature";
    return x509::peer::make(spec);
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
    x509::peer::Spec spec = selfSigned("P-256");
    spec.otherKey = key;
    const Bytes der = x509::peer::make(spec);
    EVP_PKEY_free(key);
    return der;
}

}  // namespace tv::tls::test
