// Paths as Windows takes them. Wine opens long ones in any form, so no file can judge them here.
#ifdef _WIN32
#include "src/platform/win32/WidePath.h"

#include <gtest/gtest.h>

#include "platform/SysFile.h"

namespace tv::plat {
namespace {

TEST(WidePath, longOnesTakeTheFormThatHasNoLimit) {
    const std::string deep = std::string(130, 'd') + '/' + std::string(130, 'e');
    const std::wstring wide = std::wstring(130, 'd') + L'\\' + std::wstring(130, 'e');
    const std::wstring here = widen(currentDirectory());
    const struct {
        std::string path;
        std::wstring opened;
    } rows[] = {
        {"a/b.txt", L"a/b.txt"},
        {"C:/" + deep, L"\\\\?\\C:\\" + wide},
        {"C:\\x\\..\\" + deep + "/./f", L"\\\\?\\C:\\" + wide + L"\\f"},
        {deep, L"\\\\?\\" + here + (here.ends_with(L'\\') ? L"" : L"\\") + wide},
        {"//server/share/" + deep, L"\\\\?\\UNC\\server\\share\\" + wide},
        {"\\\\?\\C:\\" + deep,
         L"\\\\?\\C:\\" + std::wstring(130, 'd') + L'/' + std::wstring(130, 'e')},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(narrow(widePath(row.path)), narrow(row.opened));
    }
}

}  // namespace
}  // namespace tv::plat
#endif
