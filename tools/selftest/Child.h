// This program started once more, and what became of it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace selftest {

struct ChildEnd {
    uint32_t code = 0;
    std::string how;   // why there is no code: "could not be started: ..."
    std::string said;  // on stdout and stderr
};

// A new folder in %TEMP% for one process alone; it goes with all that lies in it.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& path() const { return path_; }  // empty where there can be none

private:
    const std::string path_;
};

// Its output lies in a file in the folder meanwhile. After so long it is ended.
ChildEnd runChild(const std::vector<std::string>& words, const TemporaryFolder& folder,
                  uint32_t mostMs);

// "0xC0000005".
std::string hexOf(uint32_t code);

}  // namespace selftest
