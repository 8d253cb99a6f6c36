// The hash that a login is bound to, for certificates that OpenSSL signed in many ways.
#include "net/x509/ServerEndPoint.h"

#include <gtest/gtest.h>

#include "tests/unit/net/x509/peer/MadeCertificate.h"

namespace tv::x509 {
namespace {

using namespace peer;

TEST(ServerEndPoint, isTheHashOfTheSignatureButNoneThatIsOld) {
    const struct {
        const char* key;
        const EVP_MD *signature, *wanted;
        bool pss = false;
    } rows[] = {
        {"RSA-1024", EVP_md5(), EVP_sha256()},
        {"RSA-1024", EVP_sha1(), EVP_sha256()},
        {"RSA-1024", EVP_sha256(), EVP_sha256()},
        {"RSA-1024", EVP_sha512(), EVP_sha512()},
        {"RSA-1024", EVP_sha384(), EVP_sha384(), true},
        {"RSA-1024", EVP_sha1(), EVP_sha256(), true},
        {"P-256", EVP_sha1(), EVP_sha256()},
        {"P-256", EVP_sha384(), EVP_sha384()},
        {"ED25519", nullptr, EVP_sha256()},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.key);
        const Der plain = make({"a", "a", "P-256", "P-256", {}});
        const unsigned char* at = plain.data();
        const CertificateOwner cert(d2i_X509(nullptr, &at, static_cast<long>(plain.size())),
                                    X509_free);
        EVP_PKEY* ed25519 = EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519");
        EVP_MD_CTX* md = EVP_MD_CTX_new();
        EVP_PKEY_CTX* parameters = nullptr;
        EVP_DigestSignInit(md, &parameters, row.signature, nullptr,
                           row.signature ? keyNamed(row.key) : ed25519);
        if (row.pss) EVP_PKEY_CTX_set_rsa_padding(parameters, RSA_PKCS1_PSS_PADDING);
        ASSERT_GT(X509_sign_ctx(cert.get(), md), 0);
        EVP_MD_CTX_free(md);
        EVP_PKEY_free(ed25519);
        Der der(static_cast<size_t>(i2d_X509(cert.get(), nullptr)));
        unsigned char* out = der.data();
        i2d_X509(cert.get(), &out);

        unsigned char hash[EVP_MAX_MD_SIZE];
        unsigned size = 0;
        X509_digest(cert.get(), row.wanted, hash, &size);
        const std::string wanted =
            "tls-server-end-point:" + std::string(reinterpret_cast<char*>(hash), size);
        EXPECT_EQ(serverEndPoint(der), Der(wanted.begin(), wanted.end()));
    }
}

}  // namespace
}  // namespace tv::x509
