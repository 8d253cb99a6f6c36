// Which tests are a part; how a process tells another what became of them.
#include "selftest/Parts.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <sstream>

#include "emailsend/Process.h"
#include "selftest/Child.h"
#include "selftest/TestLibrary.h"

namespace selftest {
namespace {

constexpr uint32_t kPartMs = 1'200'000;  // a slow machine may take its time

// Marks at the start of a line: a test begins, the count at the end. All else is for the report.
constexpr char kBegins[] = "\x01";
constexpr char kCount[] = "\x02";

// "./tests/unit/net/LoopbackTest.cpp": "Loopback".
std::string partOf(const testing::TestInfo& test) {
    std::string name = test.file();
    name.erase(0, name.find_last_of("/\\") + 1);
    return name.substr(0, name.rfind("Test.cpp"));
}

template <class Visit>
void forEachTest(Visit visit) {
    const testing::UnitTest& all = *testing::UnitTest::GetInstance();
    for (int i = 0; i < all.total_test_suite_count(); ++i) {
        const testing::TestSuite& suite = *all.GetTestSuite(i);
        for (int j = 0; j < suite.total_test_count(); ++j)
            visit(*suite.GetTestInfo(j));
    }
}

std::string nameOf(const testing::TestInfo& test) {
    return std::string(test.test_suite_name()) + "." + test.name();
}

std::string indented(const std::string& text) {
    std::string out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        out += "      " + line + "\n";
    return out;
}

// Tells each test when it begins, and its failures in full; a reason to leave tests out once.
class Teller : public testing::EmptyTestEventListener {
public:
    void OnTestStart(const testing::TestInfo& test) override { say(kBegins + nameOf(test) + "\n"); }
    void OnTestEnd(const testing::TestInfo& test) override {
        const testing::TestResult& result = *test.result();
        std::string failures, skips;
        for (int i = 0; i < result.total_part_count(); ++i) {
            const testing::TestPartResult& part = result.GetTestPartResult(i);
            const char* const file = part.file_name() ? part.file_name() : "?";
            const std::string place = file + (":" + std::to_string(part.line_number())) + "\n";
            if (part.failed()) failures += indented(place + part.message());
            if (part.skipped()) skips = part.message();
        }
        ++(result.Failed()    ? outcome_.failed
           : result.Skipped() ? leftOut_[skips]
                              : outcome_.passed);
        if (result.Failed()) say("    FAILED " + nameOf(test) + "\n" + failures);
    }
    void OnTestProgramEnd(const testing::UnitTest&) override {
        for (const auto& [why, count] : leftOut_) {
            say("    " + std::to_string(count) + " left out: " + why + "\n");
            outcome_.leftOut += count;
        }
        say(kCount + std::to_string(outcome_.passed) + " " + std::to_string(outcome_.failed) + " " +
            std::to_string(outcome_.leftOut) + "\n");
    }

private:
    static void say(const std::string& text) {
        std::fputs(text.c_str(), stdout);
        std::fflush(stdout);  // a crash loses nothing
    }

    Outcome outcome_;
    std::map<std::string, int> leftOut_;
};

// False where the process told no count: it did not come to its end.
bool take(const std::string& said, Outcome& outcome, std::string& lastBegun) {
    bool counted = false;
    std::istringstream in(said);
    for (std::string line; std::getline(in, line);) {
        if (line.ends_with('\r')) line.pop_back();
        if (line.starts_with(kBegins)) {
            lastBegun = line.substr(1);
        } else if (line.starts_with(kCount)) {
            std::istringstream counts(line.substr(1));
            counted =
                static_cast<bool>(counts >> outcome.passed >> outcome.failed >> outcome.leftOut);
        } else {
            outcome.words += line + "\n";
        }
    }
    return counted;
}

}  // namespace

std::vector<std::string> allParts() {
    std::vector<std::string> parts;
    forEachTest([&](const testing::TestInfo& test) {
        const std::string part = partOf(test);
        if (std::ranges::find(parts, part) == parts.end()) parts.push_back(part);
    });
    return parts;
}

int runHere(const std::string& part) {
    std::string filter;
    forEachTest([&](const testing::TestInfo& test) {
        if (partOf(test) == part) filter += nameOf(test) + ":";
    });
    if (filter.empty()) return 1;
    // A file that lies beside the library is for the user's own server alone.
    if (part != "OwnServer") useSettings("");
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    GTEST_FLAG_SET(filter, filter);
    testing::TestEventListeners& listeners = testing::UnitTest::GetInstance()->listeners();
    delete listeners.Release(listeners.default_result_printer());
    listeners.Append(new Teller);
    return RUN_ALL_TESTS();
}

Outcome runApart(const std::string& part, const std::vector<std::string>& arguments) {
    Outcome outcome;
    std::string lastBegun = "the start";
    std::vector<std::string> words = {"--here", part};
    words.insert(words.end(), arguments.begin(), arguments.end());
    const TemporaryFolder folder;
    const ChildEnd end = runChild(words, folder, kPartMs);
    const bool whole = take(end.said, outcome, lastBegun);
    // The code that RUN_ALL_TESTS makes of the counts, or else something happened behind them.
    if (whole && end.how.empty() && end.code == (outcome.failed > 0 ? 1U : 0U)) return outcome;
    ++outcome.failed;
    outcome.words +=
        "    FAILED " + (whole ? "behind the last test" : lastBegun) + "\n" +
        indented("The process " +
                 (end.how.empty() ? "ended with the code " + hexOf(end.code) : end.how));
    return outcome;
}

}  // namespace selftest
