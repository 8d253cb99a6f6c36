// The message on its way: dots, blocks, flights, transactions, the sent-mail log, and what a broken
// render does.
#include <algorithm>
#include <cstdio>
#include <numeric>

#include "log/tvLogger.h"
#include "mail/smtp/SmtpDelivery.h"
#include "mail/smtp/SmtpTransfer.h"
#include "platform/SysFile.h"
#include "tests/fixtures/TestData.h"
#include "tests/unit/mail/MailWorld.h"

namespace tv::test {
namespace {

// A connection of its own, for messages given as bytes.
struct TransferWorld {
    FakeClock clock;
    FakeHost host;
    FakeNet net{clock};
    _tvLogger log;
    Recorded recorded{log};
    CallContext call{log};
    SmtpConnImpl connection;
    SmtpSend send;
    Failure failure;

    explicit TransferWorld(const std::string& message = "A: b\r\n\r\n") {
        connection.settings.smtpHost.setUtf8(kServer);
        send.fromAddress = kSender;
        send.recipients = {kFirst};
        send.mimeSource = [message](LogBase&, OutputStream& out, bool) {
            return out.write(message);
        };
    }

    FakeLink& serve(const std::string& steps) { return net.serve(kServer, 25, script(steps)); }
    bool transfer() {
        failure = connection.smtpConnectAndAuthenticate(call, false);
        EXPECT_TRUE(send.measure(log));
        if (!failure) failure = SmtpDelivery(call, connection, send).deliver();
        return !failure;
    }
    std::string_view word() const { return statusWord(failure.cause()); }
};

TEST(Transfer, stuffsDotsOnTheWay) {
    for (const uint32_t chunk : {1u, 32767u}) {
        TransferWorld world(".A: b\r\n\r\n.\r\n..\r\n\n.x\r\n.");
        world.connection.settings.sendChunkSize = chunk;
        FakeLink& link = world.serve("whole");
        EXPECT_TRUE(world.transfer());
        EXPECT_EQ(messageOf(link), ".A: b\r\n\r\n..\r\n...\r\n\n..x\r\n..");
        EXPECT_TRUE(contains(world.connection.sessionLog().text(),
                             "354 go ahead\r\n{26 bytes}\n<CRLF>.<CRLF>\r\n"));
        EXPECT_EQ(world.send.progressTotal, 22u + 180 + 80);
    }
    TransferWorld nothing("");
    EXPECT_FALSE(nothing.send.measure(nothing.log));
    nothing.send.mimeSource = [](LogBase&, OutputStream& out, bool) { return !out.write("A"); };
    EXPECT_FALSE(nothing.send.measure(nothing.log));
}

TEST(Transfer, largeMessagesGoInBlocksWithoutNoDelay) {
    for (const size_t size : {10000u, 10001u, 200000u}) {
        TransferWorld world("A: b\r\n\r\n" + std::string(size - 8, 'x'));
        FakeLink& link = world.serve("whole");
        EXPECT_TRUE(world.transfer());
        EXPECT_EQ(world.net.sockets, 1u);
        // EHLO, MAIL, RCPT, DATA, the blocks, the terminator.
        EXPECT_EQ(link.sends, 4 + (size + 32766) / 32767 + 1);
        EXPECT_EQ(link.noDelayHistory, size > 10000 ? std::vector<bool>({true, false, true})
                                                    : std::vector<bool>({true}));
    }
}

// Commands leave together, but no more than 1000 recipients: else both sides could wait for each
// other with all buffers full.
TEST(Transfer, flights) {
    const struct {
        size_t recipients;
        bool refused;
        size_t sends;  // EHLO, the flights, the message, the terminator
    } rows[] = {{1000, false, 4}, {1001, false, 5}, {2500, false, 6}, {2500, true, 3}};
    for (const auto& row : rows) {
        TransferWorld world;
        world.send.recipients.clear();
        std::string steps = row.refused ? "open-piped; mail 550 no; " : "open-piped; mail; ";
        for (size_t i = 0; i < row.recipients; ++i) {
            world.send.recipients.insert(world.send.recipients.end(), {kFirst, ""});
            if (!row.refused || i < 1000) steps += row.refused ? "rcpt 503 x; " : "rcpt; ";
        }
        FakeLink& link = world.serve(steps + (row.refused ? "rset; quit" : "data; text; quit"));
        EXPECT_EQ(world.transfer(), !row.refused);
        EXPECT_EQ(link.sends, row.sends);
        EXPECT_EQ(world.send.goodRecipients.size(), row.refused ? 0 : row.recipients);
    }
}

// A server that takes so many recipients in one transaction: each is named once. Where a further
// transaction fails, all who are left are undelivered.
TEST(Transfer, recipientsAreSpreadOverTransactions) {
    for (const size_t transactions : {1u, 3u}) {
        TransferWorld world;
        world.send.recipients.clear();
        for (int i = 0; i < 250; ++i)
            world.send.recipients.push_back("r" + std::to_string(i) + "@to.test");
        const std::vector<std::string> all = world.send.recipients;
        std::string steps = "open-piped; ";
        for (size_t k = 1; k <= transactions; ++k) {
            steps += "mail; ";
            for (size_t i = k * 100 - 100; i < (k == 2 ? 200 : 250); ++i)
                steps += "'RCPT TO:<" + all[i] + (i < k * 100 ? ">' 250 ok; " : ">' 452 full; ");
            steps += "data; 'A: b' -; '' -; '' -; '.' 250 taken; ";
        }
        const bool toAll = transactions == 3;
        world.serve(steps + (toAll ? "quit" : "mail 421 bye !close"));
        EXPECT_TRUE(world.transfer());
        EXPECT_EQ(world.send.goodRecipients,
                  std::vector(all.begin(), toAll ? all.end() : all.begin() + 100));
        EXPECT_EQ(world.send.badRecipients.size(), toAll ? 0u : 150u);
    }
}

TEST(Transfer, recipientsByKind) {
    using Names = std::vector<std::string>;
    const std::string third = "j\xC3\xB3zsef@to.test";
    const struct {
        Names given, good, bad;
        bool only;  // they are asked for, and nothing is sent
        const char* steps;
    } rows[] = {
        // No address, no ASCII form of the domain.
        {{"", "<>", " ; ", "\r\n", "a@\xC3\xBC..test"}, {}, {}, false, "open8; quit"},
        {{kFirst, kSecond}, {kFirst}, {kSecond}, true, "to-rcpt; rcpt2 550 no; rset; quit"},
        {{kFirst, kSecond}, {kFirst}, {kSecond}, true, "piped-rcpt; rcpt2 550 no; rset; quit"},
        // Each form of the message.
        {{third, kFirst},
         {kFirst, third},
         {},
         false,
         "open8; mail; rcpt; data; 'A: b' -; '' -; '' -; '.' 250 ok; "
         "mail8; rcpt8; data; 'A: in UTF-8' -; '' -; '' -; '.' 250 ok; quit"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.steps);
        TransferWorld world;
        world.send.mimeSource = [](LogBase&, OutputStream& out, bool utf8) {
            return out.write(utf8 ? "A: in UTF-8\r\n\r\n" : "A: b\r\n\r\n");
        };
        world.send.recipients = row.given;
        world.send.checkRecipientsOnly = row.only;
        world.serve(row.steps);
        world.transfer();
        EXPECT_EQ(world.word(), row.good.empty() ? "NoValidRecipients" : "Success");
        EXPECT_EQ(world.send.goodRecipients, row.good);
        EXPECT_EQ(world.send.badRecipients, row.bad);
    }
}

// Renders well when it is measured and badly the second time: no terminator, and no command that
// the server would take for text.
TEST(Transfer, aMessageThatBreaksOffNeverGetsItsTerminator) {
    const struct {
        const char* later;  // what the second render gives; without it memory runs out
        bool succeeds;
    } rows[] = {
        {"A: b\r\n", false},
        {"A: b\r\n\r\n", true},
        {"A: b\r\n\r\nbody\r\nand more\r\n", true},
        {nullptr, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.later ? row.later : "memory");
        TransferWorld world;
        int renders = 0;
        world.send.mimeSource = [&](LogBase&, OutputStream& out, bool) {
            if (++renders == 1) return out.write("A: b\r\n\r\nbody\r\n");
            if (!row.later) throw std::bad_alloc();
            return out.write(row.later) && row.succeeds;
        };
        FakeLink& link = world.serve("to-data; silence");
        link.mayEndEarly = true;
        if (row.later) {
            EXPECT_FALSE(world.transfer());
            EXPECT_EQ(world.word(), "RenderFailed");
            EXPECT_FALSE(world.failure.mayReconnect());
        } else {
            EXPECT_THROW(world.transfer(), std::bad_alloc);
            world.serve("trial");
            EXPECT_FALSE(world.connection.smtpConnect(world.call));
        }
        EXPECT_TRUE(link.closedByClient);
        EXPECT_FALSE(contains(link.fromClient, "\r\n.\r\n"));
        EXPECT_FALSE(contains(link.fromClient, "QUIT"));
    }
}

// Where it failed, why, and whether it may be sent again: no line of the log says that.
TEST(Transfer, failuresTellStageAndRepetition) {
    using S = Stage;
    using C = Cause;
    using R = Repeat;
    const struct {
        const char* steps;  // empty: nobody serves
        Stage stage;
        Cause cause;
        int32_t code;
        Repeat repeat;
        bool reconnects = false;
        Cause root = C::None;  // where another one lies below
    } rows[] = {
        {"", S::Connect, C::ConnectFailed, 0, R::NothingSent, false, C::Rejected},
        // in clear where TLS is wanted
        {"greet; silence", S::TlsHandshake, C::ConnectFailed, 0, R::NothingSent, false,
         C::TlsRecordType},
        {"greet 554 no", S::Greeting, C::GreetingError, 554, R::RefusedForGood},
        {"greet !close", S::Ehlo, C::ConnectionLost, 0, R::NothingSent},
        {"to-mail 451 no; rset; quit", S::Sender, C::FromFailure, 451, R::RefusedForNow, true},
        {"to-rcpt 550 no; rset; quit", S::Recipients, C::NoValidRecipients, 550, R::RefusedForGood},
        {"to-rcpt !close", S::Data, C::ConnectionLost, 0, R::NothingSent, true},
        {"to-data 452 full; rset; quit", S::Data, C::DataFailure, 452, R::RefusedForNow},
        {"to-text 554 no", S::Acceptance, C::DataFailure, 554, R::RefusedForGood},
        {"to-text -!close", S::Acceptance, C::ConnectionLost, 0, R::Unknown},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.steps);
        TransferWorld world;
        const bool ssl = row.stage == Stage::TlsHandshake;
        if (*row.steps) world.serve(row.steps).mayEndEarly = ssl;
        if (row.stage == Stage::Greeting) world.serve(row.steps);  // it is asked once more
        world.connection.settings.smtpSsl = ssl;
        EXPECT_FALSE(world.transfer());
        const Failure& failure = world.failure;
        EXPECT_EQ(failure.stage(), row.stage);
        EXPECT_EQ(failure.cause(), row.cause);
        EXPECT_EQ(failure.root(), row.root == Cause::None ? row.cause : row.root);
        EXPECT_EQ(failure.replyCode(), row.code);
        EXPECT_EQ(failure.repeat(), row.repeat);
        EXPECT_EQ(failure.mayReconnect(), row.reconnects);
    }
}

TEST(Transfer, memoryThatRunsOutAtTheLastReplyIsAnUnknownOutcome) {
    Watcher monitor;
    monitor.noMemoryAt = "250 taken";
    TransferWorld world;
    world.call.setMonitor(&monitor);
    FakeLink& link = world.serve("to-text");
    EXPECT_FALSE(world.transfer());
    EXPECT_TRUE(contains(world.failure.text(), "may deliver it twice"));
    EXPECT_TRUE(link.closedByClient);
}

TEST(SentMailLog, holdsTheStuffedMessageBeforeItGoesOut) {
    const std::string path = "unit_mail_sent.log";
    std::remove(path.c_str());
    const std::string entry =
        "--BEGIN SENT TOLVANE EMAIL--\n.A: b\r\n\r\n..x\r\n\n--END SENT TOLVANE EMAIL--\n";
    // Accepted in two transactions, refused at the end, lost in the middle: each was transferred.
    const char* const dialogues[] = {
        "to-rcpt; rcpt2 452 full; data; text; mail; rcpt2; data; text; quit",
        "to-text 554 no",
        "to-data !reset",
        "to-data 554 no; rset; quit",  // never transferred
        "open-piped; mail; rcpt 550 no; data; '.' 250 taken; quit",
    };
    std::string wanted;
    for (size_t i = 0; i < std::size(dialogues); ++i) {
        TransferWorld world(".A: b\r\n\r\n.x\r\n");
        world.connection.settings.sentMailLogFile.setUtf8(path);
        if (i == 0) world.send.recipients.push_back(kSecond);
        world.serve(dialogues[i]);
        plat::SysFile other;  // of another process, which keeps the file to itself
        EXPECT_TRUE(i != 1 || (other.openAppend(path) && other.tryLock()));
        EXPECT_EQ(world.transfer(), i == 0);
        if (i < 3) wanted += entry;
        EXPECT_EQ(fileText(path), wanted) << i;
        const auto& sleeps = world.clock.sleeps;
        EXPECT_EQ(std::accumulate(sleeps.begin(), sleeps.end(), 0u), i == 1 ? 2000u : 0u) << i;
    }
    std::remove(path.c_str());
}

// The application says stop at each place where it is asked, and at last nowhere.
TEST(Progress, anAbortIsNeverAFalseSuccess) {
    for (const std::string extension : {"DSN", "PIPELINING"}) {
        bool askedAfterACommand = false;
        bool aborted = true;
        for (int question = 0; aborted && question < 200; ++question) {
            SCOPED_TRACE(extension + ": " + std::to_string(question));
            MailWorld world;
            world.compose();
            // QUIT may come at any place.
            FakeLink& link = world.serve("greet; any 250 " + extension +
                                         "; any; any; any 354 go ahead; text; any");
            link.mayEndEarly = true;
            int asked = 0;
            Watcher watcher;
            watcher.stops = [&] { return asked++ >= question; };
            const bool sent = world.send(&watcher);
            aborted = asked > question;
            // With the whole terminator out the message is with the server.
            EXPECT_EQ(sent, !messageOf(link).empty());
            EXPECT_EQ(sent && aborted, contains(world.logText(), "may deliver it twice"));
            EXPECT_TRUE(!aborted || !contains(link.fromClient, "MAIL FROM") || link.closedByClient);
            EXPECT_TRUE(sent || !link.connected || world.word() == "Aborted");
            EXPECT_TRUE(world.clock.sleeps.empty());
            askedAfterACommand |= contains(world.logText(), "Aborted by application callback.\r\n");
            if (aborted) continue;
            EXPECT_TRUE(sent);
            EXPECT_TRUE(contains(watcher.events, "SmtpCmdSent MAIL FROM:<anna@from.test><CRLF>\n"));
            EXPECT_TRUE(contains(watcher.events, "SmtpCmdResp 354 go ahead\n"));
            EXPECT_TRUE(contains(watcher.events, "SmtpDataSent ...\n"));
            EXPECT_EQ(watcher.progressed.at(0), 0u);
            EXPECT_GT(watcher.progressed.back(), 80u);
            EXPECT_TRUE(std::is_sorted(watcher.progressed.begin(), watcher.progressed.end()));
        }
        EXPECT_FALSE(aborted);
        EXPECT_TRUE(askedAfterACommand);
    }
}

}  // namespace
}  // namespace tv::test
