// The text that tells a host why its last send failed, kept so that a pointer into it outlives the
// sends of other threads.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace tv {

// Safe to use from any thread.
class LastError {
public:
    LastError();

    // The text of the send that ended last.
    void set(std::string text);
    // The same for a reason met on the way; needs no memory where there is none.
    void setReason(const char* reason);

    // Zero-terminated; "" where there is nothing to tell. The pointer serves until the calling
    // thread asks again, whatever other threads send meanwhile. So much is kept for the last
    // kThreads threads that asked.
    const char* text();

    static constexpr size_t kThreads = 64;

private:
    using Text = std::shared_ptr<const std::string>;
    struct Given {
        uint64_t thread = 0;
        uint64_t askedAt = 0;
        Text text;
    };

    void replaceBy(Text text);
    Given& placeOf(uint64_t thread);

    const Text outOfMemory_;
    std::mutex lock_;
    Text text_;  // null: nothing to tell
    uint64_t asked_ = 0;
    std::array<Given, kThreads> given_;
};

}  // namespace tv
