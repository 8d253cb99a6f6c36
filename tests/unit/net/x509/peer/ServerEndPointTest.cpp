// The hash that a login is bound to, for certificates that OpenSSL signed in many ways.
#include "net/x509/ServerEndPoint.h"

#include "tests/unit/net/x509/peer/MadeCertificate.h"

namespace tv::x509 {
namespace {

using namespace peer;

TEST(ServerEndPoint, isTheHashOfTheSignatureButNoneThatIsOld) {
    const char* const rsa = "RSA-2048 leaf";
    const struct {
        const char* signer;
        const EVP_MD *hash, *wanted;
        bool pss = false;
    } rows[] = {
        {rsa, EVP_md5(), EVP_sha256()},          {rsa, EVP_sha1(), EVP_sha256()},
        {rsa, EVP_sha256(), EVP_sha256()},       {rsa, EVP_sha512(), EVP_sha512()},
        {rsa, EVP_sha384(), EVP_sha384(), true}, {rsa, EVP_sha1(), EVP_sha256(), true},
        {"P-256", EVP_sha1(), EVP_sha256()},     {"P-256", EVP_sha384(), EVP_sha384()},
        {"ED25519", nullptr, EVP_sha256()},
    };
    for (const auto& row : rows) {
        const Der der = make({"a", "a", "P-256", row.signer, {}, kNow, kNow, row.hash, row.pss});
        std::string wanted(EVP_MAX_MD_SIZE, '\0');
        unsigned size = 0;
        EVP_Digest(der.data(), der.size(), reinterpret_cast<uint8_t*>(wanted.data()), &size,
                   row.wanted, nullptr);
        wanted = "tls-server-end-point:" + wanted.substr(0, size);
        EXPECT_EQ(serverEndPoint(der), Der(wanted.begin(), wanted.end())) << &row - rows;
    }
}

}  // namespace
}  // namespace tv::x509
