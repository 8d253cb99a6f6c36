// Runs every part and writes the report. Without arguments nothing is touched but loopback and this
// program's own folder for temporary files.
#include <gtest/gtest.h>

#include <cstdio>

#include "base/DateTime.h"
#include "emailsend/Process.h"
#include "platform/SysClock.h"
#include "selftest/Child.h"
#include "selftest/Parts.h"
#include "selftest/Report.h"
#include "selftest/SystemFacts.h"

namespace selftest {
namespace {

using Words = std::vector<std::string>;

std::string counts(const Outcome& outcome) {
    return std::to_string(outcome.passed) + " passed, " + std::to_string(outcome.failed) +
           " failed, " + std::to_string(outcome.leftOut) + " left out";
}

std::string seconds(uint64_t ms) {
    char text[32];
    std::snprintf(text, sizeof text, " (%.1f s)\n", static_cast<double>(ms) / 1000);
    return text;
}

std::string heading() {
    const tv::plat::CivilTime now = tv::plat::sysClock().localTime();
    char time[64];
    std::snprintf(time, sizeof time, "%04d-%02d-%02d %02d:%02d", now.year, now.month, now.day,
                  now.hour, now.minute);
    return std::string("emailsending self-test " SELFTEST_VERSION ", ") + time + "\n" +
           systemFacts() + libraryFacts(emailsend::libraryBesideProgram());
}

void runPart(const std::string& part, const Words& options, Report& report, Outcome& total) {
    const std::string folder = emailsend::makeTemporaryFolder();
    const uint64_t start = tv::plat::sysClock().tickMs();
    const Outcome outcome = runApart(part, options, folder);
    const uint64_t ms = tv::plat::sysClock().tickMs() - start;
    removeFolder(folder);
    report.write(part + ": " + counts(outcome) + seconds(ms) + outcome.words);
    total.passed += outcome.passed;
    total.failed += outcome.failed;
    total.leftOut += outcome.leftOut;
}

int runAll(const Words& options) {
    Report report;
    if (!report.open()) {
        emailsend::printOut("No report can be written, beside this program or in %TEMP%.\n");
        return 1;
    }
    report.write(heading());
    Outcome total;
    for (const std::string& part : allParts())
        runPart(part, options, report, total);
    report.write("Result: " + counts(total) + "\n");
    const bool written = report.close();
    emailsend::printOut(written ? "The report lies in " + report.path() + "\n"
                                : std::string("The report is not whole: its disk may be full.\n"));
    return total.failed == 0 && written ? 0 : 1;
}

int run(int argc, char** argv) {
    emailsend::settleIn();
    testing::InitGoogleTest(&argc, argv);
    const Words words = emailsend::commandLine(argc, argv);
    if (words.size() >= 2 && words[0] == "--part") return runHere(words[1]);
    const int code = runAll(words);
    keepWindow();
    return code;
}

}  // namespace
}  // namespace selftest

int main(int argc, char** argv) {
    return selftest::run(argc, argv);
}
