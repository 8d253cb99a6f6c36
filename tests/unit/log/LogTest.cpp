#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <new>

#include "base/Ascii.h"
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
void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

namespace tv {
namespace {

// The text of a log between its first and its last line, with plain line ends.
std::string entriesOf(std::string_view all) {
    constexpr std::string_view kFirst = "TolvaneLog:\r\n";
    constexpr std::string_view kLast = "--TolvaneLog\r\n";
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

TEST(Log, RendersTheTree) {
    _tvLogger log;
    {
        const LogContextExitor outer(log, "outer");
        log.logData("name", "value");
        {
            const LogContextExitor inner(log, "inner");
            log.logError("an error");
        }
        { const LogContextExitor empty(log, "empty"); }
        log.logInfo("information");
        log.logText("text");
    }
    log.logDataLong("number", -7);
    log.logDataBool("flag", true);
    const uint8_t bytes[] = {0x0A, 0xFF};
    log.logDataHex("bytes", bytes);
    EXPECT_EQ(entriesOf(log), R"(  outer:
    name: value
    inner:
      an error
    --inner
    empty:
    --empty
    information
    text
  --outer
  number: -7
  flag: 1
  bytes: 0AFF
)");
    log.clearLog();
    EXPECT_EQ(entriesOf(log), "");
}

TEST(Log, SkipsEntriesThatSayNothing) {
    _tvLogger log;
    log.logError("");
    log.logInfo("");
    log.logData("", "value");
    log.logData("name", "");
    log.enterContext("", 1);
    log.logInfo("below a context without a name");
    log.leaveContext();
    EXPECT_EQ(entriesOf(log), "");
}

TEST(Log, OpenContextsAreShownClosed) {
    _tvLogger log;
    log.enterContext("running", 1);
    log.logInfo("so far");
    EXPECT_EQ(entriesOf(log), "  running:\n    so far\n  --running\n");
}

TEST(Log, LeavingWithNothingOpenKeepsTheDepthAtZero) {
    _tvLogger log;
    log.leaveContext();
    log.leaveContext();
    EXPECT_EQ(log.depth(), 0);
    log.enterContext("a", 1);
    EXPECT_EQ(log.depth(), 1);
    log.enterContext("b", 1);
    log.clearLog();
    EXPECT_EQ(log.depth(), 0);
    log.logInfo("at the root again");
    EXPECT_EQ(entriesOf(log), "  at the root again\n");
}

TEST(Log, ShowsElapsedTimeOnlyWhenVerboseAndNotZero) {
    const struct {
        const char* name;
        bool verbose;
        int show;
        uint32_t ms;
        const char* head;
    } rows[] = {
        {"measured", true, 1, 42, "  c(42ms):\n"},
        {"nothing elapsed", true, 1, 0, "  c:\n"},
        {"not verbose", false, 1, 42, "  c:\n"},
        {"not to be shown", true, 0, 42, "  c:\n"},
    };
    for (const auto& row : rows) {
        test::FakeClock clock;
        _tvLogger log;
        log.setVerbose(row.verbose);
        log.enterContext("c", row.show);
        clock.advanceMs(row.ms);
        log.leaveContext();
        EXPECT_EQ(entriesOf(log), std::string(row.head) + "  --c\n") << row.name;
    }
}

TEST(Log, ElapsedTimesStandWithTheirOwnContexts) {
    test::FakeClock clock;
    _tvLogger log;
    log.setVerbose(true);
    for (const char* name : {"outer", "inner"}) {
        log.enterContext(name, 1);
        clock.advanceMs(5);
    }
    log.leaveContext();
    log.logInfo("between");
    log.leaveContext();
    log.logInfo("behind");
    EXPECT_EQ(entriesOf(log),
              "  outer(10ms):\n    inner(5ms):\n    --inner\n    between\n  --outer\n  behind\n");
}

TEST(Log, VerboseEntriesNeedAVerboseLog) {
    _tvLogger log;
    log.logVerbose("hidden");
    log.logDataVerbose("name", "hidden");
    log.setVerbose(true);
    log.logVerbose("shown");
    log.logDataVerbose("name", "shown");
    EXPECT_EQ(entriesOf(log), "  shown\n  name: shown\n");
}

TEST(Log, ElapsedEntriesLeaveOutImplausibleTimes) {
    const struct {
        const char* name;
        uint64_t start;
        uint64_t now;
        const char* line;
    } rows[] = {
        {"some time", 1000, 1250, "  t: Elapsed time: 250 millisec\n"},
        {"none", 1000, 1000, "  t: Elapsed time: 0 millisec\n"},
        {"longest", 5, 900000004, "  t: Elapsed time: 899999999 millisec\n"},
        {"too long", 5, 900000005, ""},
        {"backwards", 1000, 999, ""},
    };
    for (const auto& row : rows) {
        const test::FakeClock clock(row.now);
        _tvLogger log;
        log.logElapsed("t", row.start);
        EXPECT_EQ(entriesOf(log), row.line) << row.name;
    }
}

TEST(Log, NeverShowsASecret) {
    _tvLogger log;
    XString password("Passw0rd");
    log.logDataX("user", XString("me"));
    password.markSecret();
    log.logDataX("password", password);
    EXPECT_EQ(entriesOf(log), "  user: me\n  password: {PasswordOrCredentials}\n");
}

TEST(Log, FindsOptionsBySubstring) {
    _tvLogger log;
    EXPECT_FALSE(log.hasOption("NO_TLS_SNI"));
    log.setOptions("UseBccHeader,NO_TLS_SNI");
    EXPECT_TRUE(log.hasOption("NO_TLS_SNI"));
    EXPECT_TRUE(log.hasOption("UseBccHeader"));
    EXPECT_FALSE(log.hasOption("DisableTls13"));
    EXPECT_FALSE(LogNull().hasOption("UseBccHeader"));
}

TEST(Log, NoMemoryDropsEntriesAndKeepsTheContextsPaired) {
    _tvLogger log;
    const std::string longText(100, 'x');
    log.enterContext("outer", 1);
    noMemory = true;
    const bool entered = log.enterContext("a context that cannot be opened", 1);
    const bool logged = log.logError(longText) && log.logData("name", longText);
    const bool left = log.leaveContext();
    noMemory = false;
    EXPECT_TRUE(entered && logged && left) << "logging never fails its caller";
    log.logInfo("still inside");
    log.leaveContext();
    EXPECT_EQ(log.depth(), 0);
    EXPECT_EQ(entriesOf(log), "  outer:\n    still inside\n  --outer\n");
}

TEST(LogNull, SwallowsEverything) {
    LogNull log;
    EXPECT_TRUE(log.enterContext("c", 1) && log.logError("e") && log.logInfo("i"));
    EXPECT_TRUE(log.logData("n", "v") && log.logDataLong("n", 1) && log.logElapsed("n", 0));
    EXPECT_TRUE(log.leaveContext() && log.leaveContext());
    std::string text = "as before";
    log.getText(text);
    EXPECT_EQ(text, "");
}

class DebugFile : public testing::Test {
protected:
    DebugFile() { std::remove(path_.c_str()); }
    ~DebugFile() override { std::remove(path_.c_str()); }

    std::string content() const { return fileText(path_); }

    std::string path_ = testing::TempDir() + "tv_debug_log_test.txt";
};

TEST_F(DebugFile, GetsEveryLineAsItIsWritten) {
    test::FakeClock clock;
    _tvLogger log;
    log.setDebugLogPath(path_);
    log.enterContext("outer", 1);
    EXPECT_EQ(content(), "outer:\n");
    log.enterContext("inner", 1);
    log.logError("error");
    log.logData("name", "value");
    clock.advanceMs(5);
    log.leaveContext();
    log.setVerbose(true);
    log.leaveContext();
    EXPECT_EQ(content(),
              "outer:\n"
              "    inner:\n"
              "        error\n"
              "        name: value\r\n"
              "    (leaveContext)\n"
              "(leaveContext 5ms)\n");
}

TEST_F(DebugFile, AnEmptyPathEndsItAndASecondOneGoesOn) {
    _tvLogger log;
    log.setDebugLogPath(path_);
    log.logInfo("one");
    log.setDebugLogPath("");
    log.logInfo("two");
    log.setDebugLogPath(path_);
    log.logInfo("three");
    EXPECT_EQ(content(), "one\nthree\n");
}

TEST_F(DebugFile, APathThatCannotBeOpenedIsSkipped) {
    for (const std::string& path : {std::string("no such folder/x/y"), testing::TempDir() + "tv\\",
                                    testing::TempDir() + "tv/", std::string("/")}) {
        _tvLogger log;
        log.setDebugLogPath(path);
        EXPECT_TRUE(log.logInfo("kept in the tree")) << path;
        EXPECT_EQ(entriesOf(log), "  kept in the tree\n");
        EXPECT_FALSE(plat::isRegularFile(path));
    }
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

std::string expectedEntries(const char* verbose, const char* closing) {
    const std::string bits = sizeof(void*) == 8 ? "64" : "32";
    return R"(  Act:
    DllDate: Mar 29 2024
    TolvaneVersion: 9.5.0.98
    Architecture: Little Endian; )" +
           bits + "-bit\n    Language: C\n    VerboseLogging: " + verbose + "\n    at work\n    " +
           closing + "\n  --Act\n";
}

TEST(ClsBase, GivesTheAccountOfTheLastOperation) {
    const test::FakeClock clock;
    Thing thing;
    EXPECT_TRUE(thing.act(true));
    EXPECT_EQ(entriesOf(thing.lastErrorText().utf8()), expectedEntries("0", "Success."));
    EXPECT_FALSE(thing.act(false));
    EXPECT_EQ(entriesOf(thing.lastErrorText().utf8()), expectedEntries("0", "Failed."));
    thing.setVerboseLogging(true);
    thing.act(true);
    EXPECT_EQ(entriesOf(thing.lastErrorText().utf8()), expectedEntries("1", "Success."));
}

TEST(ClsBase, AnExceptionLeavesAClosedAndFailedAccount) {
    Thing thing;
    EXPECT_THROW(thing.throwing(), std::bad_alloc);
    const std::string text(thing.lastErrorText().utf8());
    EXPECT_NE(text.find("    Failed.\r\n  --Throwing\r\n"), std::string::npos) << text;
    EXPECT_TRUE(thing.act(true)) << "the lock is free again";
}

}  // namespace
}  // namespace tv
