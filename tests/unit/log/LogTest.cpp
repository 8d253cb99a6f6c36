// The log: what its entries become in the account and in the debug file, and the account that each
// public operation leaves.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <new>
#include <sstream>

#include "base/Ascii.h"
#include "base/Failure.h"
#include "log/ClsBase.h"
#include "log/LogContextExitor.h"
#include "log/LogNull.h"
#include "log/tvLogger.h"
#include "platform/SysFile.h"
#include "tests/fixtures/FakeSystem.h"
#include "tests/fixtures/TestData.h"

namespace {

bool noMemory = false;

}  // namespace

void* operator new(std::size_t size) {
    void* block = noMemory ? nullptr : std::malloc(size != 0 ? size : 1);
    if (!block) throw std::bad_alloc();
    return block;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return noMemory ? nullptr : std::malloc(size);
}
void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

namespace tv {
namespace {

using Log = _tvLogger;
using Clock = test::FakeClock;

// The text of a log between its first and its last line, with plain line ends.
std::string entriesOf(std::string_view all) {
    constexpr std::string_view kFirst = "TolvaneLog:\r\n", kLast = "--TolvaneLog\r\n";
    EXPECT_TRUE(all.starts_with(kFirst) && all.ends_with(kLast)) << all;
    all = all.substr(kFirst.size(), all.size() - kFirst.size() - kLast.size());
    const std::string text = replaceAll(all, "\r\n", "\n");
    EXPECT_EQ(replaceAll(text, "\n", "\r\n"), all);
    return text;
}
std::string entriesOf(LogBase& log) {
    std::string text;
    log.getText(text);
    return entriesOf(text);
}

// Does to a log what the steps say: a letter and its text each, with bars between them.
void play(Log& log, Clock& clock, const std::string& script) {
    std::istringstream steps(script);
    for (std::string text; std::getline(steps, text, '|');) {
        const char step = text.at(0);
        text.erase(0, 1);
        if (step == '>') log.enterContext(text, 1);
        if (step == ')') log.enterContext(text, 0);  // its time is not to be shown
        if (step == '<') log.leaveContext();
        if (step == '!') log.logError(text);
        if (step == '.') log.logInfo(text);
        if (step == '=') log.logData("name", text);
        if (step == 'v') log.logVerbose(text), log.logDataVerbose("name", text);
        if (step == 'V') log.setVerbose(true);
        if (step == 'C') log.clearLog();
        if (step == '+') clock.advanceMs(std::stoul(text));
        if (step == 'e') log.logElapsed("t", clock.tickMs() - uint64_t(std::stoll(text)));
    }
}

TEST(Log, becomesText) {
    const struct {
        const char *name, *script, *entries;
    } rows[] = {
        {"contexts", ">outer|=value|>inner|!an error|<|>empty|<|.information|<",
         "  outer:|    name: value|    inner:|      an error|    --inner|    empty:|    --empty|"
         "    information|  --outer|"},
        {"entries that say nothing", "!|.|=|>|.below a context without a name|<", ""},
        {"open contexts", ">running|.so far", "  running:|    so far|  --running|"},
        {"leaving with nothing open", "<|<|>a|.in it|<", "  a:|    in it|  --a|"},
        {"clearing with contexts open", ">a|>b|C|.at the root", "  at the root|"},
        {"measured", "V|>c|+42|<", "  c(42ms):|  --c|"},
        {"nothing elapsed", "V|>c|<", "  c:|  --c|"},
        {"not verbose", ">c|+42|<", "  c:|  --c|"},
        {"not to be shown", "V|)c|+42|<", "  c:|  --c|"},
        {"times stand with their own contexts", "V|>outer|+5|>inner|+5|<|.between|<|.behind",
         "  outer(10ms):|    inner(5ms):|    --inner|    between|  --outer|  behind|"},
        {"verbose entries", "vhidden|V|vshown", "  shown|  name: shown|"},
        {"elapsed", "e0|e899999999",
         "  t: Elapsed time: 0 millisec|  t: Elapsed time: 899999999 millisec|"},
        {"implausibly elapsed", "e900000000|e-1", ""},
    };
    for (const auto& row : rows) {
        Clock clock(1'000'000'000);
        Log log;
        play(log, clock, row.script);
        EXPECT_EQ(replaceAll(entriesOf(log), "\n", "|"), row.entries) << row.name;
    }
}

TEST(Log, showsValuesAndNoSecrets) {
    Log log;
    log.logText("text");
    log.logDataLong("number", -7);
    log.logDataBool("flag", true);
    const uint8_t bytes[] = {0x0A, 0xFF};
    log.logDataHex("bytes", bytes);
    XString password("Passw0rd");
    log.logDataX("user", XString("me"));
    password.markSecret();
    log.logDataX("password", password);
    EXPECT_EQ(entriesOf(log),
              "  text\n  number: -7\n  flag: 1\n  bytes: 0AFF\n  user: me\n"
              "  password: {PasswordOrCredentials}\n");
}

TEST(Log, noMemoryDropsEntriesAndKeepsTheContextsPaired) {
    Clock clock;
    Log log;
    const std::string longText(100, 'x');
    play(log, clock, ">outer");
    noMemory = true;
    const bool done = log.enterContext("a context that cannot be opened", 1) &&
                      log.logError(longText) && log.logData("name", longText) && log.leaveContext();
    noMemory = false;
    EXPECT_TRUE(done) << "logging never fails its caller";
    play(log, clock, ".still inside|<");
    EXPECT_EQ(log.depth(), 0);
    EXPECT_EQ(entriesOf(log), "  outer:\n    still inside\n  --outer\n");
}

TEST(Log, findsOptionsBySubstring) {
    Log log;
    EXPECT_FALSE(log.hasOption("NO_TLS_SNI"));
    log.setOptions("UseBccHeader,NO_TLS_SNI");
    EXPECT_TRUE(log.hasOption("NO_TLS_SNI") && log.hasOption("UseBccHeader"));
    EXPECT_FALSE(log.hasOption("DisableTls13") || LogNull().hasOption("UseBccHeader"));
}

// Each line as it is written; an empty path ends that, a second one goes on behind the first.
TEST(DebugFile, getsEveryLine) {
    const std::string path = testing::TempDir() + "tv_debug_log_test.txt";
    std::remove(path.c_str());
    Clock clock;
    Log log;
    log.setDebugLogPath(path);
    play(log, clock, ">outer");
    EXPECT_EQ(fileText(path), "outer:\n");
    play(log, clock, ">inner|!error|=value");
    log.setDebugLogPath("");
    play(log, clock, ".nowhere");
    log.setDebugLogPath(path);
    play(log, clock, "+5|<|V|<");
    EXPECT_EQ(fileText(path),
              "outer:\n    inner:\n        error\n        name: value\r\n    (leaveContext)\n"
              "(leaveContext 5ms)\n");
    std::remove(path.c_str());
    // What cannot be opened is skipped.
    for (const std::string& none : {std::string("no such folder/x/y"), testing::TempDir() + "tv\\",
                                    testing::TempDir() + "tv/", std::string("/")}) {
        log.clearLog();
        log.setDebugLogPath(none);
        EXPECT_TRUE(log.logInfo("kept")) << none;
        EXPECT_EQ(entriesOf(log), "  kept\n");
        EXPECT_FALSE(plat::isRegularFile(none));
    }
}

// It cannot note what was sent, so it takes the worse for granted.
TEST(Failure, withoutMemoryMayHaveSent) {
    noMemory = true;
    Failure failure(Cause::Timeout);
    noMemory = false;
    const Failure same = std::move(failure).withAnySent(false);
    EXPECT_TRUE(same.is(Cause::OutOfMemory) && same.anySent());
    EXPECT_TRUE(Failure(Cause::Timeout).is(Cause::Timeout) && !Failure(Cause::Timeout).anySent());
}

class Thing : public ClsBase {
public:
    bool act(bool result) {
        Operation operation(*this, "Act");
        operation.log().logInfo("at work");
        return operation.finish(result);
    }
    bool throwing() {
        Operation operation(*this, "Throwing");
        throw std::bad_alloc();
    }
};

TEST(ClsBase, givesTheAccountOfTheLastOperation) {
    const Clock clock;
    Thing thing;
    const std::string bits = sizeof(void*) == 8 ? "64" : "32";
    for (const bool verbose : {false, true}) {
        for (const bool success : {true, false}) {
            thing.setVerboseLogging(verbose);
            EXPECT_EQ(thing.act(success), success);
            EXPECT_EQ(entriesOf(thing.lastErrorText().utf8()),
                      "  Act:\n    DllDate: Mar 29 2024\n    TolvaneVersion: 9.5.0.98\n"
                      "    Architecture: Little Endian; " +
                          bits +
                          "-bit\n    Language: C\n"
                          "    VerboseLogging: " +
                          (verbose ? "1" : "0") + "\n    at work\n    " +
                          (success ? "Success." : "Failed.") + "\n  --Act\n");
        }
    }
}

TEST(ClsBase, anExceptionLeavesAClosedAndFailedAccount) {
    Thing thing;
    EXPECT_THROW(thing.throwing(), std::bad_alloc);
    const std::string text(thing.lastErrorText().utf8());
    EXPECT_NE(text.find("    Failed.\r\n  --Throwing\r\n"), std::string::npos) << text;
    EXPECT_TRUE(thing.act(true)) << "the lock is free again";
}

}  // namespace
}  // namespace tv
