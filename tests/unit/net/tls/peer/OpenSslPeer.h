// OpenSSL as a server, in memory: no socket, no thread.
#pragma once

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <memory>

#include "tests/unit/net/x509/peer/MadeCertificate.h"

namespace tv::tls::test {

// A self-signed certificate for a key by name, in DER, good at whatever moment a test has; usage:
// what its key usage names. Made once.
inline std::vector<uint8_t> certificateOf(const std::string& key, const std::string& usage = "") {
    static auto& made = *new std::map<std::string, std::vector<uint8_t>>;
    std::vector<uint8_t>& der = made[key + usage];
    if (!der.empty()) return der;
    x509::peer::Spec spec{"server.test", "server.test", key, key, {}};
    spec.notBefore = 0;
    spec.notAfter += 100 * 365 * x509::peer::kDay;
    if (!usage.empty()) spec.extensions[NID_key_usage] = usage;
    return der = x509::peer::make(spec);
}

struct ServerOptions {
    int minVersion = TLS1_VERSION;
    int maxVersion = TLS1_3_VERSION;
    std::string key = "P-256";  // "RSA-2048" or the name of a curve
};

// One server configuration; sessions are shared by its connections.
class OpenSslServer {
public:
    explicit OpenSslServer(const ServerOptions& o) {
        SSL_CTX_set_min_proto_version(context(), o.minVersion);
        SSL_CTX_set_max_proto_version(context(), o.maxVersion);
        SSL_CTX_set_cipher_list(context(), "ALL:COMPLEMENTOFALL:@SECLEVEL=0");
        SSL_CTX_set_dh_auto(context(), 1);
        const std::vector<uint8_t> cert = certificateOf(o.key);
        SSL_CTX_use_certificate_ASN1(context(), static_cast<int>(cert.size()), cert.data());
        SSL_CTX_use_PrivateKey(context(), x509::peer::keyNamed(o.key));
        SSL_CTX_set_session_id_context(context(), cert.data(), 4);
    }
    SSL_CTX* context() const { return context_.get(); }

private:
    std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context_{SSL_CTX_new(TLS_server_method()),
                                                               SSL_CTX_free};
};

}  // namespace tv::tls::test
