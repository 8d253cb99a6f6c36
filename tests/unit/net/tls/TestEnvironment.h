// Random, draws and clock for the engine under test, and bytes into it.
#pragma once

#include <algorithm>
#include <vector>

#include "net/tls/TlsProtocol.h"

namespace tv::tls::test {

// Deterministic from its seed; the clock stands where it is put.
class TestEnvironment final : public TlsEnvironment {
public:
    bool random(std::span<uint8_t> out) override {
        if (out.size() == nextRandom.size()) {
            std::copy(nextRandom.begin(), nextRandom.end(), out.begin());
            return randomWorks;
        }
        for (uint8_t& byte : out) {
            byte = static_cast<uint8_t>(next() >> 24);
        }
        return randomWorks;
    }
    uint32_t draw(uint32_t below) override { return static_cast<uint32_t>(next() >> 16) % below; }
    uint64_t wallClockMs() override { return nowMs; }

    bool randomWorks = true;
    std::vector<uint8_t> nextRandom;  // answers every request of its size
    uint64_t nowMs = 1795000000000;
    uint64_t state = 1;

private:
    uint64_t next() { return state = state * 6364136223846793005 + 1442695040888963407; }
};

// As if the peer had sent them, in reads as long as the engine has room for.
inline void feed(TlsProtocol& engine, LogBase& log, std::span<const uint8_t> bytes) {
    while (const size_t size = std::min(bytes.size(), engine.room().size())) {
        std::copy_n(bytes.begin(), size, engine.room().begin());
        engine.receive(log, size);
        bytes = bytes.subspan(size);
    }
}

}  // namespace tv::tls::test
