// What the walk found, step by step: lines for people as they come, or JSON for programs at the
// end, and the sentence that matters most.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "advice/Finding.h"
#include "base/Failure.h"
#include "platform/SysClock.h"

namespace emailsend::doctor {

enum class State : uint8_t { Ok, Warning, Failure };

struct Step {
    std::string name;    // "greeting"
    int32_t port = 0;    // 0: of no endpoint
    uint64_t ms = 0;     // that it took
    std::string found;   // a sentence, its full stop left out
    std::string change;  // sentences; empty where there is nothing to be changed
    State state = State::Ok;
    tv::advice::Finding finding = {};  // of a failure
    bool saysAll = false;              // found needs nothing before it
};

// The step that failed, with the remedy that fits. loggedIn: the server had taken a login.
Step failed(std::string name, int32_t port, uint64_t ms, const tv::Failure& failure,
            bool loggedIn = false);

class Stopwatch {
public:
    uint64_t ms() const { return tv::plat::sysClock().tickMs() - start_; }

private:
    const uint64_t start_ = tv::plat::sysClock().tickMs();
};

class Report {
public:
    explicit Report(bool json) : json_(json) {}

    // What servers said is made harmless here.
    void add(Step step);
    // What has been done meanwhile about a warning takes the place of what was to be changed.
    void settle(std::string_view name, int32_t port, const std::string& done);
    // good: the sentence where nothing is amiss. port: the endpoint that is to be used, of whose
    // steps it speaks; 0: none serves. Returns the exit code.
    int finish(const std::string& good, int32_t port);

private:
    int32_t farthest() const;
    const Step* worst(int32_t port) const;

    const bool json_;
    std::vector<Step> steps_;
};

// Without control characters and marks that turn the direction of writing, and cut where nobody
// reads on.
std::string harmless(std::string_view text);

}  // namespace emailsend::doctor
