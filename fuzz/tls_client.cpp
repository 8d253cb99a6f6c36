// The whole TLS client against arbitrary bytes of a server, from a fixed random source. The first
// byte chooses how the input is cut.
#include <algorithm>
#include <cstdint>
#include <span>

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

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const size_t piece = data[0] % 64 + 1;
    std::span<const uint8_t> rest(data + 1, size - 1);
    FixedEnvironment environment;
    tv::tls::TlsSettings settings;
    settings.serverName = "mail.example.com";
    tv::tls::TlsProtocol engine(settings, environment);
    tv::LogNull log;
    engine.start(log);
    while (!rest.empty()) {
        const size_t n = std::min(piece, rest.size());
        std::copy_n(rest.begin(), n, engine.room().begin());
        if (!engine.receive(log, n)) break;
        engine.output().clear();
        rest = rest.subspan(n);
    }
    // Nobody without the keys gets this far.
    if (engine.isEstablished()) __builtin_trap();
    return 0;
}
