// What the tests of this room share: a log that is read, a monitor that says when to stop.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/Ascii.h"
#include "log/tvLogger.h"
#include "net/stream/ProgressMonitor.h"
#include "tests/fixtures/FakeNet.h"
#include "tests/fixtures/Record.h"

namespace tv::test {

inline std::string textOf(LogBase& log) {
    std::string text;
    log.getText(text);
    return text;
}

inline void expectLogged(LogBase& log, const std::string& wanted) {
    const std::string text = textOf(log);
    EXPECT_NE(text.find(wanted), std::string::npos) << "missing \"" << wanted << "\" in\n" << text;
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

}  // namespace tv::test
