// The log of sends while several write it.
#include "mail/SendRecord.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "log/LogNull.h"

namespace tv {
namespace {

// A file is given its other name only when it is full, whoever waits for it meanwhile.
TEST(SendRecord, nobodyGivesAFreshFileItsOtherName) {
    constexpr uint64_t kMost = 1024;
    const std::string path = testing::TempDir() + "tv_sends.log", line(kMost / 2 + 1, 'x');
    plat::removeFile(path);
    plat::removeFile(path + ".1");
    std::atomic<int> small = 0, looks = 0;
    const auto write = [&] {
        LogNull log;
        for (int i = 0; i < 200; ++i) {
            appendToSends(log, path, kMost, i % 2 ? line : line.substr(0, kMost / 3));
            plat::FileStamp old;
            if (!plat::fileStamp(path + ".1", old)) continue;
            ++looks;
            small += old.size <= kMost / 2;
        }
    };
    std::thread threads[] = {std::thread(write), std::thread(write), std::thread(write),
                             std::thread(write)};
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_GT(looks, 0);
    EXPECT_EQ(small, 0);
}

}  // namespace
}  // namespace tv
