// The library beside this program as the tests of the self-test meet it: loaded at run time, with a
// settings file of theirs and no other.
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

class TestLibrary : public testing::Test {
protected:
    void SetUp() override {
        useSettings("");
        ASSERT_TRUE(plugIn.load(emailsend::libraryBesideProgram(), error)) << error;
    }
    // For the next Initialise.
    static void useSettings(std::string_view text) {
        emailsend::setEnvironmentVariable("EMAILSENDING_SETTINGS", writeFile("own.ini", text));
    }

    emailsend::PlugIn plugIn;
    std::string error;
};

}  // namespace selftest
