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

// Its output lies in a file in the folder meanwhile. After so long it is ended.
ChildEnd runChild(const std::vector<std::string>& words, const std::string& folder,
                  uint32_t mostMs);

// "0xC0000005".
std::string hexOf(uint32_t code);

// Every file and folder in it, and itself.
void removeFolder(const std::string& folder);

}  // namespace selftest
