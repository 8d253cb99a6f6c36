// Runs every part and writes the report. Without --host nothing is touched but loopback and folders
// of its own below that for temporary files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "base/DateTime.h"
#include "emailsend/Process.h"
#include "platform/SysClock.h"
#include "selftest/Options.h"
#include "selftest/Parts.h"
#include "selftest/Report.h"
#include "selftest/SystemFacts.h"

namespace selftest {
namespace {

using Words = std::vector<std::string>;

constexpr int kFailed = 1;
constexpr int kUsageError = 64;  // as of emailsend

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

void runPart(const std::string& part, const Words& words, Report& report, Outcome& total) {
    emailsend::printOut(part + " ...\n");
    const uint64_t start = tv::plat::sysClock().tickMs();
    const Outcome outcome = runApart(part, words);
    const uint64_t ms = tv::plat::sysClock().tickMs() - start;
    report.write(part + ": " + counts(outcome) + seconds(ms) + outcome.words);
    total.passed += outcome.passed;
    total.failed += outcome.failed;
    total.leftOut += outcome.leftOut;
}

// The parts to be run; empty, with a sentence in error, where one is none.
Words chosenParts(std::string& error) {
    const Words all = allParts();
    for (const std::string& part : options().parts) {
        if (std::ranges::find(all, part) != all.end()) continue;
        error = "no such part: " + part + "; there are";
        for (const std::string& known : all)
            error += " " + known;
        return {};
    }
    return options().parts.empty() ? all : options().parts;
}

int runAll(const Words& parts, const Words& words) {
    Report report;
    if (!report.open()) {
        emailsend::printOut("No report can be written, beside this program or in %TEMP%.\n");
        return kFailed;
    }
    report.write(heading());
    Outcome total;
    for (const std::string& part : parts)
        runPart(part, words, report, total);
    report.write("Result: " + counts(total) + "\n");
    const bool written = report.close();
    emailsend::printOut(written ? "The report lies in " + report.path() + "\n"
                                : std::string("The report is not whole: its disk may be full.\n"));
    return total.failed == 0 && written ? 0 : kFailed;
}

int run(int argc, char** argv) {
    emailsend::settleIn();
    testing::InitGoogleTest(&argc, argv);
    const Words words = emailsend::commandLine(argc, argv);
    std::string error;
    if (readOptions(words, error) && !options().runsHere.empty())
        return runHere(options().runsHere);
    const Words parts = error.empty() ? chosenParts(error) : Words();
    int code = kUsageError;
    if (!error.empty()) {
        emailsend::printError("selftest: " + error + " (--help shows all options)\n");
    } else if (options().help) {
        emailsend::printOut(kUsage);
        code = 0;
    } else {
        code = runAll(parts, words);
    }
    keepWindow();
    return code;
}

}  // namespace
}  // namespace selftest

int main(int argc, char** argv) {
    return selftest::run(argc, argv);
}
