// A small multiplicative congruential generator for values that need to differ and not to be
// secret: MIME boundaries, orders of lists. Its sequence is fixed by its state.
#pragma once

#include <atomic>
#include <cstdint>

namespace tv {

class ShuffleRandom {
public:
    // State 0: the first draw starts from the system's tick count.
    explicit ShuffleRandom(uint32_t state = 0) : state_(state) {}

    // The next state. Several threads may draw at once; none gets the draw of another.
    uint32_t next();
    // One decimal digit, 0 to 9.
    int digit();
    // For tests that need a known sequence.
    void setState(uint32_t state) { state_.store(state, std::memory_order_relaxed); }

private:
    std::atomic<uint32_t> state_;
};

// The one generator from which all MIME boundaries of the process come.
ShuffleRandom& boundaryRandom();
// The one that varies the order of what a TLS hello offers.
ShuffleRandom& orderRandom();

}  // namespace tv
