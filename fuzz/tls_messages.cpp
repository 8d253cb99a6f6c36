// Every reader of a handshake message, chosen by the first byte.
#include <functional>

#include "Target.h"
#include "net/tls/HandshakeMessages.h"
#include "net/tls/ServerHello.h"

void tv::take(Input input) {
    using namespace tls;
    if (input.empty()) return;
    HelloParameters parameters;
    parameters.serverName = "mail.example.com";
    parameters.options.zeroLengthTicket = true;
    ClientHello hello;
    hello.extensions = helloExtensions(parameters);
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
    const std::function<void()> readers[] = {
        [&] { parseServerHello(body, hello, reply, tooShort); },
        [&] { parseEncryptedExtensions(body, hello, answer); },
        [&] { parseCertificate12(body, list); },
        [&] { parseCertificate13(body, list); },
        [&] { parseCertificateRequest13(body, context); },
        [&] { parseCertificateRequest12(body, Version::Tls12); },
        [&] { parseServerKeyExchange(body, Version::Tls12, ecdhe); },
        [&] { parseServerKeyExchange(body, Version::Tls10, dhe); },
        [&] { parseNewSessionTicket13(body, ticket); },
        [&] { parseCertificateStatus12(body); },
        [&] { parseNewSessionTicket12(body); },
        [&] { parseCertificateVerify(body, signature); },
    };
    readers[input[0] % std::size(readers)]();
}
