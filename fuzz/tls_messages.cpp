// Every reader of a handshake message; the first byte stands for its type.
#include "Target.h"
#include "net/tls/HandshakeMessages.h"
#include "net/tls/ServerHello.h"

void tv::take(Input input) {
    using namespace tls;
    if (input.empty()) return;
    HelloParameters offer;
    offer.serverName = "mail.example.com";
    offer.options.zeroLengthTicket = true;
    ClientHello hello;
    hello.extensions = helloExtensions(offer);
    const Input body = input.subspan(1);
    ServerHello reply;
    ServerExtensions answer;
    CertificateList list;
    EcdheParameters ecdhe;
    DheParameters dhe;
    NewSessionTicket13 ticket;
    Signature signature;
    Input context;
    int tooShort = 0;
    parseServerHello(body, hello, reply, tooShort);
    parseEncryptedExtensions(body, hello, answer);
    parseCertificate12(body, list);
    parseCertificate13(body, list);
    parseCertificateRequest13(body, context);
    parseCertificateRequest12(body, Version::Tls12);
    parseServerKeyExchange(body, Version::Tls12, ecdhe);
    parseServerKeyExchange(body, Version::Tls10, dhe);
    parseNewSessionTicket13(body, ticket);
    parseCertificateStatus12(body);
    parseNewSessionTicket12(body);
    parseCertificateVerify(body, signature);
}
