// SMTP as far as one client needs it; TLS by the scripted server of the tests, with our own keys.
#include "selftest/SmtpSink.h"

#include <memory>
#include <stdexcept>

#include "tests/unit/net/tls/ScriptedTlsServer.h"

namespace selftest {
namespace {

using Connection = tv::test::LoopbackServer::Connection;
using namespace tv::tls::test;

// One suite each: TLS_AES_128_GCM_SHA256 and ECDHE_ECDSA_WITH_AES_128_GCM_SHA256, over x25519.
ServerSetup setupOf(Security security) {
    ServerSetup setup;
    if (security == Security::StartTls12) {
        setup.version = tv::tls::Version::Tls12;
        setup.suite = 0xC02B;
    }
    return setup;
}

// One connection's bytes, through TLS once that has begun.
class Channel {
public:
    explicit Channel(Connection& peer) : peer_(peer) {}

    // The whole handshake; throws where the client does something wrong.
    void startTls(Security security) {
        tls_ = std::make_unique<ScriptedTlsServer>(setupOf(security));
        while (tls_->clientFinished == 0 && pass()) {
        }
    }
    void send(std::string_view text) {
        if (!tls_) return peer_.send(text);
        tls_->send(kData, tv::test::bytesIn(text));
        flush();
    }
    std::string receiveUntil(std::string_view end) {
        if (!tls_) return peer_.receiveUntil(end);
        while (!tls_->received.ends_with(end) && pass()) {
        }
        return std::exchange(tls_->received, {});
    }

private:
    bool pass() {
        const std::string bytes = peer_.receive();
        tls_->receive(tv::test::bytesIn(bytes));
        flush();
        return !bytes.empty();
    }
    void flush() { peer_.send(tv::test::textOf(tls_->take())); }

    Connection& peer_;
    std::unique_ptr<ScriptedTlsServer> tls_;
};

using Keep = std::function<void(const std::string& message)>;

// Keeps each message behind its envelope, before it says that it has it.
void converse(Channel& channel, Security security, const Keep& keep) {
    bool mayStartTls = security == Security::StartTls12;
    std::string message;
    channel.send("220 sink.test\r\n");
    for (std::string line = "."; !line.empty() && line != "QUIT\r\n";) {
        line = channel.receiveUntil("\r\n");
        if (line.starts_with("EHLO")) {
            channel.send(mayStartTls ? "250-sink.test\r\n250 STARTTLS\r\n" : "250 sink.test\r\n");
        } else if (line == "STARTTLS\r\n" && mayStartTls) {
            channel.send("220 go ahead\r\n");
            channel.startTls(security);
            mayStartTls = false;
        } else if (line == "DATA\r\n") {
            if (mayStartTls) throw std::runtime_error("a message without STARTTLS");
            channel.send("354 go ahead\r\n");
            keep(message + channel.receiveUntil("\r\n.\r\n"));
            channel.send("250 taken\r\n");
        } else {
            message = (line.starts_with("MAIL") ? "" : message) + line;
            channel.send("250 ok\r\n");
        }
    }
}

}  // namespace

void SmtpSink::serve(Connection& peer) {
    try {
        Channel channel(peer);
        if (security_ == Security::ImplicitTls13) channel.startTls(security_);
        converse(channel, security_, [this](const std::string& message) {
            const std::lock_guard guard(lock_);
            messages_.push_back(message);
        });
    } catch (const std::exception& e) {
        const std::lock_guard guard(lock_);
        complaints_.push_back(e.what());
    }
}

}  // namespace selftest
