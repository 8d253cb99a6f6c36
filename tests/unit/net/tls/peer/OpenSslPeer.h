// OpenSSL as the server at the other end of the engine, in memory: no socket, no thread.
#pragma once

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <memory>

#include "tests/unit/net/tls/peer/LibCrypto.h"

namespace tv::tls::test {

struct ServerOptions {
    int minVersion = TLS1_VERSION;
    int maxVersion = TLS1_3_VERSION;
    std::string key = "P-256";  // "RSA-2048" or the name of a curve
};

// One server configuration; sessions are shared by its connections.
class OpenSslServer {
public:
    explicit OpenSslServer(const ServerOptions& options);

    SSL_CTX* context() const { return context_.get(); }

private:
    std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context_;
};

}  // namespace tv::tls::test
