#include "tests/unit/net/tls/peer/OpenSslPeer.h"

#include <algorithm>

#include "tests/fixtures/TestBytes.h"
#include "tests/unit/net/tls/peer/LibCrypto.h"

namespace tv::tls::test {
namespace {

int acceptAnything(int, X509_STORE_CTX*) {
    return 1;
}

}  // namespace

OpenSslServer::OpenSslServer(const ServerOptions& o)
    : context_(SSL_CTX_new(TLS_server_method()), SSL_CTX_free) {
    SSL_CTX* ctx = context_.get();
    SSL_CTX_set_security_level(ctx, 0);
    SSL_CTX_set_min_proto_version(ctx, o.minVersion);
    SSL_CTX_set_max_proto_version(ctx, o.maxVersion);
    SSL_CTX_set_cipher_list(ctx, o.ciphers.c_str());
    if (!o.suites13.empty()) SSL_CTX_set_ciphersuites(ctx, o.suites13.c_str());
    if (!o.groups.empty()) SSL_CTX_set1_groups_list(ctx, o.groups.c_str());
    SSL_CTX_set_dh_auto(ctx, 1);
    EVP_PKEY* key = keyOf(o.key);
    const Bytes cert = certificateOf(key);
    SSL_CTX_use_certificate_ASN1(ctx, static_cast<int>(cert.size()), cert.data());
    SSL_CTX_use_PrivateKey(ctx, key);
    const unsigned char id[] = "test";
    SSL_CTX_set_session_id_context(ctx, id, sizeof id);
    SSL_CTX_set_session_cache_mode(ctx, SSL_SESS_CACHE_SERVER);
    SSL_CTX_set_options(ctx, SSL_OP_ALLOW_CLIENT_RENEGOTIATION);
    if (!o.tickets) SSL_CTX_set_options(ctx, SSL_OP_NO_TICKET);
    if (o.asksForCertificate) SSL_CTX_set_verify(ctx, SSL_VERIFY_PEER, acceptAnything);
}

Connection::Connection(const OpenSslServer& server, TlsSettings settings,
                       TestEnvironment& environment)
    : engine(std::move(settings), environment),
      ssl_(SSL_new(server.context()), SSL_free),
      toSsl_(BIO_new(BIO_s_mem())),
      fromSsl_(BIO_new(BIO_s_mem())) {
    SSL_set_bio(ssl_.get(), toSsl_, fromSsl_);
    SSL_set_accept_state(ssl_.get());
    log_.setVerbose(true);
    engine.start(log_);
}

void Connection::pump(size_t chunk) {
    for (bool moved = true; moved;) {
        moved = false;
        DataBuffer& output = engine.output();
        if (!output.empty()) {
            BIO_write(toSsl_, output.data(), static_cast<int>(output.size()));
            output.clear();
            moved = true;
        }
        if (!SSL_is_init_finished(ssl_.get())) SSL_do_handshake(ssl_.get());
        char next;
        SSL_peek(ssl_.get(), &next, 1);  // works off whatever is no application data
        std::vector<uint8_t> bytes(BIO_ctrl_pending(fromSsl_));
        if (bytes.empty()) continue;
        BIO_read(fromSsl_, bytes.data(), static_cast<int>(bytes.size()));
        for (size_t at = 0; at < bytes.size(); at += std::min(chunk, bytes.size() - at)) {
            const size_t size = std::min(chunk, bytes.size() - at);
            feed(engine, log_, {bytes.data() + at, size});
        }
        moved = true;
    }
}

bool Connection::handshake(size_t chunk) {
    pump(chunk);
    return engine.isEstablished() && SSL_is_init_finished(ssl_.get()) == 1;
}

std::string Connection::toServer(const std::string& text) {
    engine.sendApplicationData(log_, {reinterpret_cast<const uint8_t*>(text.data()), text.size()});
    std::string got(text.size() + 1, '\0');
    size_t have = 0;
    for (;;) {
        DataBuffer& output = engine.output();
        if (!output.empty()) BIO_write(toSsl_, output.data(), static_cast<int>(output.size()));
        output.clear();
        const int n = SSL_read(ssl_.get(), got.data() + have, static_cast<int>(got.size() - have));
        if (n <= 0) break;
        have += static_cast<size_t>(n);
    }
    got.resize(have);
    return got;
}

std::string Connection::toClient(const std::string& text) {
    SSL_write(ssl_.get(), text.data(), static_cast<int>(text.size()));
    pump();
    std::string got = tv::test::textOf(engine.input().bytes());
    engine.input().clear();
    return got;
}

std::string Connection::logText() {
    std::string text;
    log_.getText(text);
    return text;
}

}  // namespace tv::tls::test
