// What the tests of this room and of those below it share: a network with a log that is read, and a
// monitor that says when to stop.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "base/Ascii.h"
#include "base/Failure.h"
#include "log/tvLogger.h"
#include "net/stream/CallContext.h"
#include "net/stream/ProgressMonitor.h"
#include "tests/fixtures/FakeNet.h"
#include "tests/fixtures/Record.h"

namespace tv::test {

inline std::vector<std::string> split(std::string_view text, std::string_view mark) {
    std::vector<std::string> parts;
    while (!text.empty()) {
        const size_t end = std::min(text.find(mark), text.size());
        parts.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + mark.size(), text.size()));
    }
    return parts;
}

inline std::string textOf(LogBase& log) {
    std::string text;
    log.getText(text);
    return text;
}

// "text | text | !text": what is in the log, and what is not.
inline void expectLogged(LogBase& log, std::string_view wanted) {
    const std::string all = textOf(log);
    for (const std::string& text : split(wanted, " | ")) {
        const bool isIn = text[0] != '!';
        EXPECT_EQ(all.find(text.substr(isIn ? 0 : 1)) != std::string::npos, isIn)
            << '"' << text << "\" of\n"
            << all;
    }
}

inline std::span<const uint8_t> bytesFrom(std::string_view text) {
    return {bytesOf(text), text.size()};
}

class Monitor final : public ProgressMonitor {
public:
    bool abortRequested() override { return ++asked > allowed; }
    void progress(uint64_t, uint64_t) override {}
    void textEvent(std::string_view name, std::string_view text) override {
        events.push_back(std::string(name) + " " + std::string(text));
    }

    int allowed = 1 << 30;  // how often it says go on
    int asked = 0;
    std::vector<std::string> events;
};

class NetWorld : public testing::Test {
protected:
    // From here on time is taken and is seen what is done.
    void begin() {
        log.clearLog();
        std::construct_at(&call, log);
        call.monitor = &monitor;
        monitor.asked = 0;
        net.connects.clear();
        net.datagrams.clear();
        net.slices.clear();
        startNs = clock.nowNs;
    }
    uint64_t elapsedMs() const { return (clock.nowNs - startNs) / 1000000; }

    FakeClock clock;
    FakeNet net{clock};
    _tvLogger log;
    Recorded recorded{log};
    Monitor monitor;
    CallContext call{log};
    Failure failure;  // of the last operation
    uint64_t startNs = clock.nowNs;
};

}  // namespace tv::test
