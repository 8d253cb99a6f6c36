// The exports as a host calls them, linked into the test, over a network of data.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

#include "emailsending.h"
#include "mail/ClsMailMan.h"
#include "mail/sasl/NtlmVersion.h"
#include "platform/SysDialog.h"
#include "plugin/PluginState.h"
#include "tests/fixtures/Dialogue.h"
#include "tests/fixtures/FakeNet.h"
#include "tests/fixtures/FakeSystem.h"
#include "tests/fixtures/LoopbackServer.h"
#include "tests/fixtures/TestData.h"

namespace tv {
namespace {

using namespace test;

constexpr char kServer[] = "10.0.0.1";
constexpr int kPort = 2525;

// Keeps what the user would have been shown, from whatever thread.
class FakeDialog final : public StandIn<plat::SysDialog> {
public:
    void showError(const char* titleBytes, std::string_view text) override {
        {
            const std::lock_guard guard(lock_);
            texts.push_back(titleBytes + std::string(": ").append(text));
        }
        if (const auto meanwhile = whileOpen) meanwhile();
    }

    std::function<void()> whileOpen;  // what the host's timers do
    std::vector<std::string> texts;   // title and text

private:
    std::mutex lock_;
};

struct BrokenClock final : StandIn<plat::SysClock> {
    uint64_t monotonicNs() override { throw std::runtime_error("no clock"); }
    plat::CivilTime localTime() override { return {}; }
    uint64_t fileTimeUtc() override { return 0; }
    void sleepMs(uint32_t) override {}
};

// A record of the test's own behind the exports.
struct OwnState : PluginState {
    ~OwnState() { replaceInstance(before); }
    PluginState* const before = replaceInstance(this);
};

class Exports : public testing::Test {
protected:
    Exports() { ::Initialise(); }
    ~Exports() override { tv::setDefaultNtlmVersion(2); }

    ClsMailMan& mailMan() { return state.workbench.current()->mailMan.impl(); }
    const SmtpSettings& settings() { return mailMan().settings(); }

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
    // The trial connection, then the message's.
    FakeLink& serveMessage(std::string_view steps = "whole") {
        serve("trial");
        return serve(steps);
    }
    void expectSent() {
        EXPECT_EQ(::szBrisko(), 1) << ::getLastError();
        EXPECT_STREQ(::getLastError(), "");
    }
    // Returns the reason.
    std::string expectFailure(std::string_view part) {
        EXPECT_EQ(::szBrisko(), 0) << part;
        EXPECT_TRUE(contains(::getLastError(), part)) << part << "\n" << ::getLastError();
        return ::getLastError();
    }

    FakeClock clock;
    FakeRandom random;
    FakeHost host{"TESTHOST", 1252, 437};
    FakeNet net{clock};
    FakeDialog dialog;
    OwnState state;
};

void setTexts(const char* text) {
    for (const auto set : {::setSmtpUser, ::setSmtpPassword, ::setLoginDomain, ::setSubject,
                           ::setBody, ::setAttachment})
        set(text);
}

// Calls everything that takes an argument with it; what comes back must not depend on it.
void callAll(const char* text, int number) {
    setTexts(text);
    for (const auto set : {::setSmtpHost, ::setFromAddress, ::setSmtpAuthMethod, ::setLogo})
        set(text);
    for (const auto set : {::setSmtpPort, ::setUseSSL, ::setStartTls})
        set(number);
    EXPECT_EQ(::setNoopCount(number) + ::setDefaultNtlmVersion(number), 2 * number);
    ::setVerboseLogging();
    ::ResetEmail();
}

TEST_F(Exports, nullIsTheEmptyStringAndWithoutInitialiseNothingIsDone) {
    callAll("old@example.test", 7);
    callAll(nullptr, 0);
    const SmtpSettings& s = settings();
    for (const XString& text : {s.smtpHost, s.userName, s.password, s.authMethod, s.loginDomain})
        EXPECT_TRUE(text.empty()) << text.utf8();
    EXPECT_EQ(state.body(), "");
    EXPECT_EQ(::setRecipient(nullptr) + ::setCC(nullptr) + ::setBCC(nullptr), 0);
    state.workbench.replace(nullptr);
    callAll("a@example.test", 1);
    ::setLogging();
    EXPECT_EQ(::setRecipient("a@b.test") + ::setCC("a@b.test") + ::setBCC("a@b.test"), 0);
    EXPECT_EQ(expectFailure(""), "Nothing was sent: Initialise has not been called.");
    EXPECT_EQ(dialog.texts.size(), 2u);  // of the attachments before
    EXPECT_EQ(state.logDirectory(), "");
}

TEST_F(Exports, settingsReachTheMailManagerAndInitialiseStartsAnew) {
    ::setSmtpHost(" HTTP://Mail.Example.TEST/ ");
    ::setSmtpUser("J\xF3zsi");  // the ANSI code page of the host is 1252
    ::setSmtpPassword("p\xE1ss");
    ::setSmtpAuthMethod(" Use plain or login ");
    ::setLoginDomain("OFFICE");
    ::setNoopCount(-5);
    EXPECT_EQ(::setDefaultNtlmVersion(-2147483647 - 1), -2147483647 - 1);
    EXPECT_EQ(settings().smtpHost, "mail.example.test");
    EXPECT_EQ(settings().userName, "J\xC3\xB3zsi");
    EXPECT_EQ(settings().password, "p\xC3\xA1ss");
    EXPECT_EQ(settings().authMethod, "LOGIN");
    EXPECT_EQ(settings().loginDomain, "OFFICE");
    EXPECT_TRUE(settings().password.isSecret());
    EXPECT_EQ(state.noopCount, -5);
    EXPECT_EQ(defaultNtlmVersion(), -2147483647 - 1);
    for (const int flag : {1, 0, 256, 257, -1}) {
        ::setUseSSL(flag);
        ::setStartTls(flag);
        EXPECT_EQ(settings().smtpSsl, (flag & 0xFF) != 0) << flag;
        EXPECT_EQ(settings().startTls, (flag & 0xFF) != 0) << flag;
    }
    prepareMessage();
    ::setBody("a{LOGO}b{LOGO}{logo}{LOGO");
    ::setLogging();
    ::setVerboseLogging();
    EXPECT_TRUE(mailMan().verboseLogging());
    const std::string directory = state.logDirectory();
    EXPECT_TRUE(directory.size() > 1 && directory.back() == '\\');
    EXPECT_EQ(settings().sentMailLogFile, "emailsending.log");
    EXPECT_EQ(::Initialise(), 0);
    EXPECT_EQ(settings().smtpPort, 25);
    EXPECT_TRUE(settings().smtpHost.empty() && settings().sentMailLogFile.empty());
    EXPECT_FALSE(mailMan().verboseLogging());
    EXPECT_EQ(defaultNtlmVersion(), -2147483647 - 1);
    EXPECT_EQ(state.logDirectory(), directory);
    ::setLogo("no-such-logo.png");
    EXPECT_EQ(state.body(), "ab{LOGO}{logo}{LOGO");
    ::setLogo(testDataPath("mail/sends.txt").c_str());
    EXPECT_TRUE(state.body().starts_with("ab<img title=\"logo\" src=\"cid:")) << state.body();
    EXPECT_TRUE(state.body().ends_with("\" style=\"width: 100%; height: auto;\">{logo}{LOGO"));
}

// The host may mean "TLS from the first byte, no STARTTLS" or "no TLS": an offer is safe for both.
TEST_F(Exports, aHostThatSaysNoToStartTlsStillTakesAnOffer) {
    prepareMessage();
    ::setStartTls(0);
    for (int connection = 0; connection < 2; ++connection)
        serve("greet; ehlo 250 STARTTLS; 'STARTTLS' 220 go !close");
    expectFailure("because the server offers it");
}

TEST_F(Exports, initialiseWaitsNoLongerForAServerThatFellSilent) {
    prepareMessage();
    FakeLink& link = serveMessage();
    expectSent();
    link.latencyMs = 60000;
    const uint64_t start = clock.nowNs;
    ::Initialise();
    EXPECT_EQ((clock.nowNs - start) / 1000000, 500u);
    EXPECT_TRUE(link.fromClient.ends_with("QUIT\r\n"));
    EXPECT_TRUE(link.closedByClient);
}

TEST_F(Exports, whileTheMessageBoxIsOpenEveryFunctionWorks) {
    prepareMessage();
    state.lastError.set("as before");
    const FakeLink& first = serveMessage("open; mail; rcpt; rcpt2; data; text; quit");
    dialog.whileOpen = [&] {
        dialog.whileOpen = nullptr;
        EXPECT_STREQ(::getLastError(), "as before");
        std::thread([] { EXPECT_EQ(::setCC("cili@to.test"), 1); }).join();
        ::setAttachment("missing, too");
        expectSent();
        ::Initialise();
        prepareMessage();
    };
    ::setAttachment("no-such-f\xC3\xADle.txt");
    ASSERT_EQ(dialog.texts.size(), 2u);
    EXPECT_TRUE(dialog.texts[0].starts_with("Hiba t\xF6rt\xE9nt: "));
    EXPECT_TRUE(contains(dialog.texts[0], "AddFileAttachment"));
    EXPECT_TRUE(contains(dialog.texts[0], "no-such-f\xC3\xADle.txt"));
    EXPECT_TRUE(first.finished);
    serveMessage();
    expectSent();
}

TEST_F(Exports, aSendUnderWayFinishesWithWhatItBeganWith) {
    prepareMessage();
    const FakeLink& first = serveMessage();
    net.onWait = [&] {  // what the system may bring into the thread that sends
        if (!contains(first.fromClient, "MAIL FROM")) return;
        net.onWait = nullptr;
        EXPECT_EQ(::setRecipient("stranger@to.test"), 0);
        EXPECT_EQ(expectFailure(""),
                  "Sending failed: A function was called from within another one.");
        ::Initialise();
        prepareMessage();
        ::setSubject("Second");
    };
    expectSent();
    EXPECT_TRUE(contains(first.fromClient, "Subject: Subject of it\r\n"));
    EXPECT_FALSE(contains(first.fromClient, "stranger"));
    EXPECT_TRUE(first.closedByClient);  // nothing else holds the old objects
    const FakeLink& second = serveMessage();
    expectSent();
    EXPECT_TRUE(contains(second.fromClient, "Subject: Second\r\n"));
}

TEST_F(Exports, aFailedTrialKeepsTheMessageAndASendLeavesOnlyTheSender) {
    prepareMessage();
    ::setSubject("T\xC3\xA1rgy");
    ::setAttachment(testDataPath("mail/sends.txt").c_str());
    net.refuse(kServer, kPort);
    expectFailure("VerifySmtpConnection");
    // All messages go over one connection.
    const FakeLink& link = serveMessage(
        "open; transaction; mail; rcpt2 551 gone; rset; "
        "'MAIL FROM:<second@example.test>' 250 ok; rcpt3; data; text; quit");
    expectSent();
    const std::vector texts = {"Subject: =?utf-8?Q?T=C3=A1rgy?=\r\n", "<p>Body of it</p>", "sends"};
    for (const char* text : texts)
        EXPECT_TRUE(contains(link.fromClient, text)) << text;
    EXPECT_EQ(state.body(), "<p>Body of it</p>");

    EXPECT_EQ(::setRecipient("cili@to.test"), 1);
    ::setSubject("Lost");
    serve("trial");
    const std::string transcript = expectFailure("551 gone");
    EXPECT_FALSE(contains(transcript, "VerifySmtpConnection") || contains(transcript, "bela"));

    ::setFromAddress("second@example.test");
    ::setCC("copy@example.test");
    ::setBCC("blind@example.test");
    ::ResetEmail();
    EXPECT_EQ(::setRecipient("dora@to.test"), 1);
    serve("trial");
    expectSent();
    const std::string last = link.fromClient.substr(link.fromClient.rfind("MAIL FROM"));
    EXPECT_TRUE(contains(last, "\r\nFrom: second@example.test\r\n"));
    for (const char* text : {"Subject", "Body of it", "sends"})
        EXPECT_FALSE(contains(last, text)) << text;  // there was no setLogo
}

// Memory runs out while the library waits for the server. The server would take the next message's
// commands for text of the one that broke off; and where emptying the message fails as well, its
// recipients would get the next one, too.
TEST_F(Exports, anExceptionEndsAtTheExportAndItsConnectionIsNotUsedAgain) {
    const std::string memory = "failed: Out of memory.", noClock = "failed: no clock";
    // By the last command; without one in the trial.
    const std::pair<const char*, std::string> rows[] = {
        {"", memory},         {"MAIL FROM", memory},     {"RCPT TO", memory},
        {"DATA\r\n", memory}, {"\r\n.\r\n", "may have"}, {"\r\n.\r\n", noClock}};
    for (const auto& [lastCommand, reason] : rows) {
        SCOPED_TRACE(lastCommand + reason);
        prepareMessage();
        const FakeLink& broken = *lastCommand ? serveMessage() : serve("trial");
        std::optional<BrokenClock> brokenClock;
        net.onWait = [&, command = lastCommand, breaksClock = reason == noClock] {
            if (!contains(broken.fromClient, command)) return;
            if (breaksClock) brokenClock.emplace();
            throw std::bad_alloc();
        };
        expectFailure(reason);
        net.onWait = nullptr;
        const std::string before = broken.fromClient;
        if (brokenClock) {
            EXPECT_EQ(::setRecipient("lost@to.test"), 0);
        } else {
            ::ResetEmail();
        }
        brokenClock.reset();
        prepareMessage();
        const FakeLink& link = serveMessage();
        expectSent();
        EXPECT_TRUE(link.connected);
        EXPECT_EQ(broken.fromClient, before);
        ::Initialise();
    }
}

#if defined(__i386__) || defined(__x86_64__)

struct FloatingPoint {
    uint16_t control = 0;
    uint32_t mxcsr = 0;
    uint16_t status = 0;

    FloatingPoint& read() {
        asm volatile("fnstcw %0\n\tstmxcsr %1\n\tfnstsw %2"
                     : "=m"(control), "=m"(mxcsr), "=m"(status));
        return *this;
    }
    void set() const {
        asm volatile("fnclex\n\tfldcw %0\n\tldmxcsr %1" : : "m"(control), "m"(mxcsr));
    }
};

TEST_F(Exports, bringTheHostsFloatingPointStateBack) {
    FloatingPoint usual, before, inside, after;
    usual.read();
    dialog.whileOpen = [&] {
        if (dialog.texts.size() % 2 != 0) inside.read();
        const volatile long double zero = 0;
        const volatile double zeroOnSse = 0;
        [[maybe_unused]] const volatile long double undefined = zero / zero;
        [[maybe_unused]] const volatile double infinite = 1 / zeroOnSse;
        throw 1;  // for which the box is opened once more
    };
    // As Delphi sets it, everything unmasked, 24 bits rounded down and flushed to zero.
    const FloatingPoint hosts[] = {usual, {0x1332, 0x1900}, {0x0300, 0}, {0x047F, 0xBFC0}};
    for (const FloatingPoint& host : hosts) {
        host.set();
        before.read();  // reserved bits read as they please
        ::setAttachment("missing");
        after.read();
        usual.set();
        EXPECT_EQ(after.control, before.control);
        EXPECT_EQ(after.mxcsr, before.mxcsr) << host.control;
        EXPECT_EQ(after.status & 0x3F, 0) << host.control;
        EXPECT_EQ(inside.control, 0x037F) << host.control;
        EXPECT_EQ(inside.mxcsr, 0x1F80u) << host.control;
        EXPECT_TRUE(dialog.texts.back().ends_with(": Unknown internal failure."));
    }
}

#endif

TEST_F(Exports, theErrorTextStaysWhateverOthersDo) {
    prepareMessage();
    net.refuse(kServer, kPort);
    const std::string copy = expectFailure("Connection rejected");
    const char* const text = ::getLastError();
    callAll("other@example.test", 3);
    ::Initialise();
    EXPECT_EQ(::getLastError(), text);
    std::thread([] { EXPECT_TRUE(::szBrisko() == 0 && *::getLastError()); }).join();
    EXPECT_EQ(copy, text);
    EXPECT_NE(copy, ::getLastError());
}

size_t named(std::string_view text) {
    size_t count = 0;
    for (size_t at = 0; (at = text.find("@to.test", at)) != text.npos; ++at)
        ++count;
    return count;
}

// Against a real server: whatever meets whatever, no message goes out in part and what the sends
// report is what the server has.
TEST(Threads, allExportsAtTheSameTime) {
    std::atomic<int> accepted = 0, senders = 3, taken = 0;
    const LoopbackServer server([&](LoopbackServer::Connection& peer) {  // takes every message
        std::string envelope;
        peer.send("220 sink\r\n");
        for (std::string line = "EHLO"; !line.empty() && line != "QUIT\r\n";) {
            line = peer.receiveUntil("\r\n");
            envelope = (line.starts_with("MAIL") ? "" : envelope) + line;
            if (line == "DATA\r\n") {
                peer.send("354 go ahead\r\n");
                const std::string text = peer.receiveUntil("\r\n.\r\n");
                EXPECT_EQ(named(text.substr(0, text.find("\r\n\r\n"))), named(envelope)) << text;
                ++taken;
            }
            peer.send("250 ok\r\n");
        }
    });
    FakeDialog dialog;
    dialog.whileOpen = [] { ::setSubject("from the box"); };
    const OwnState state;
    const auto startAnew = [&] {  // the port first: nobody else's server is to be met
        ::Initialise();
        ::setSmtpPort(server.port());
        ::setSmtpHost("localhost");
    };
    // To its end, which is somewhere as long as the text is still there.
    const auto readError = [] {
        const std::string text = ::getLastError();
        EXPECT_TRUE(text.empty() || text.ends_with('\n') || text.ends_with('.')) << text;
    };
    const auto sendAll = [&](bool mayStartAnew) {
        for (int i = 0; i < 30; ++i) {
            if (mayStartAnew && i % 3 == 0) startAnew();
            ::setRecipient("to@to.test");
            ::setCC("cc@to.test");
            ::setBCC("blind@blind.test");
            ::setLogo("");
            accepted += ::szBrisko();
            readError();
        }
        --senders;
    };
    const auto setAll = [&] {
        while (senders > 0) {
            setTexts("<p>{LOGO}</p>");
            ::setUseSSL(0);
            ::setStartTls(0);
            ::setSmtpAuthMethod("NONE");
            ::setDefaultNtlmVersion(2);
            ::setNoopCount(1);
            ::setLogging();
            ::setVerboseLogging();
            ::setFromAddress("Anna <anna@from.test>");
            ::setRecipient("another@to.test");
            ::ResetEmail();
            readError();
        }
    };
    startAnew();
    std::thread threads[] = {std::thread(sendAll, true), std::thread(sendAll, false),
                             std::thread(sendAll, false), std::thread(setAll), std::thread(setAll)};
    for (std::thread& thread : threads)
        thread.join();
    std::remove("emailsending.log");

    EXPECT_FALSE(dialog.texts.empty());
    EXPECT_GT(accepted, 0);
    EXPECT_EQ(taken, accepted);
}

}  // namespace
}  // namespace tv
