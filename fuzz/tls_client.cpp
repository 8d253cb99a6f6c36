// The whole TLS client against arbitrary bytes of a server, from a fixed random source. The first
// byte chooses how the input is cut.
#include "Target.h"
#include "log/LogNull.h"
#include "net/tls/TlsProtocol.h"

namespace {

class FixedEnvironment final : public tv::tls::TlsEnvironment {
public:
    bool random(std::span<uint8_t> out) override {
        for (uint8_t& byte : out) {
            byte = static_cast<uint8_t>(state_ = state_ * 1103515245 + 12345);
        }
        return true;
    }
    uint32_t draw(uint32_t) override { return 0; }
    uint64_t wallClockMs() override { return 1795254300000; }

private:
    uint32_t state_ = 1;
};

}  // namespace

void tv::take(Input input) {
    if (input.empty()) return;
    const size_t piece = input[0] % 64 + 1;
    FixedEnvironment environment;
    tls::TlsSettings settings;
    settings.serverName = "mail.example.com";
    tls::TlsProtocol engine(settings, environment);
    LogNull log;
    engine.start(log);
    for (size_t at = 1; at < input.size(); at += piece) {
        const size_t n = std::min(piece, input.size() - at);
        std::copy_n(input.data() + at, n, engine.room().begin());
        if (!engine.receive(log, n)) break;
        engine.output().clear();
    }
    require(!engine.isEstablished());  // nobody without the keys gets this far
}
