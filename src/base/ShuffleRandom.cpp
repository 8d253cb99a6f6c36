// The generator for boundaries and orders, and its two instances of the process.
#include "base/ShuffleRandom.h"

#include "platform/SysClock.h"

namespace tv {
namespace {

uint32_t tickCount() {
    return static_cast<uint32_t>(plat::sysClock().tickMs());
}

// The product wraps at 32 bits before the remainder is taken: deliberate, and not the textbook
// minimal-standard generator.
uint32_t following(uint32_t state) {
    if (state == 0) state = tickCount();
    state = (state * 48271u) % 2147483647u;
    return state != 0 ? state : tickCount();
}

}  // namespace

uint32_t ShuffleRandom::next() {
    uint32_t before = state_.load(std::memory_order_relaxed);
    uint32_t after = following(before);
    while (!state_.compare_exchange_weak(before, after, std::memory_order_relaxed)) {
        after = following(before);
    }
    return after;
}

int ShuffleRandom::digit() {
    const uint64_t fraction = next() & 0xFFFFFF;  // of 2^24
    return static_cast<int>(fraction * 10 >> 24);
}

ShuffleRandom& orderRandom() {
    static ShuffleRandom& generator = *new ShuffleRandom;
    return generator;
}

ShuffleRandom& boundaryRandom() {
    static ShuffleRandom& generator = *new ShuffleRandom;
    return generator;
}

}  // namespace tv
