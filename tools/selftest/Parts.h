// The parts of the self-test: one for each source file with tests. Each runs in a process of its
// own, so that one that crashes or hangs is a line of the report and not its end.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace selftest {

struct Outcome {
    int passed = 0;
    int failed = 0;
    int leftOut = 0;
    std::string words;  // of each failure and of what was left out, a line each
};

// After testing::InitGoogleTest.
std::vector<std::string> allParts();

// Runs the tests of the part here; not 0 where one failed or there are none. What they did is told
// on stdout, for runApart to read.
int runHere(const std::string& part);

// Runs this program once more, for the part, with these arguments, in a folder that goes with it. A
// process that ends in any other way than by its own decision is a failed test.
Outcome runApart(const std::string& part, const std::vector<std::string>& arguments);

}  // namespace selftest
