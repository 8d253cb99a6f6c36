// The whole TLS client against arbitrary bytes of a server, from a fixed random source. The first
// byte chooses how the input is cut.
#include "Target.h"
#include "log/LogNull.h"
#include "net/tls/TlsProtocol.h"

class FixedEnvironment final : public tv::tls::TlsEnvironment {
    bool random(std::span<uint8_t> out) override {
        for (uint8_t& byte : out) {
            byte = static_cast<uint8_t>(state_ = state_ * 1103515245 + 12345);
        }
        return true;
    }
    uint32_t draw(uint32_t) override { return 0; }
    uint64_t wallClockMs() override { return 1795254300000; }

    uint32_t state_ = 1;
};

void tv::take(Input input) {
    if (input.empty()) return;
    FixedEnvironment environment;
    tls::TlsSettings settings;
    settings.serverName = "mail.example.com";
    tls::TlsProtocol engine(settings, environment);
    LogNull log;
    engine.start(log);
    for (Input rest = input.subspan(1); !rest.empty();) {
        const size_t piece = std::min<size_t>(input[0] % 64 + 1, rest.size());
        std::ranges::copy(rest.first(piece), engine.room().begin());
        if (!engine.receive(log, piece)) break;
        engine.output().clear();
        rest = rest.subspan(piece);
    }
    require(!engine.isEstablished());  // nobody without the keys gets this far
}
