// A random source that repeats itself in every run.
#pragma once

#include <cstdint>
#include <random>
#include <span>

namespace tv::test {

class SeededRandom {
public:
    explicit SeededRandom(uint32_t seed) : generator_(seed) {}

    bool operator()(std::span<uint8_t> out) {
        for (uint8_t& byte : out) {
            byte = static_cast<uint8_t>(generator_());
        }
        return true;
    }

private:
    std::mt19937 generator_;
};

}  // namespace tv::test
