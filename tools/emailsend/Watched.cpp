// A step on a thread of its own, with a line that counts the seconds and an ear for Ctrl-C.
#include "emailsend/Watched.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include "emailsend/Process.h"

namespace emailsend {
namespace {

using Clock = std::chrono::steady_clock;
// Often enough for Ctrl-C to feel immediate.
constexpr std::chrono::milliseconds kLook(100);

// One line that is written over and over, on a terminal alone.
class StatusLine {
public:
    explicit StatusLine(const std::string& what) : what_(what), shown_(errorsGoToTerminal()) {}
    ~StatusLine() {
        if (width_ > 0) printError("\r" + std::string(width_, ' ') + "\r");
    }
    StatusLine(const StatusLine&) = delete;
    StatusLine& operator=(const StatusLine&) = delete;

    void show() {
        const auto elapsed = Clock::now() - start_;
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(elapsed).count();
        if (!shown_ || seconds == last_) return;
        last_ = seconds;
        const std::string line = what_ + " " + std::to_string(seconds) + " s (Ctrl-C stops)";
        width_ = line.size();
        printError("\r" + line);
    }

private:
    const std::string what_;
    const bool shown_;
    const Clock::time_point start_ = Clock::now();
    int64_t last_ = 0;
    size_t width_ = 0;
};

// Outlives the wait where the step does.
struct Finish {
    std::mutex lock;
    std::condition_variable changed;
    bool done = false;
};

}  // namespace

bool runWatched(const std::string& what, std::function<void()> step,
                std::chrono::milliseconds limit) {
    StatusLine line(what);
    const Clock::time_point start = Clock::now();
    watchForInterrupt();
    const auto finish = std::make_shared<Finish>();
    std::thread worker([finish, step = std::move(step)] {
        step();
        const std::lock_guard guard(finish->lock);
        finish->done = true;
        finish->changed.notify_all();
    });
    std::unique_lock guard(finish->lock);
    while (!finish->changed.wait_for(guard, kLook, [&] { return finish->done; })) {
        const bool isOver = limit.count() > 0 && Clock::now() - start >= limit;
        if (isOver || interrupted()) {
            worker.detach();
            return false;
        }
        line.show();
    }
    guard.unlock();
    worker.join();
    return true;
}

}  // namespace emailsend
