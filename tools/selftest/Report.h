// The report: a text file to send back, line by line as things happen, and the same on the console.
#pragma once

#include <string>

#include "platform/SysFile.h"

namespace selftest {

class Report {
public:
    // Beside this program, or where that cannot be in the folder for temporary files. An earlier
    // one goes. False where there can be none.
    bool open();
    const std::string& path() const { return path_; }
    // Lines that end in LF.
    void write(const std::string& text);
    // False where something did not reach the file.
    bool close();

private:
    std::string path_;
    tv::plat::SysFile file_;
    bool whole_ = true;
};

// After a double click the window would be gone with this program: waits for a key.
void keepWindow();

}  // namespace selftest
