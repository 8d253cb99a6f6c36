// Keys, certificates and signatures of libcrypto, for every scheme that there is.
#include <openssl/rsa.h>

#include "tests/unit/net/tls/ScriptedTlsServer.h"
#include "tests/unit/net/tls/peer/OpenSslPeer.h"

namespace tv::tls::test {

Bytes serverCertificate(const std::string& key) {
    return certificateOf(key);
}

Bytes signatureOf(const std::string& name, uint16_t scheme, View data) {
    EVP_PKEY* const key = x509::peer::keyNamed(name);
    const char* const hashes[] = {"", "MD5", "SHA1", "", "SHA256", "SHA384", "SHA512"};
    const bool pss = scheme >> 8 == 8;
    const char* hash = hashes[pss ? scheme & 7 : scheme >> 8];
    if (scheme == 0) hash = EVP_PKEY_is_a(key, "RSA") ? "MD5-SHA1" : "SHA1";
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> ctx(EVP_MD_CTX_new(),
                                                                      EVP_MD_CTX_free);
    EVP_PKEY_CTX* keyContext = nullptr;
    EVP_DigestSignInit_ex(ctx.get(), &keyContext, hash, nullptr, nullptr, key, nullptr);
    if (pss) {
        EVP_PKEY_CTX_set_rsa_padding(keyContext, RSA_PKCS1_PSS_PADDING);
        EVP_PKEY_CTX_set_rsa_pss_saltlen(keyContext, RSA_PSS_SALTLEN_DIGEST);
    }
    Bytes out(1024);
    size_t size = out.size();
    must(EVP_DigestSign(ctx.get(), out.data(), &size, data.data(), data.size()) == 1, "signature");
    out.resize(size);
    return out;
}

}  // namespace tv::tls::test
