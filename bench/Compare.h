// Measures our function and a peer's in turns, so that both meet the same disturbances, and prints
// one row of a table: medians and their ratio.
#pragma once

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <functional>
#include <string>

#ifdef _WIN32
#include <windows.h>
#endif

namespace tv::bench {

using Work = std::function<void()>;

constexpr size_t kSlices = 9;
#ifdef _WIN32
constexpr double kSliceSeconds = 0.15;  // its clock of processor time ticks every 10 ms
#else
constexpr double kSliceSeconds = 0.04;
#endif

// Processor time of this program in seconds: other work on the machine counts less than in wall
// time.
inline double processorSeconds() {
#ifdef _WIN32
    FILETIME created, ended, kernel, user;
    GetProcessTimes(GetCurrentProcess(), &created, &ended, &kernel, &user);
    const auto ticks = [](const FILETIME& t) {
        return static_cast<double>(t.dwHighDateTime) * 4294967296.0 + t.dwLowDateTime;
    };
    return (ticks(kernel) + ticks(user)) * 1e-7;
#else
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
#endif
}

// Calls a second in one slice.
inline double rateOf(const Work& work) {
    const double start = processorSeconds();
    double calls = 0, seconds = 0;
    do {
        for (int i = 0; i < 4; ++i) {
            work();
        }
        calls += 4;
        seconds = processorSeconds() - start;
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
