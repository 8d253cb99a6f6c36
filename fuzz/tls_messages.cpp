// Every reader of a handshake message, chosen by the first byte.
#include <cstdint>
#include <span>

#include "net/tls/HandshakeMessages.h"
#include "net/tls/ServerHello.h"

using namespace tv::tls;

namespace {

ClientHello fullOffer() {
    HelloParameters parameters;
    parameters.serverName = "mail.example.com";
    parameters.options.zeroLengthTicket = true;
    ClientHello hello;
    hello.extensions = helloExtensions(parameters);
    return hello;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    static const ClientHello hello = fullOffer();
    const std::span<const uint8_t> body(data + 1, size - 1);
    CertificateList list;
    switch (data[0] % 12) {
        case 0: {
            ServerHello reply;
            int tooShort = 0;
            parseServerHello(body, hello, reply, tooShort);
            break;
        }
        case 1: {
            ServerExtensions answer;
            parseEncryptedExtensions(body, hello, answer);
            break;
        }
        case 2:
            parseCertificate12(body, list);
            break;
        case 3:
            parseCertificate13(body, list);
            break;
        case 4: {
            std::span<const uint8_t> context;
            parseCertificateRequest13(body, context);
            break;
        }
        case 5:
            parseCertificateRequest12(body, Version::Tls12);
            break;
        case 6: {
            EcdheParameters p;
            parseServerKeyExchange(body, Version::Tls12, p);
            break;
        }
        case 7: {
            DheParameters p;
            parseServerKeyExchange(body, Version::Tls10, p);
            break;
        }
        case 8: {
            NewSessionTicket13 ticket;
            parseNewSessionTicket13(body, ticket);
            break;
        }
        case 9:
            parseCertificateStatus12(body);
            break;
        case 10:
            parseNewSessionTicket12(body);
            break;
        default: {
            Signature signature;
            parseCertificateVerify(body, signature);
            break;
        }
    }
    return 0;
}
