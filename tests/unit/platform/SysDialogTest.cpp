// An account as one line of a dialog.
#include "platform/SysDialog.h"

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace tv::plat
