// The log: what its entries become in the account and in the debug file, and the account that each
// public operation leaves.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <sstream>

#include "base/Ascii.h"
#include "base/Failure.h"
#include "log/ClsBase.h"
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

// The text of a log between its first and its last line, with bars for the line ends.
std::string entriesOf(std::string_view all) {
    constexpr std::string_view kFirst = "TolvaneLog:\r\n", kLast = "--TolvaneLog\r\n";
    EXPECT_TRUE(all.starts_with(kFirst) && all.ends_with(kLast)) << all;
    all = all.substr(kFirst.size(), all.size() - kFirst.size() - kLast.size());
    return replaceAll(all, "\r\n", "|");
}
std::string entriesOf(Log& log) {
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
        {"not verbose, then not to be shown", ">c|+42|<|V|)d|+42|<", "  c:|  --c|  d:|  --d|"},
        {"times stand with their own contexts",
         "V|>outer|+5|>in|+5|<|>at once|<|.between|<|.behind",
         "  outer(10ms):|    in(5ms):|    --in|    at once:|    --at once|    between|  --outer|"
         "  behind|"},
        {"verbose entries", "vhidden|V|vshown", "  shown|  name: shown|"},
        {"elapsed, or implausible", "e0|e899999999|e900000000|e-1",
         "  t: Elapsed time: 0 millisec|  t: Elapsed time: 899999999 millisec|"},
    };
    for (const auto& row : rows) {
        Clock clock(1'000'000'000);
        Log log;
        play(log, clock, row.script);
        EXPECT_EQ(entriesOf(log), row.entries) << row.name;
    }
}

TEST(Log, showsValuesAndNoSecrets) {
    Log log;
    log.logText("text");
    log.logDataLong("number", -7);
    log.logDataBool("flag", true);
    log.logDataHex("bytes", std::array<uint8_t, 2>{0x0A, 0xFF});
    XString password("Passw0rd");
    log.logDataX("user", XString("me"));
    password.markSecret();
    log.logDataX("password", password);
    EXPECT_EQ(entriesOf(log),
              "  text|  number: -7|  flag: 1|  bytes: 0AFF|  user: me|"
              "  password: {PasswordOrCredentials}|");
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
    EXPECT_EQ(entriesOf(log), "  outer:|    still inside|  --outer|");
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
    for (const std::string none : {"no such folder/x/y", "tv\\", "tv/", "/"}) {
        log.clearLog();
        log.setDebugLogPath(none);
        EXPECT_TRUE(log.logInfo("kept")) << none;
        EXPECT_EQ(entriesOf(log), "  kept|") << none;
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
}

class Thing : public ClsBase {
public:
    bool act(bool result, bool throws = false) {
        Operation operation(*this, "Act");
        operation.log().logInfo("at work");
        if (throws) throw std::bad_alloc();
        return operation.finish(result);
    }
};

TEST(ClsBase, givesTheAccountOfTheLastOperation) {
    const Clock clock;
    Thing thing;
    const auto account = [](bool verbose, bool success) {
        return std::string("  Act:|    DllDate: Mar 29 2024|    TolvaneVersion: 9.5.0.98|") +
               "    Architecture: Little Endian; " + (sizeof(void*) == 8 ? "64" : "32") +
               "-bit|    Language: C|    VerboseLogging: " + (verbose ? "1" : "0") +
               "|    at work|    " + (success ? "Success." : "Failed.") + "|  --Act|";
    };
    thing.setVerboseLogging(true);
    EXPECT_THROW(thing.act(true, true), std::bad_alloc);
    EXPECT_EQ(entriesOf(thing.lastErrorText().utf8()), account(true, false));
    thing.setVerboseLogging(false);
    EXPECT_TRUE(thing.act(true)) << "the lock is free again";
    EXPECT_EQ(entriesOf(thing.lastErrorText().utf8()), account(false, true));
}

}  // namespace
}  // namespace tv
