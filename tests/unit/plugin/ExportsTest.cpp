// The exports as a host calls them, linked into the test, over a network of data.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "emailsending.h"
#include "mail/ClsMailMan.h"
#include "mail/sasl/NtlmVersion.h"
#include "platform/SysClock.h"
#include "platform/SysDialog.h"
#include "plugin/PluginState.h"
#include "tests/fixtures/Dialogue.h"
#include "tests/fixtures/FakeNet.h"
#include "tests/fixtures/FakeSystem.h"

namespace tv {
namespace {

using namespace test;

// Keeps what the user would have been shown.
class FakeDialog final : public plat::SysDialog {
public:
    FakeDialog() = default;
    ~FakeDialog() override { plat::replaceSysDialog(before_); }
    FakeDialog(const FakeDialog&) = delete;
    FakeDialog& operator=(const FakeDialog&) = delete;

    void showError(const char* titleBytes, std::string_view text) override {
        titles.push_back(titleBytes);
        texts.emplace_back(text);
        if (whileOpen) std::exchange(whileOpen, nullptr)();
    }

    std::function<void()> whileOpen;  // what the host's timers do
    std::vector<std::string> titles;
    std::vector<std::string> texts;

private:
    plat::SysDialog* before_ = plat::replaceSysDialog(this);
};

constexpr char kServer[] = "10.0.0.1";
constexpr int kPort = 2525;

class ExportsTest : public testing::Test {
protected:
    ~ExportsTest() override {
        PluginState::replaceInstance(before_);
        tv::setDefaultNtlmVersion(2);
    }

    SmtpSettings& settings() { return state.workbench.current()->mailMan.impl().settings(); }

    void prepareMessage() {
        ::setSmtpHost(kServer);
        ::setSmtpPort(kPort);
        ::setFromAddress("anna@from.test");
        EXPECT_EQ(::setRecipient("bela@to.test"), 1);
        ::setSubject("Subject of it");
        ::setBody("<p>Body of it</p>{LOGO}");
        ::setLogo("");
    }

    FakeLink& serve(std::string_view steps) {
        FakeLink& link = net.serve(kServer, kPort, script(steps));
        link.mayEndEarly = true;
        return link;
    }
    FakeLink& serveTrial() { return serve("trial"); }
    FakeLink& serveMessage() { return serve("whole"); }

    FakeClock clock;
    FakeRandom random;
    FakeHost host{"TESTHOST", 1252, 437};
    FakeNet net{clock};
    FakeDialog dialog;
    PluginState state;

private:
    PluginState* before_ = PluginState::replaceInstance(&state);
};

// Calls everything that takes an argument with it; what comes back must not depend on it.
void callAll(const char* text, int number) {
    ::setSmtpHost(text);
    ::setSmtpPort(number);
    ::setFromAddress(text);
    ::setSmtpPassword(text);
    EXPECT_EQ(::setNoopCount(number), number);
    ::setSmtpUser(text);
    ::setUseSSL(number);
    ::setStartTls(number);
    ::setVerboseLogging();
    EXPECT_EQ(::setDefaultNtlmVersion(number), number);
    ::setSmtpAuthMethod(text);
    ::setLoginDomain(text);
    ::setSubject(text);
    ::setLogo(text);
    ::setBody(text);
    ::ResetEmail();
}

TEST_F(ExportsTest, BeforeInitialiseNothingIsDoneAndSendingSaysWhy) {
    for (const char* text : {"a@example.test", "", static_cast<const char*>(nullptr)}) {
        EXPECT_STREQ(::getLastError(), "");
        callAll(text, 1);
        ::setLogging();
        ::setAttachment(text);
        EXPECT_EQ(::setRecipient(text), 0);
        EXPECT_EQ(::setCC(text), 0);
        EXPECT_EQ(::setBCC(text), 0);
        EXPECT_EQ(::szBrisko(), 0);
        EXPECT_STREQ(::getLastError(), "Nothing was sent: Initialise has not been called.");
        state.lastError.set({});
    }
    EXPECT_TRUE(dialog.texts.empty());
    EXPECT_EQ(state.logDirectory(), "");
    EXPECT_EQ(state.workbench.current(), nullptr);
}

TEST_F(ExportsTest, NullIsTheEmptyString) {
    ::Initialise();
    callAll("old@example.test", 7);
    callAll(nullptr, 0);
    const SmtpSettings& s = settings();
    for (const XString& text : {s.smtpHost, s.userName, s.password, s.authMethod, s.loginDomain}) {
        EXPECT_TRUE(text.empty()) << text.utf8();
    }
    EXPECT_EQ(state.body(), "");
    EXPECT_EQ(::setRecipient(nullptr), 0);
    EXPECT_EQ(::setCC(nullptr), 0);
    EXPECT_EQ(::setBCC(nullptr), 0);
    ::setAttachment(nullptr);
    EXPECT_EQ(dialog.texts.size(), 1u);
}

TEST_F(ExportsTest, SettingsReachTheMailManager) {
    ::Initialise();
    ::setSmtpHost(" HTTP://Mail.Example.TEST/ ");
    ::setSmtpUser("J\xF3zsi");  // the ANSI code page of the host is 1252
    ::setSmtpPassword("p\xE1ss");
    ::setSmtpAuthMethod(" Use plain or login ");
    ::setLoginDomain("OFFICE");
    ::setNoopCount(-5);
    EXPECT_EQ(settings().smtpHost, "mail.example.test");
    EXPECT_EQ(settings().userName, "J\xC3\xB3zsi");
    EXPECT_EQ(settings().password, "p\xC3\xA1ss");
    EXPECT_TRUE(settings().password.isSecret());
    EXPECT_EQ(settings().authMethod, "LOGIN");
    EXPECT_EQ(settings().loginDomain, "OFFICE");
    EXPECT_EQ(state.noopCount, -5);
}

TEST_F(ExportsTest, PortZeroIsIgnored) {
    ::Initialise();
    const std::pair<int, int> steps[] = {{0, 25}, {-1, -1}, {0, -1}};
    for (const auto& [given, port] : steps) {
        ::setSmtpPort(given);
        EXPECT_EQ(settings().smtpPort, port);
    }
}

TEST_F(ExportsTest, OfAFlagTheLowestByteCounts) {
    const std::pair<int, bool> cases[] = {{1, true},  {0, false},    {256, false}, {257, true},
                                          {-1, true}, {-256, false}, {128, true}};
    ::Initialise();
    for (const auto& [flag, on] : cases) {
        ::setUseSSL(flag);
        ::setStartTls(flag);
        EXPECT_EQ(settings().smtpSsl, on) << flag;
        EXPECT_EQ(settings().startTls, on) << flag;
    }
}

// The host may mean "TLS from the first byte, no STARTTLS" or "no TLS": an offer is safe for both.
TEST_F(ExportsTest, AHostThatSaysNoToStartTlsStillTakesAnOffer) {
    ::Initialise();
    prepareMessage();
    ::setStartTls(0);
    for (int connection = 0; connection < 2; ++connection) {
        serve("greet; ehlo 250 STARTTLS; 'STARTTLS' 220 go !close");
    }
    EXPECT_EQ(::szBrisko(), 0);
    EXPECT_TRUE(contains(::getLastError(), "because the server offers it")) << ::getLastError();
}

TEST_F(ExportsTest, TheNtlmVersionIsTheProcessesOwn) {
    EXPECT_EQ(defaultNtlmVersion(), 2);
    EXPECT_EQ(::setDefaultNtlmVersion(1), 1);
    ::Initialise();
    EXPECT_EQ(defaultNtlmVersion(), 1);
    EXPECT_EQ(::setDefaultNtlmVersion(-2147483647 - 1), -2147483647 - 1);
    EXPECT_EQ(defaultNtlmVersion(), -2147483647 - 1);
}

TEST_F(ExportsTest, InitialiseStartsAnewButKeepsTheStatesStrings) {
    EXPECT_EQ(::Initialise(), 0);
    prepareMessage();
    ::setBody("kept {LOGO}");
    ::setLogging();
    ::setVerboseLogging();
    const std::string directory = state.logDirectory();
    EXPECT_TRUE(directory.size() > 1 && directory.back() == '\\');
    EXPECT_EQ(settings().sentMailLogFile, "emailsending.log");
    EXPECT_EQ(::Initialise(), 0);
    EXPECT_EQ(settings().smtpPort, 25);
    EXPECT_TRUE(settings().smtpHost.empty());
    EXPECT_TRUE(settings().sentMailLogFile.empty());
    EXPECT_FALSE(state.workbench.current()->mailMan.impl().verboseLogging());
    EXPECT_EQ(state.body(), "kept {LOGO}");
    EXPECT_EQ(state.logDirectory(), directory);
}

TEST_F(ExportsTest, InitialiseWaitsNoLongerForAServerThatFellSilent) {
    ::Initialise();
    prepareMessage();
    serveTrial();
    FakeLink& link = serveMessage();
    EXPECT_EQ(::szBrisko(), 1);
    link.latencyMs = 60000;
    const uint64_t start = clock.nowNs;
    ::Initialise();
    EXPECT_EQ((clock.nowNs - start) / 1000000, 500u);
    EXPECT_TRUE(link.fromClient.ends_with("QUIT\r\n"));
    EXPECT_TRUE(link.closedByClient);
}

TEST_F(ExportsTest, AMissingAttachmentIsShownAndNothingElse) {
    ::Initialise();
    state.lastError.set("as before");
    ::setAttachment("no-such-f\xC3\xADle.txt");
    ASSERT_EQ(dialog.texts.size(), 1u);
    EXPECT_EQ(dialog.titles[0], "\x48\x69\x62\x61\x20\x74\xF6\x72\x74\xE9\x6E\x74");
    EXPECT_TRUE(contains(dialog.texts[0], "AddFileAttachment"));
    EXPECT_TRUE(contains(dialog.texts[0], "no-such-f\xC3\xADle.txt"));
    EXPECT_STREQ(::getLastError(), "as before");
}

TEST_F(ExportsTest, WhileTheMessageBoxIsOpenEveryFunctionWorks) {
    ::Initialise();
    prepareMessage();
    serveTrial();
    const FakeLink& first = serve("open; mail; rcpt; rcpt2; data; text; quit");
    dialog.whileOpen = [&] {
        std::thread([] { EXPECT_EQ(::setCC("cili@to.test"), 1); }).join();
        ::setAttachment("missing, too");
        EXPECT_EQ(::szBrisko(), 1) << ::getLastError();
        ::Initialise();
        prepareMessage();
    };
    ::setAttachment("missing");
    EXPECT_EQ(dialog.texts.size(), 2u);
    EXPECT_TRUE(first.finished);
    serveTrial();
    serveMessage();
    EXPECT_EQ(::szBrisko(), 1) << ::getLastError();
}

TEST_F(ExportsTest, ASendUnderWayFinishesWithWhatItBeganWith) {
    ::Initialise();
    prepareMessage();
    serveTrial();
    const FakeLink& first = serveMessage();
    net.onWait = [&] {  // what the system may bring into the thread that sends
        if (!contains(first.fromClient, "MAIL FROM")) return;
        net.onWait = nullptr;
        EXPECT_EQ(::setRecipient("stranger@to.test"), 0);
        EXPECT_EQ(::szBrisko(), 0);
        EXPECT_STREQ(::getLastError(),
                     "Sending failed: A function was called from within another one.");
        ::Initialise();
        prepareMessage();
        ::setSubject("Second");
    };
    EXPECT_EQ(::szBrisko(), 1) << ::getLastError();
    EXPECT_TRUE(contains(first.fromClient, "Subject: Subject of it\r\n"));
    EXPECT_FALSE(contains(first.fromClient, "stranger"));
    EXPECT_TRUE(first.closedByClient);  // nothing else holds the old objects

    serveTrial();
    const FakeLink& second = serveMessage();
    EXPECT_EQ(::szBrisko(), 1) << ::getLastError();
    EXPECT_TRUE(contains(second.fromClient, "Subject: Second\r\n"));
}

TEST_F(ExportsTest, AMissingLogoLeavesOnlyThePlaceholderOut) {
    ::Initialise();
    ::setBody("abc{LOGO}def");
    ::setLogo("no-such-logo.png");
    EXPECT_EQ(state.body(), "abcdef");
    EXPECT_TRUE(dialog.texts.empty());
}

TEST_F(ExportsTest, AFailedTrialKeepsTheMessageForALaterSend) {
    ::Initialise();
    prepareMessage();
    net.refuse(kServer, kPort);
    EXPECT_EQ(::szBrisko(), 0);
    EXPECT_TRUE(contains(::getLastError(), "VerifySmtpConnection"));

    serveTrial();
    const FakeLink& link = serveMessage();
    EXPECT_EQ(::szBrisko(), 1);
    EXPECT_STREQ(::getLastError(), "");
    EXPECT_TRUE(contains(link.fromClient, "Subject: Subject of it\r\n"));
    EXPECT_TRUE(contains(link.fromClient, "<p>Body of it</p>"));
}

TEST_F(ExportsTest, ARefusedMessageLeavesTheTranscriptAndIsGone) {
    ::Initialise();
    prepareMessage();
    serveTrial();
    // The next message goes over the same connection.
    serve(
        "open; mail; rcpt 550 no such user; rset; 'MAIL FROM:<second@example.test>' 250 ok; "
        "'RCPT TO:<other@example.test>' 250 ok; data; text; quit");
    EXPECT_EQ(::szBrisko(), 0);
    const std::string transcript = ::getLastError();
    EXPECT_TRUE(contains(transcript, "RCPT TO:<bela@to.test>"));
    EXPECT_TRUE(contains(transcript, "550 no such user"));
    EXPECT_FALSE(contains(transcript, "VerifySmtpConnection"));

    ::setFromAddress("second@example.test");
    EXPECT_EQ(::setRecipient("other@example.test"), 1);
    serveTrial();
    EXPECT_EQ(::szBrisko(), 1) << ::getLastError();
    EXPECT_STREQ(::getLastError(), "");
}

TEST_F(ExportsTest, AfterASendTheMessageIsEmptyButTheBodyTextStays) {
    ::Initialise();
    prepareMessage();
    serveTrial();
    const FakeLink& link = serve("open; transaction; delivered");
    EXPECT_EQ(::szBrisko(), 1) << ::getLastError();
    EXPECT_EQ(state.body(), "<p>Body of it</p>");

    EXPECT_EQ(::setRecipient("bela@to.test"), 1);
    serveTrial();
    EXPECT_EQ(::szBrisko(), 1) << ::getLastError();
    const std::string& all = link.fromClient;
    const std::string second = all.substr(all.rfind("MAIL FROM"));
    EXPECT_FALSE(contains(second, "Body of it"));  // there was no setLogo
    EXPECT_FALSE(contains(second, "Subject of it"));
    EXPECT_TRUE(contains(second, "MAIL FROM:<anna@from.test>\r\n"));
    EXPECT_TRUE(contains(second, "\r\nFrom: anna@from.test\r\n"));
}

TEST_F(ExportsTest, ResetEmailDropsTheMessageAndKeepsTheServer) {
    ::Initialise();
    prepareMessage();
    ::setCC("copy@example.test");
    ::setBCC("blind@example.test");
    ::ResetEmail();
    EXPECT_EQ(settings().smtpPort, kPort);
    prepareMessage();
    serveTrial();
    const FakeLink& link = serveMessage();
    EXPECT_EQ(::szBrisko(), 1) << ::getLastError();
    EXPECT_FALSE(contains(link.fromClient, "copy@"));
    EXPECT_FALSE(contains(link.fromClient, "blind@"));
}

// Memory runs out while the library waits for the server: in the trial, then in the send.
TEST_F(ExportsTest, AnExceptionEndsAtTheExportWithItsReason) {
    ::Initialise();
    for (const int failingConnection : {1, 2}) {
        prepareMessage();
        serveTrial();
        if (failingConnection == 2) serveMessage();
        net.connects.clear();
        net.onWait = [&] {
            if (net.connects.size() == static_cast<size_t>(failingConnection))
                throw std::bad_alloc();
        };
        EXPECT_EQ(::szBrisko(), 0) << failingConnection;
        EXPECT_STREQ(::getLastError(), "Sending failed: Out of memory.") << failingConnection;
        net.onWait = nullptr;
    }
}

// The server would take the next message's commands for text of the one that broke off.
TEST_F(ExportsTest, AConnectionThatBrokeOffInMidMessageIsNotUsedAgain) {
    ::Initialise();
    constexpr char kOutOfMemory[] = "Sending failed: Out of memory.";
    const std::pair<const char*, const char*> rows[] = {
        {"MAIL FROM", kOutOfMemory},
        {"RCPT TO", kOutOfMemory},
        {"DATA\r\n", kOutOfMemory},
        {"\r\n.\r\n", "The server may have the message"},
    };
    for (const auto& row : rows) {
        const char* const lastCommand = row.first;
        prepareMessage();
        serveTrial();
        const FakeLink& broken = serveMessage();
        net.onWait = [&] {
            if (broken.fromClient.find(lastCommand) != std::string::npos) throw std::bad_alloc();
        };
        EXPECT_EQ(::szBrisko(), 0) << lastCommand;
        EXPECT_TRUE(contains(::getLastError(), row.second)) << lastCommand << ::getLastError();
        net.onWait = nullptr;
        const std::string before = broken.fromClient;

        prepareMessage();
        serveTrial();
        const FakeLink& link = serveMessage();
        EXPECT_EQ(::szBrisko(), 1) << lastCommand << ::getLastError();
        EXPECT_TRUE(link.connected) << lastCommand;
        EXPECT_EQ(broken.fromClient, before) << lastCommand;
        ::Initialise();
    }
}

struct BrokenClock final : plat::SysClock {
    uint64_t monotonicNs() override { throw std::runtime_error("no clock"); }
    plat::CivilTime localTime() override { return {}; }
    uint64_t fileTimeUtc() override { return 0; }
    void sleepMs(uint32_t) override {}
};

// Or the next message goes to the recipients of this one, too.
TEST_F(ExportsTest, AResetThatFailedIsMadeUpFor) {
    BrokenClock broken;
    ::Initialise();
    prepareMessage();
    serveTrial();
    const FakeLink& first = serveMessage();
    net.onWait = [&] {
        if (!contains(first.fromClient, "\r\n.\r\n")) return;
        plat::replaceSysClock(&broken);
        throw std::bad_alloc();
    };
    EXPECT_EQ(::szBrisko(), 0);
    EXPECT_EQ(::setRecipient("lost@to.test"), 0);
    plat::replaceSysClock(&clock);
    net.onWait = nullptr;
    ::setFromAddress("anna@from.test");
    EXPECT_EQ(::setRecipient("cili@to.test"), 1);
    serveTrial();
    serve("open; mail; rcpt2; data; text; quit");
    EXPECT_EQ(::szBrisko(), 1) << ::getLastError();
}

TEST_F(ExportsTest, TheErrorTextStaysWhateverOthersDo) {
    ::Initialise();
    ::setSmtpHost(kServer);
    ::setSmtpPort(kPort);
    net.refuse(kServer, kPort);
    EXPECT_EQ(::szBrisko(), 0);
    const char* text = ::getLastError();
    const std::string copy = text;
    callAll("other@example.test", 3);
    ::Initialise();
    EXPECT_EQ(::getLastError(), text);
    std::thread([] { EXPECT_EQ(::szBrisko(), 0); }).join();
    EXPECT_EQ(copy, text);
    EXPECT_NE(copy, ::getLastError());
}

}  // namespace
}  // namespace tv
