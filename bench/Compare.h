// Measures our function and a peer's in turns, so that both meet the same disturbances, and prints
// one row of a table: medians and their ratio.
#pragma once

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <functional>
#include <string>

namespace tv::bench {

using Work = std::function<void()>;

constexpr size_t kSlices = 9;
constexpr double kSliceSeconds = 0.04;

// Calls a second of processor time in one slice: other work on the machine counts less than it
// would in wall time. (On Windows std::clock is wall time.)
inline double rateOf(const Work& work) {
    const std::clock_t start = std::clock();
    double calls = 0, seconds = 0;
    do {
        for (int i = 0; i < 4; ++i) {
            work();
        }
        calls += 4;
        seconds = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
    } while (seconds < kSliceSeconds);
    return calls / seconds;
}

inline double median(std::array<double, kSlices> values) {
    std::sort(values.begin(), values.end());
    return values[kSlices / 2];
}

inline void printHead(const char* unit) {
    std::printf("\n| what | form | ours, %s | libcrypto, %s | ratio |\n|---|---|---|---|---|\n",
                unit, unit);
}

// scale turns calls a second into the unit of the table. An empty peer leaves its columns empty.
inline void printRow(const std::string& what, const std::string& form, double scale,
                     const Work& ours, const Work& peer) {
    std::array<double, kSlices> oursRates{}, peerRates{};
    ours();
    if (peer) peer();
    for (size_t i = 0; i < kSlices; ++i) {
        oursRates[i] = rateOf(ours) * scale;
        if (peer) peerRates[i] = rateOf(peer) * scale;
    }
    std::printf("| %s | %s | %.0f | ", what.c_str(), form.c_str(), median(oursRates));
    if (peer) {
        std::printf("%.0f | %.2f |\n", median(peerRates), median(oursRates) / median(peerRates));
    } else {
        std::printf("| |\n");
    }
    std::fflush(stdout);
}

}  // namespace tv::bench
