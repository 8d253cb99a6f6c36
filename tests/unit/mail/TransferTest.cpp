// The message on its way: dots, blocks, sizes, the sent-mail log, and what a broken render does.
#include <algorithm>
#include <cstdio>
#include <numeric>

#include "log/tvLogger.h"
#include "mail/smtp/SmtpDelivery.h"
#include "mail/smtp/SmtpTransfer.h"
#include "platform/SysFile.h"
#include "tests/fixtures/TestData.h"
#include "tests/unit/mail/MailDialogue.h"

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

    TransferWorld() {
        connection.settings.smtpHost.setUtf8(kServer);
        send.fromAddress = kSender;
        send.recipients = {kFirst};
    }

    void write(const std::string& message) {
        send.mimeSource = [message](LogBase&, OutputStream& out, bool) {
            return out.write(message);
        };
    }
    FakeLink& serve(std::string_view steps) { return net.serve(kServer, 25, script(steps)); }
    bool transfer() {
        EXPECT_FALSE(connection.smtpConnectAndAuthenticate(call, false));
        EXPECT_TRUE(send.measure(log));
        failure = SmtpDelivery(call, connection, send).deliver();
        return !failure;
    }
    std::string_view word() const { return statusWord(failure.cause()); }
};

class Watcher : public ProgressMonitor {
public:
    bool abortRequested() override { return abortAt_ >= 0 && asked_++ >= abortAt_; }
    void progress(uint64_t done, uint64_t total) override {
        lastDone = done;
        lastTotal = total;
    }
    void textEvent(std::string_view name, std::string_view text) override {
        events.push_back(std::string(name) + " " + std::string(text));
    }
    void abortAt(int question) { abortAt_ = question; }
    int asked() const { return asked_; }

    std::vector<std::string> events;
    uint64_t lastDone = 0;
    uint64_t lastTotal = 0;

private:
    int asked_ = 0;
    int abortAt_ = -1;
};

TEST(Transfer, stuffsDotsOnTheWay) {
    const struct {
        const char* given;
        const char* sent;
    } rows[] = {
        {"A: b\r\n\r\n.\r\n", "A: b\r\n\r\n..\r\n"},
        {"A: b\r\n\r\n..\r\n", "A: b\r\n\r\n...\r\n"},
        {"A: b\r\n\r\n.x", "A: b\r\n\r\n..x"},
        {"A: b\n.x\n", "A: b\n..x\n"},
        {".A: b\r\n", ".A: b\r\n"},  // the very first byte stays alone
        {"A", "A"},
    };
    for (const auto& row : rows) {
        for (const uint32_t chunk : {1u, 2u, 3u, 32767u}) {
            TransferWorld world;
            world.connection.settings.sendChunkSize = chunk;
            world.write(row.given);
            FakeLink& link = world.serve("whole");
            EXPECT_TRUE(world.transfer());
            EXPECT_EQ(messageOf(link), row.sent);
            const std::string size = std::to_string(std::string_view(row.sent).size());
            EXPECT_TRUE(contains(world.connection.sessionLog().text(),
                                 "354 go ahead\r\n{" + size + " bytes}\n<CRLF>.<CRLF>\r\n"));
        }
    }
}

std::string lines(size_t count) {
    std::string text = "A: b\r\n\r\n";
    for (size_t i = 0; i < count; ++i) {
        text += (i % 7 == 0 ? ".line " : "line ") + std::to_string(i) + "\r\n";
    }
    return text;
}

TEST(Transfer, largeMessagesGoInBlocksWithoutNoDelay) {
    const struct {
        size_t lineCount;
        bool large;
    } rows[] = {{100, false}, {20000, true}};
    for (const auto& row : rows) {
        TransferWorld world;
        world.write(lines(row.lineCount));
        FakeLink& link = world.serve("whole");
        const size_t before = world.net.sockets;
        EXPECT_TRUE(world.transfer());
        EXPECT_EQ(world.net.sockets, before + 1);
        const size_t size = messageOf(link).size();
        EXPECT_EQ(size, world.send.stuffedSize);
        // EHLO, MAIL, RCPT, DATA, the blocks, the terminator.
        EXPECT_EQ(link.sends, 4 + (size + 32766) / 32767 + 1);
        const std::vector<bool> wanted =
            row.large ? std::vector<bool>{true, false, true} : std::vector<bool>{true};
        EXPECT_EQ(link.noDelayHistory, wanted);
    }
}

TEST(Transfer, recipientsWithoutAnAddressAreNone) {
    for (const char* unusable : {"<>", "a@\xC3\xBC..test"}) {  // no address, no ASCII form
        TransferWorld world;
        world.write("A: b\r\n\r\n");
        world.send.recipients = {"", unusable, " ; ", "\r\n"};
        world.serve("greet; ehlo8; quit");
        EXPECT_FALSE(world.transfer());
        EXPECT_EQ(world.word(), "NoValidRecipients");
    }
}

TEST(Transfer, eachFormGoesWithItsTransaction) {
    TransferWorld world;
    world.send.mimeSource = [](LogBase&, OutputStream& out, bool utf8) {
        return out.write(utf8 ? "A: in UTF-8\r\n\r\n" : "A: b\r\n\r\n");
    };
    const std::string third = "j\xC3\xB3zsef@to.test";
    world.send.recipients = {third, kFirst};
    world.serve(
        "greet; ehlo8; mail; rcpt; data; 'A: b' -; '' -; '' -; '.' 250 ok; "
        "mail8; rcpt8; data; 'A: in UTF-8' -; '' -; '' -; '.' 250 ok; quit");
    EXPECT_TRUE(world.transfer());
    EXPECT_EQ(world.send.goodRecipients, (std::vector<std::string>{kFirst, third}));
}

TEST(Transfer, aFlightLeavesInOneWrite) {
    TransferWorld world;
    world.write("A: b\r\n\r\n");
    std::string steps = "open-piped; mail; ";
    world.send.recipients.clear();
    for (int i = 0; i < 300; ++i) {
        const std::string address = "r" + std::to_string(i) + "@to.test";
        world.send.recipients.push_back(address);
        world.send.recipients.emplace_back();  // empty entries are passed over
        steps += "'RCPT TO:<" + address + ">' 250 ok; ";
    }
    FakeLink& link = world.serve(steps + "data; text; quit");
    EXPECT_TRUE(world.transfer());
    EXPECT_EQ(link.sends, 4u) << "EHLO, the flight, the message, the terminator";
    EXPECT_EQ(world.send.goodRecipients.size(), 300u);
}

// A flight has an end: else both sides could wait for each other with all buffers full.
TEST(Transfer, thousandsOfRecipientsGoInSeveralFlights) {
    for (const bool refused : {false, true}) {
        TransferWorld world;
        world.write("A: b\r\n\r\n");
        world.send.recipients.assign(2500, kFirst);
        std::string steps = refused ? "open-piped; mail 550 no; " : "open-piped; mail; ";
        for (int i = 0; i < (refused ? 1000 : 2500); ++i) {
            steps += refused ? "rcpt 503 x; " : "rcpt; ";
        }
        FakeLink& link = world.serve(steps + (refused ? "rset; quit" : "data; text; quit"));
        EXPECT_EQ(world.transfer(), !refused);
        EXPECT_EQ(link.sends, refused ? 3u : 6u);
        EXPECT_EQ(world.word(), refused ? "FromFailure" : "Success");
    }
}

// A server that takes so many recipients in one transaction: all get the same bytes, each is named
// once, and the sent-mail log has one entry.
TEST(Transfer, recipientsAreSpreadOverTransactions) {
    const std::string path = "unit_mail_spread.log";
    std::remove(path.c_str());
    TransferWorld world;
    world.connection.settings.sentMailLogFile.setUtf8(path);
    world.write("A: b\r\n\r\n");
    world.send.recipients.clear();
    std::vector<std::string> steps;
    for (int i = 0; i < 250; ++i) {
        const std::string address = "r" + std::to_string(i) + "@to.test";
        world.send.recipients.push_back(address);
        steps.push_back("'RCPT TO:<" + address + ">' ");
    }
    std::string dialogue = "open-piped";
    for (const size_t first : {0u, 100u, 200u}) {
        dialogue += "; mail; ";
        for (size_t i = first; i < (first == 0 ? 250 : std::min<size_t>(first + 100, 250)); ++i) {
            dialogue += steps[i] + (i < first + 100 ? "250 ok; " : "452 too many; ");
        }
        dialogue += "data; 'A: b' -; '' -; '' -; '.' 250 taken";
    }
    world.serve(dialogue + "; quit");
    EXPECT_TRUE(world.transfer());
    EXPECT_EQ(world.send.goodRecipients, world.send.recipients);
    EXPECT_TRUE(world.send.badRecipients.empty());
    EXPECT_EQ(fileText(path).find("--BEGIN"), fileText(path).rfind("--BEGIN"));
    std::remove(path.c_str());
}

TEST(Transfer, recipientsOnly) {
    for (const bool piped : {false, true}) {
        TransferWorld world;
        world.write("A: b\r\n\r\n");
        world.send.checkRecipientsOnly = true;
        world.send.recipients = {kFirst, kSecond};
        world.serve(std::string(piped ? "open-piped" : "open") +
                    "; mail; rcpt; rcpt2 550 no; rset; quit");
        EXPECT_TRUE(world.transfer());
        EXPECT_EQ(world.send.goodRecipients, std::vector<std::string>{kFirst});
        EXPECT_EQ(world.send.badRecipients, std::vector<std::string>{kSecond});
    }
}

// Renders well when it is measured and badly the second time.
TEST(Transfer, aMessageThatBreaksOffNeverGetsItsTerminator) {
    const struct {
        const char* name;
        const char* later;  // what the second render gives
        bool succeeds;
    } rows[] = {
        {"fails", "A: b\r\n", false},
        {"shorter", "A: b\r\n\r\n", true},
        {"longer", "A: b\r\n\r\nbody\r\nand more\r\n", true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        TransferWorld world;
        int renders = 0;
        world.send.mimeSource = [&](LogBase&, OutputStream& out, bool) {
            if (++renders == 1) return out.write("A: b\r\n\r\nbody\r\n");
            return out.write(row.later) && row.succeeds;
        };
        FakeLink& link = world.serve("open; mail; rcpt; data; silence");
        link.mayEndEarly = true;
        EXPECT_FALSE(world.transfer());
        EXPECT_EQ(world.word(), "RenderFailed");
        EXPECT_FALSE(world.failure.mayReconnect());
        EXPECT_TRUE(link.closedByClient);
        EXPECT_FALSE(contains(link.fromClient, "\r\n.\r\n"));
        EXPECT_FALSE(contains(link.fromClient, "QUIT"));
    }
}

// Where it failed, why, and whether it may be sent again: no line of the log says that.
TEST(Transfer, failuresTellStageAndRepetition) {
    const struct {
        const char* steps;  // empty: nobody serves
        Stage stage;
        Cause cause;
        int32_t code;
        Repeat repeat;
        bool reconnects = false;
        Cause root = Cause::None;  // where another one lies below
    } rows[] = {
        {"", Stage::Connect, Cause::ConnectFailed, 0, Repeat::NothingSent, false, Cause::Rejected},
        {"greet; silence", Stage::TlsHandshake, Cause::ConnectFailed, 0, Repeat::NothingSent, false,
         Cause::TlsRecordType},  // in clear where TLS is wanted
        {"greet 554 no", Stage::Greeting, Cause::GreetingError, 554, Repeat::RefusedForGood},
        {"greet !close", Stage::Ehlo, Cause::ConnectionLost, 0, Repeat::NothingSent},
        {"open; mail 451 later; rset; quit", Stage::Sender, Cause::FromFailure, 451,
         Repeat::RefusedForNow, true},
        {"open; mail; rcpt 550 no; rset; quit", Stage::Recipients, Cause::NoValidRecipients, 550,
         Repeat::RefusedForGood},
        {"open; mail; rcpt !close", Stage::Data, Cause::ConnectionLost, 0, Repeat::NothingSent,
         true},
        {"open; mail; rcpt; data 452 full; rset; quit", Stage::Data, Cause::DataFailure, 452,
         Repeat::RefusedForNow},
        {"open; mail; rcpt; data; text 554 no", Stage::Acceptance, Cause::DataFailure, 554,
         Repeat::RefusedForGood},
        {"open; mail; rcpt; data; text -!close", Stage::Acceptance, Cause::ConnectionLost, 0,
         Repeat::Unknown},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.steps);
        TransferWorld world;
        world.write("A: b\r\n\r\n");
        const bool ssl = row.stage == Stage::TlsHandshake;
        if (*row.steps) world.serve(row.steps).mayEndEarly = ssl;
        if (row.stage == Stage::Greeting) world.serve(row.steps);  // it is asked once more
        world.connection.settings.smtpSsl = ssl;
        Failure failure = world.connection.smtpConnectAndAuthenticate(world.call, false);
        EXPECT_TRUE(world.send.measure(world.log));
        if (!failure) {
            failure = SmtpDelivery(world.call, world.connection, world.send).deliver();
        }
        EXPECT_EQ(failure.stage(), row.stage);
        EXPECT_EQ(failure.cause(), row.cause);
        EXPECT_EQ(failure.root(), row.root == Cause::None ? row.cause : row.root);
        EXPECT_EQ(failure.replyCode(), row.code);
        EXPECT_EQ(failure.repeat(), row.repeat);
        EXPECT_EQ(failure.mayReconnect(), row.reconnects);
    }
}

TEST(Transfer, memoryThatRunsOutAtTheLastReplyIsAnUnknownOutcome) {
    struct : Watcher {
        void textEvent(std::string_view, std::string_view text) override {
            if (text == "250 taken") throw std::bad_alloc();
        }
    } monitor;
    TransferWorld world;
    world.write("A: b\r\n\r\n");
    world.call.setMonitor(&monitor);
    FakeLink& link = world.serve("open; transaction");
    EXPECT_FALSE(world.transfer());
    EXPECT_TRUE(contains(world.failure.text(), "may deliver it twice"));
    EXPECT_TRUE(link.closedByClient);
}

// Memory that runs out in the middle of a message must not leave a connection that takes the next
// command for text.
TEST(Transfer, anExceptionLeavesNoConnectionToUseAgain) {
    TransferWorld world;
    int renders = 0;
    world.send.mimeSource = [&](LogBase&, OutputStream& out, bool) {
        if (++renders > 1) throw std::bad_alloc();
        return out.write("A: b\r\n\r\n");
    };
    FakeLink& first = world.serve("open; mail; rcpt; data");
    EXPECT_THROW(world.transfer(), std::bad_alloc);
    world.serve("trial");
    EXPECT_FALSE(world.connection.smtpConnect(world.call));
    EXPECT_TRUE(first.closedByClient);
}

TEST(SentMailLog, holdsTheStuffedMessageBeforeItGoesOut) {
    const std::string path = "unit_mail_sent.log";
    std::remove(path.c_str());
    const std::string entry =
        "--BEGIN SENT TOLVANE EMAIL--\nA: b\r\n\r\n..x\r\n\n--END SENT TOLVANE EMAIL--\n";
    // Accepted, refused at the end, lost in the middle: each was transferred.
    const char* const dialogues[] = {
        "whole",
        "open; mail; rcpt; data; text 554 no",
        "open; mail; rcpt; data !reset",
        "open; mail; rcpt; data 554 no; rset; quit",  // never transferred
        "open-piped; mail; rcpt 550 no; data; '.' 250 taken; quit",
    };
    std::string wanted;
    for (size_t i = 0; i < std::size(dialogues); ++i) {
        TransferWorld world;
        world.connection.settings.sentMailLogFile.setUtf8(path);
        world.write("A: b\r\n\r\n.x\r\n");
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

TEST(SentMailLog, thatCannotBeWrittenStopsNothing) {
    for (const char* path : {"no/such/place/sent.log", "directory/", "directory\\"}) {
        TransferWorld world;
        world.connection.settings.sentMailLogFile.setUtf8(path);
        world.write("A: b\r\n\r\n");
        world.serve("whole");
        EXPECT_TRUE(world.transfer()) << path;
    }
}

TEST(Progress, eventsTellTheDialogue) {
    MailWorld world;
    world.compose();
    world.serve("whole");
    Watcher watcher;
    EXPECT_TRUE(world.mailMan.SendEmail(world.email, &watcher));
    const auto has = [&](const char* event) {
        return std::find(watcher.events.begin(), watcher.events.end(), event) !=
               watcher.events.end();
    };
    EXPECT_TRUE(has("SmtpCmdSent MAIL FROM:<anna@from.test><CRLF>"));
    EXPECT_TRUE(has("SmtpCmdResp 354 go ahead"));
    EXPECT_TRUE(has("SmtpDataSent ..."));
    EXPECT_GT(watcher.lastDone, 80u);
    EXPECT_LE(watcher.lastDone, watcher.lastTotal);
    EXPECT_TRUE(contains(world.logText(), "progressTotal"));
}

// The application says stop at each place where it is asked.
TEST(Progress, anAbortIsNeverAFalseSuccess) {
    bool askedAfterACommand = false;
    for (const bool piped : {false, true}) {
        for (int question = 0; question < 200; ++question) {
            SCOPED_TRACE(question);
            MailWorld world;
            world.compose();
            Turns turns = piped ? wholeSendPiped() : wholeSend();
            for (Turn& turn : turns) {  // QUIT may come at any place
                if (turn.kind == Turn::Kind::Exact && !turn.expect.empty()) {
                    turn.kind = Turn::Kind::UpTo;
                    turn.expect = "\r\n";
                }
            }
            FakeLink& link = world.serve(turns);
            link.mayEndEarly = true;
            Watcher watcher;
            watcher.abortAt(question);
            const bool sent = world.mailMan.SendEmail(world.email, &watcher);
            if (watcher.asked() <= question) {
                EXPECT_TRUE(sent);
                EXPECT_GT(question, 8);
                break;
            }
            // With the whole terminator out the message is with the server.
            EXPECT_EQ(sent, !messageOf(link).empty());
            EXPECT_EQ(sent, contains(world.logText(), "may deliver it twice"));
            const bool begun = contains(link.fromClient, "MAIL FROM");
            EXPECT_TRUE(!begun || link.closedByClient);
            if (!sent && link.connected) {
                EXPECT_EQ(world.word(), "Aborted");
            }
            EXPECT_TRUE(world.clock.sleeps.empty());
            askedAfterACommand = askedAfterACommand ||
                                 contains(world.logText(), "Aborted by application callback.\r\n");
        }
    }
    EXPECT_TRUE(askedAfterACommand);
}

}  // namespace
}  // namespace tv::test
