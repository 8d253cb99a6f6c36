// What happens on a connection, stage by stage, with the time of each; and the end of a stage that
// takes longer than it may, or of the process by Ctrl-C.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/Failure.h"
#include "log/LogNull.h"
#include "net/stream/ProgressMonitor.h"

namespace emailsend::doctor {

// How long the engine itself waits where an observer ends what takes limitMs: a little longer to
// connect, which it ends, far longer for the rest.
constexpr uint32_t connectTimeoutMs(uint32_t limitMs) {
    return limitMs + 500;
}
constexpr uint32_t idleTimeoutMs(uint32_t limitMs) {
    return limitMs + 60000;
}

// Where Ctrl-C ended the walk, and no message was on its way.
[[noreturn]] void endStopped();

// The log tells where TCP and TLS begin and end, the events where commands and replies do.
class Observer final : public tv::LogNull, public tv::ProgressMonitor {
public:
    struct Part {
        uint64_t ms = 0;                   // of all its runs
        std::vector<std::string> replies;  // the lines of the last run
    };

    explicit Observer(uint32_t limitMs) : limitMs_(limitMs) {}

    const Part& of(tv::Stage stage) const { return parts_[static_cast<size_t>(stage)]; }
    // The server has said a line.
    bool hasReplies() const { return greeted_; }
    // What the server said to EHLO before HELO was tried; empty where it was not.
    const std::vector<std::string>& refusedEhlo() const { return refusedEhlo_; }
    // Closes the stage under way. What failed by the limit is told as that.
    tv::Failure end(tv::Failure failure);

    bool enterContext(std::string_view name, int show) override;
    bool leaveContext() override;
    bool abortRequested() override;
    uint32_t heartbeatMs() const override;
    void progress(uint64_t, uint64_t) override {}
    void textEvent(std::string_view name, std::string_view text) override;

private:
    void begin(tv::Stage stage);
    uint64_t elapsedMs() const;

    const uint32_t limitMs_;
    std::array<Part, static_cast<size_t>(tv::Stage::Local) + 1> parts_;
    std::vector<std::string> refusedEhlo_;
    std::vector<std::string> contexts_;
    tv::Stage stage_ = tv::Stage::None;
    uint64_t begunMs_ = 0;
    bool greeted_ = false;
    tv::Stage overdue_ = tv::Stage::None;  // the stage that was ended
};

}  // namespace emailsend::doctor
