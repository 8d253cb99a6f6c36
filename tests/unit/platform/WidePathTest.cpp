// Paths as Windows takes them. Wine opens long ones in any form, Windows only in this one.
#ifdef _WIN32
#include "src/platform/win32/WidePath.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "platform/SysFile.h"

namespace tv::plat {
namespace {

TEST(WidePath, LongOnesTakeTheFormThatHasNoLimit) {
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

TEST(WidePath, FilesBehindLongPathsAreFound) {
    const std::string folder = currentDirectory() + '/' + std::string(200, 'd');
    const std::string path = folder + '/' + std::string(100, 'f');
    std::filesystem::create_directory(widePath(folder));
    SysFile file;
    EXPECT_TRUE(file.openAppend(path) && file.write("abc", 3) && file.close());
    std::string content;
    EXPECT_TRUE(isRegularFile(path) && readFileStart(path, 10, content));
    EXPECT_EQ(content, "abc");
    std::filesystem::remove(widePath(path));
    std::filesystem::remove(widePath(folder));
}

}  // namespace
}  // namespace tv::plat
#endif
