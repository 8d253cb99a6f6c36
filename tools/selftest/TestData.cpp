// The data files of the tests out of this program's own resources, unpacked below the current
// folder when a test asks for them.
#include "tests/fixtures/TestData.h"

#include <windows.h>

#include "base/Ascii.h"
#include "platform/SysFile.h"

namespace {

// The bytes of the resource; empty where there is none of that name.
std::string_view resource(const std::string& name) {
    const HRSRC found = FindResourceA(nullptr, name.c_str(), MAKEINTRESOURCEA(10));  // RT_RCDATA
    const HGLOBAL loaded = found ? LoadResource(nullptr, found) : nullptr;
    if (!loaded) return {};
    return {static_cast<const char*>(LockResource(loaded)), SizeofResource(nullptr, found)};
}

}  // namespace

// Where the program has no such file, nothing will be there: tests that can do without are left
// out.
std::string testDataPath(const std::string& name) {
    const std::string folder = tv::plat::currentDirectory() + "\\" + name.substr(0, name.find('/'));
    const std::string path = tv::plat::currentDirectory() + "\\" + name;
    const std::string_view bytes = resource(name);
    tv::plat::SysFile file;
    if (!bytes.empty() && !tv::plat::isRegularFile(path)) {
        CreateDirectoryA(name.substr(0, name.find('/')).c_str(), nullptr);
        if (file.openNew(path)) file.write(bytes.data(), bytes.size());
    }
    return path;
}

std::string fileText(const std::string& path) {
    constexpr size_t kMost = 16 * 1024 * 1024;
    std::string text;
    tv::plat::readFileStart(path, kMost, text);
    return text;
}
