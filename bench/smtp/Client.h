// What the clients of the SMTP benchmark share: the command line, the clock, and the report, one
// line of JSON. Every client sends the same message `count` times over one connection, built anew
// from its files each time, as an application would; or it connects, greets and says QUIT as often,
// with or without the TLS session of the time before.
#pragma once

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

namespace bench {

inline const std::string kSender = "sender@example.com";

struct Options {
    int port = 25;
    std::string tls = "none";  // implicit, starttls
    std::string ca;            // the server's certificate; empty: not verified
    std::string html;
    std::string attachment;  // empty: none
    std::string connect;  // "fresh", "resumed": no message, a connection each time; empty: messages
    int recipients = 1;
    int count = 1;
};

inline std::string recipient(int number) {
    return "user" + std::to_string(number) + "@example.com";
}

inline Options parse(int argc, char** argv) {
    Options out;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string name = argv[i];
        const std::string value = argv[i + 1];
        if (name == "--port") out.port = std::atoi(value.c_str());
        if (name == "--tls") out.tls = value;
        if (name == "--ca") out.ca = value;
        if (name == "--html") out.html = value;
        if (name == "--attach") out.attachment = value;
        if (name == "--connect") out.connect = value;
        if (name == "--recipients") out.recipients = std::atoi(value.c_str());
        if (name == "--count") out.count = std::atoi(value.c_str());
    }
    return out;
}

inline std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

inline double processSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& t) {
        return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) * 1e-6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// A line of /proc/self/status in KiB. (ru_maxrss would count the parent's pages from before exec.)
inline long memoryKb(const char* line) {
    std::ifstream status("/proc/self/status");
    std::string word;
    while (status >> word) {
        long value = 0;
        if (word == line && status >> value) return value;
    }
    return 0;
}

// Runs send `count` times and prints the report. send returns false after a failure it has told.
inline int measure(const Options& options, const std::function<bool()>& send) {
    const long idleKb = memoryKb("VmRSS:");
    const double cpu = processSeconds();
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < options.count; ++i) {
        if (!send()) return 1;
    }
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
    std::printf("{\"seconds\": %.6f, \"cpu\": %.6f, \"idle_kb\": %ld, \"peak_kb\": %ld}\n",
                wall.count(), processSeconds() - cpu, idleKb, memoryKb("VmHWM:"));
    return 0;
}

}  // namespace bench
