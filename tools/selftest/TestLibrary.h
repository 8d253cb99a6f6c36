// The library beside this program as the tests of the self-test meet it: loaded at run time. Which
// settings file counts for it is theirs to say.
#pragma once

#include <gtest/gtest.h>

#include "base/Ascii.h"
#include "emailsend/PlugIn.h"
#include "emailsend/Process.h"
#include "platform/SysFile.h"

namespace selftest {

// A new file in the current folder; returns its path.
inline std::string writeFile(const std::string& name, std::string_view text) {
    const std::string path = tv::plat::currentDirectory() + "\\" + name;
    tv::plat::removeFile(path);
    tv::plat::SysFile file;
    EXPECT_TRUE(file.openNew(path) && file.write(text.data(), text.size()) && file.close()) << path;
    return path;
}

// The settings file that counts from the next Initialise on, whatever lies beside the library.
inline void useSettings(std::string_view text) {
    emailsend::setEnvironmentVariable("EMAILSENDING_SETTINGS", writeFile("own.ini", text));
}

class TestLibrary : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(plugIn.load(emailsend::libraryBesideProgram(), error)) << error;
    }
    emailsend::PlugIn plugIn;
    std::string error;
};

}  // namespace selftest
