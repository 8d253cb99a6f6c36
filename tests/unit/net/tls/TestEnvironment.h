// Random, draws and clock for the engine under test, bytes into it, and what its hello says.
#pragma once

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "base/ByteReader.h"
#include "net/tls/TlsProtocol.h"

namespace tv::tls::test {

using Bytes = std::vector<uint8_t>;
using View = std::span<const uint8_t>;

inline Bytes bytesIn(View view) {
    return {view.begin(), view.end()};
}

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
    Bytes nextRandom;  // answers every request of its size
    uint64_t nowMs = 1795000000000;
    uint64_t state = 1;

private:
    uint64_t next() { return state = state * 6364136223846793005 + 1442695040888963407; }
};

// As if the peer had sent them, in reads as long as the engine has room for.
inline void feed(TlsProtocol& engine, LogBase& log, View bytes) {
    while (const size_t size = std::min(bytes.size(), engine.room().size())) {
        std::copy_n(bytes.begin(), size, engine.room().begin());
        engine.receive(log, size);
        bytes = bytes.subspan(size);
    }
}

struct Extension {
    uint16_t type;
    Bytes body;
    bool operator==(const Extension&) const = default;
};

// The body of the extension, or nullptr.
inline const Bytes* find(const std::vector<Extension>& all, uint16_t type) {
    const auto at = std::ranges::find(all, type, &Extension::type);
    return at == all.end() ? nullptr : &at->body;
}

struct Hello {
    uint16_t version = 0;
    Bytes random, sessionId;
    std::vector<uint16_t> suites;
    std::vector<Extension> exts;
    bool operator==(const Hello&) const = default;
};

// Throws for what is no body of a ClientHello.
inline Hello helloIn(View body) {
    ByteReader r(body);
    Hello hello{r.u16(), bytesIn(r.bytes(32)), bytesIn(r.vector8()), {}, {}};
    for (ByteReader s(r.vector16()); !s.atEnd();) {
        hello.suites.push_back(s.u16());
    }
    const bool uncompressed = bytesIn(r.vector8()) == Bytes{0};
    for (ByteReader e(r.vector16()); !e.atEnd();) {
        const uint16_t type = e.u16();
        if (find(hello.exts, type)) throw std::runtime_error("an extension stands twice");
        hello.exts.push_back({type, bytesIn(e.vector16())});
    }
    if (!uncompressed || !r.complete()) throw std::runtime_error("no ClientHello");
    return hello;
}

}  // namespace tv::tls::test
