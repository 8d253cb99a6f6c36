// OpenSSL as the server at the other end of the engine, in memory: no socket, no thread.
#pragma once

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "log/tvLogger.h"
#include "net/tls/TlsProtocol.h"
#include "tests/fixtures/Record.h"
#include "tests/unit/net/tls/TestEnvironment.h"

namespace tv::tls::test {

struct ServerOptions {
    int minVersion = TLS1_VERSION;
    int maxVersion = TLS1_3_VERSION;
    std::string key = "P-256";  // "RSA-2048" or the name of a curve
    std::string ciphers = "ALL:COMPLEMENTOFALL:@SECLEVEL=0";
    std::string suites13;
    std::string groups;
    bool asksForCertificate = false;
    bool tickets = true;
};

// One server configuration; sessions are shared by its connections.
class OpenSslServer {
public:
    explicit OpenSslServer(const ServerOptions& options);

    SSL_CTX* context() const { return context_.get(); }

private:
    std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context_{nullptr, SSL_CTX_free};
};

// One connection between the engine and the server.
class Connection {
public:
    Connection(const OpenSslServer& server, TlsSettings settings, TestEnvironment& environment);

    // Moves bytes both ways until nothing moves. chunk: how many reach the engine at once.
    void pump(size_t chunk = SIZE_MAX);
    bool handshake(size_t chunk = SIZE_MAX);
    // Sends through the engine and returns what the server read, and the other way round.
    std::string toServer(const std::string& text);
    std::string toClient(const std::string& text);
    std::string logText();

    SSL* ssl() const { return ssl_.get(); }
    TlsProtocol engine;

private:
    std::unique_ptr<SSL, decltype(&SSL_free)> ssl_{nullptr, SSL_free};
    BIO* toSsl_;    // owned by the SSL
    BIO* fromSsl_;  // owned by the SSL
    _tvLogger log_;
    tv::test::Recorded recorded_{log_};
};

}  // namespace tv::tls::test
