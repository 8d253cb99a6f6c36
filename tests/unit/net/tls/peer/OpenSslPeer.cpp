// The configuration of the server.
#include "tests/unit/net/tls/peer/OpenSslPeer.h"

namespace tv::tls::test {

OpenSslServer::OpenSslServer(const ServerOptions& o)
    : context_(SSL_CTX_new(TLS_server_method()), SSL_CTX_free) {
    SSL_CTX* ctx = context_.get();
    SSL_CTX_set_min_proto_version(ctx, o.minVersion);
    SSL_CTX_set_max_proto_version(ctx, o.maxVersion);
    SSL_CTX_set_cipher_list(ctx, "ALL:COMPLEMENTOFALL:@SECLEVEL=0");
    SSL_CTX_set_dh_auto(ctx, 1);
    const Bytes cert = certificateOf(o.key);
    SSL_CTX_use_certificate_ASN1(ctx, static_cast<int>(cert.size()), cert.data());
    SSL_CTX_use_PrivateKey(ctx, keyOf(o.key));
    const unsigned char id[] = "test";
    SSL_CTX_set_session_id_context(ctx, id, sizeof id);
}

}  // namespace tv::tls::test
