#include "platform/SysDialog.h"

#include <gtest/gtest.h>

namespace tv::plat {
namespace {

TEST(SysDialog, AsOneLine) {
    const struct {
        const char* name;
        std::string_view text;
        std::string_view line;
    } cases[] = {
        {"an indented account", "Log:\r\n  Call:\r\n    Failed.\r\n  --Call\r\n--Log\r\n",
         "Log: Call: Failed. --Call --Log"},
        {"a line already", "Failed.", "Failed."},
        {"nothing but line ends", "\r\n\t \n", ""},
        {"empty", "", ""},
        {"control characters", std::string_view("a\0b\x1B[31mc\x7F", 10), "a b [31mc"},
        {"UTF-8 stays", "hi\xC3\xA1ny\xC3\xB3\n", "hi\xC3\xA1ny\xC3\xB3"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(asOneLine(c.text), c.line) << c.name;
}

}  // namespace
}  // namespace tv::plat
