// An account as one line of a dialog, and the time as Windows counts it.
#include <gtest/gtest.h>

#include <chrono>

#include "platform/SysClock.h"
#include "platform/SysDialog.h"

namespace tv::plat {
namespace {

TEST(SysDialog, asOneLine) {
    const std::pair<std::string_view, std::string_view> rows[] = {
        {"Log:\r\n  Call:\r\n    Failed.\r\n  --Call\r\n--Log\r\n",
         "Log: Call: Failed. --Call --Log"},
        {"Failed.", "Failed."},
        {"\r\n\t \n", ""},
        {{"a\0b\x1B[31mc\x7F", 10}, "a b [31mc"},
        {"hi\xC3\xA1ny\xC3\xB3\n", "hi\xC3\xA1ny\xC3\xB3"},
    };
    for (const auto& [text, line] : rows) {
        EXPECT_EQ(asOneLine(text), line);
    }
}

TEST(SysClock, fileTimeCountsFrom1601) {
    using namespace std::chrono;
    const auto now = [] {
        return floor<milliseconds>(system_clock::now()) - sys_days(year(1601) / 1 / 1);
    };
    const milliseconds before = now(), shown(sysClock().fileTimeUtc() / 10'000), after = now();
    EXPECT_GE(shown, before - 100ms);  // ticks of Windows
    EXPECT_LE(shown, after + 100ms);
}

}  // namespace
}  // namespace tv::plat
