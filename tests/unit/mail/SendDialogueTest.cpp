// Whole sends as dialogues: what the server says, what the client must say, and what the host
// learns. Each row is played with the server's bytes arriving whole, line by line and byte by byte.
#include "tests/unit/mail/MailDialogue.h"

namespace tv::test {
namespace {

struct Row {
    const char* name;
    std::vector<Turns> links;  // one for each connect
    bool sent;
    const char* word;
    const char* ending;  // of the transcript, sizes as N
    std::vector<const char*> logged = {};
    std::vector<std::string> recipients = {kFirst};
    Properties properties = {};
    bool retried = false;
    const char* sender = kSender;
};

void play(const Row& row, Delivery delivery) {
    MailWorld world(row.properties);
    world.compose(row.recipients, row.sender);
    for (const Turns& turns : row.links) {
        world.serve(turns).delivery = delivery;
    }
    EXPECT_EQ(world.mailMan.SendEmail(world.email), row.sent);
    EXPECT_EQ(world.word(), row.word);
    const std::string transcript = withoutSizes(world.transcript());
    EXPECT_TRUE(transcript.ends_with(row.ending)) << transcript;
    const std::string log = world.logText();
    for (const char* text : row.logged) {
        EXPECT_TRUE(contains(log, text)) << text << "\nin\n" << log;
    }
    EXPECT_EQ(contains(log, "Reconnecting to the SMTP server and retrying..."), row.retried);
    EXPECT_EQ(world.clock.sleeps,
              row.retried ? std::vector<uint32_t>{500} : std::vector<uint32_t>());
    EXPECT_EQ(world.net.connects.size(), row.links.size());
}

void playAll(const std::vector<Row>& rows) {
    for (const Row& row : rows) {
        for (const Delivery delivery : {Delivery::Whole, Delivery::Lines, Delivery::Bytes}) {
            SCOPED_TRACE(std::string(row.name) + ", delivery " +
                         std::to_string(static_cast<int>(delivery)));
            play(row, delivery);
        }
    }
}

const std::vector<std::string> kTwo = {kFirst, kSecond};

TEST(SendDialogue, success) {
    playAll({
        {"one command after the other",
         {wholeSend()},
         true,
         "Success",
         "220 mail.test ready\r\nEHLO TESTHOST<CRLF>\r\n250-mail.test\r\n250 8BITMIME\r\n"
         "MAIL FROM:<anna@from.test><CRLF>\r\n250 sender ok\r\n"
         "RCPT TO:<bela@to.test><CRLF>\r\n250 recipient ok\r\nDATA<CRLF>\r\n354 go ahead\r\n"
         "{N bytes}\n<CRLF>.<CRLF>\r\n250 taken\r\n",
         {"smtpHostname: 10.0.0.1", "smtpPort: 25", "SmtpCmdSent: DATA<CRLF>",
          "SmtpCmdResp: 354 go ahead", "smtp.lastStatus: 250", "recipient: bela@to.test",
          "mailFrom: anna@from.test", "Auto-generating Message-ID", "ReadTimeout: 30000",
          "mimeDataSize", "numBytesSent"}},
        {"in one flight",
         {openedPiped() + Turns{mailFrom(), rcptTo(), rcptTo("251 forwarded\r\n", kSecond), data(),
                                message(), quit()}},
         true,
         "Success",
         "MAIL FROM:<anna@from.test><CRLF>\r\nRCPT TO:<bela@to.test><CRLF>\r\n"
         "RCPT TO:<cili@to.test><CRLF>\r\nDATA<CRLF>\r\n250 sender ok\r\n250 recipient ok\r\n"
         "251 forwarded\r\n354 go ahead\r\n{N bytes}\n<CRLF>.<CRLF>\r\n250 taken\r\n",
         {},
         kTwo},
        {"pipelining turned off",
         {openedPiped() + Turns{mailFrom(), rcptTo(), data(), message(), quit()}},
         true,
         "Success",
         "RCPT TO:<bela@to.test><CRLF>\r\n250 recipient ok\r\nDATA<CRLF>\r\n"
         "354 go ahead\r\n{N bytes}\n<CRLF>.<CRLF>\r\n250 taken\r\n",
         {},
         {kFirst},
         {{"SmtpPipelining", "0"}}},
        {"a server that knows no EHLO",
         {{greeting(), ehlo("502 what\r\n"), helo(), mailFrom(), rcptTo(), data(), message(),
           quit()}},
         true,
         "Success",
         "250 taken\r\n",
         {"Non-success EHLO response.", "heloCommand:"}},
        {"a first connection without a greeting",
         {{greeting("554 not you\r\n")}, wholeSend()},
         true,
         "Success",
         "250 taken\r\n",
         {"Failed SMTP greeting response code.", "Failed to get initial SMTP response..",
          "Will re-try one time..."}},
        {"a final reply that asks for more",
         {opened() + Turns{mailFrom(), rcptTo(), data(), message("354 more?\r\n"), quit()}},
         true,
         "Success",
         "354 more?\r\n"},
        {"replies of several lines and bare codes",
         {{greeting("220-hello\r\n220-you\r\n220\r\n"), ehlo("250\r\n"),
           mailFrom("250-a\r\n250\r\n"), rcptTo("250 \r\n"), data("354\r\n"),
           message("250-1\r\n250-2\r\n250 3\r\n"), quit()}},
         true,
         "Success",
         "250-1\r\n250-2\r\n250 3\r\n"},
        {"no sender, and a configured name to greet with",
         {opened() +
          Turns{turn("MAIL FROM:<>\r\n", "250 ok\r\n"), rcptTo(), data(), message(), quit()}},
         true,
         "Success",
         "250 taken\r\n",
         {"Warning: No From Address"},
         {kFirst},
         {{"HeloHostname", "TEST_HOST"}},
         false,
         ""},
    });
}

TEST(SendDialogue, greetingFails) {
    const auto twice = [](const Turns& turns) { return std::vector<Turns>{turns, turns}; };
    playAll({
        {"554",
         twice({greeting("554 no service here\r\n")}),
         false,
         "GreetingError",
         "554 no service here\r\n",
         {"Failed to get initial SMTP response again.",
          "The server greeted with: 554 no service here"}},
        {"421", twice({greeting("421 busy\r\n").thenClose()}), false, "GreetingError",
         "421 busy\r\n"},
        {"354", twice({greeting("354 go\r\n")}), false, "GreetingError",
         "354 go\r\nGreetingError: The server greeted with: 354 go\r\n"},
        {"closed", twice({greeting("").thenClose()}), false, "ConnectionLost",
         "ConnectionLost: The connection was lost while waiting for the greeting.\r\n"},
        {"reset", twice({greeting("").thenReset()}), false, "ConnectionLost",
         "ConnectionLost: The connection was lost while waiting for the greeting.\r\n"},
        {"silence",
         twice({greeting(""), silence()}),
         false,
         "Timeout",
         "Timeout: Nothing moved for 30000 ms while waiting for the greeting.\r\n",
         {"idleTimeoutMs: 30000"}},
        {"half a line", twice({greeting("220 mail"), silence()}), false, "Timeout",
         "the greeting (a line without its end had come: 220 mail).\r\n"},
        {"no carriage return", twice({greeting("220 mail\n"), silence()}), false, "Timeout",
         "the greeting (a line without its end had come: 220 mail).\r\n"},
        {"half a reply", twice({greeting("220-mail\r\n").thenClose()}), false, "ConnectionLost",
         "220-mail\r\nConnectionLost: The connection was lost while waiting for the greeting.\r\n"},
        {"one after the other: the second counts",
         {{greeting("554 no\r\n")}, {greeting("").thenClose()}},
         false,
         "ConnectionLost",
         "554 no\r\nConnectionLost: The connection was lost while waiting for the greeting.\r\n"},
        {"not SMTP",
         twice({greeting("SSH-2.0-x\r\n")}),
         false,
         "Failed",
         "Failed: The greeting is no line of an SMTP server.\r\n",
         {"Unrecognized response from SMTP server", "responseLine: SSH-2.0-x"}},
    });
}

TEST(SendDialogue, endlessRepliesEnd) {
    std::string lines;
    for (int i = 0; i < 10000; ++i) {
        lines += "220-more\r\n";
    }
    const std::string words = "220-" + std::string(200000, 'a');
    for (const std::string& reply : {lines + "220 done\r\n", words + "\r\n", words}) {
        MailWorld world;
        world.compose();
        world.serve({greeting(reply), silence()});
        world.serve(wholeSend());
        EXPECT_TRUE(world.mailMan.SendEmail(world.email));
        EXPECT_TRUE(contains(world.logText(), "Unrecognized response from SMTP server"));
        EXPECT_LT(world.transcript().size(), 100000u);
    }
}

TEST(SendDialogue, helloFails) {
    playAll({
        {"EHLO and HELO refused",
         {{greeting(), ehlo("550 no\r\n"), helo("550 never\r\n")}},
         false,
         "GreetingError",
         "HELO TESTHOST<CRLF>\r\n550 never\r\n",
         {"The server refused HELO: 550 never"}},
        {"421 to EHLO",
         {{greeting(), ehlo("421 busy\r\n").thenClose()}},
         false,
         "ConnectionLost",
         "HELO TESTHOST<CRLF>\r\nConnectionLost: The connection was lost while waiting for the "
         "reply to HELO "
         "TESTHOST.\r\n"},
        {"closed",
         {{greeting(), ehlo("").thenClose()}},
         false,
         "ConnectionLost",
         "ConnectionLost: The connection was lost while waiting for the reply to EHLO "
         "TESTHOST.\r\n"},
        {"silence",
         {{greeting(), ehlo("").thenStall()}},
         false,
         "Timeout",
         "Timeout: Nothing moved for 1000 ms while waiting for the reply to EHLO TESTHOST.\r\n",
         {"idleTimeoutMs: 1000"},
         {kFirst},
         {{"ReadTimeout", "1000"}}},
        {"not SMTP",
         {{greeting(), ehlo("250-x\r\nx\r\n")}},
         false,
         "Failed",
         "Failed: The reply to EHLO TESTHOST is no line of an SMTP server.\r\n"},
    });
}

TEST(SendDialogue, mailFromFails) {
    const std::string commands = "MAIL FROM:<anna@from.test><CRLF>\r\n";
    playAll({
        {"refused",
         {opened() + Turns{mailFrom("550 not you\r\n"), rset(), quit()}},
         false,
         "FromFailure",
         "RSET<CRLF>\r\n250 reset\r\nFromFailure: MAIL FROM:<anna@from.test> was answered with: "
         "550 not you\r\n",
         {"Sending RSET command."}},
        {"refused, and RSET too: closed",
         {opened() + Turns{mailFrom("550 not you\r\n"), rset("500 x\r\n")}},
         false,
         "FromFailure",
         "RSET<CRLF>\r\n500 x\r\n"},
        {"refused and closed",
         {opened() + Turns{mailFrom("550 not you\r\n").thenClose()}},
         false,
         "FromFailure",
         "FromFailure: MAIL FROM:<anna@from.test> was answered with: 550 not you\r\n"},
        {"421",
         {opened() + Turns{mailFrom("421 bye\r\n").thenClose()}, wholeSend()},
         true,
         "Success",
         "250 taken\r\n",
         {},
         {kFirst},
         {},
         true},
        {"421 and open",
         {opened() + Turns{mailFrom("421 bye\r\n"), rset()}, wholeSend()},
         true,
         "Success",
         "250 taken\r\n",
         {},
         {kFirst},
         {},
         true},
        {"451",
         {opened() + Turns{mailFrom("451 later\r\n"), rset()}, wholeSend()},
         true,
         "Success",
         "250 taken\r\n",
         {},
         {kFirst},
         {},
         true},
        {"451 twice",
         {opened() + Turns{mailFrom("451 later\r\n"), rset()},
          opened() + Turns{mailFrom("451 later\r\n"), rset(), quit()}},
         false,
         "FromFailure",
         "FromFailure: MAIL FROM:<anna@from.test> was answered with: 451 later\r\n",
         {},
         {kFirst},
         {},
         true},
        {"450 is no reason to try again",
         {opened() + Turns{mailFrom("450 no\r\n"), rset(), quit()}},
         false,
         "FromFailure",
         "450 no\r\n"},
        {"closed",
         {opened() + Turns{mailFrom("").thenClose()}, wholeSend()},
         true,
         "Success",
         "250 taken\r\n",
         {},
         {kFirst},
         {},
         true},
        {"closed twice",
         {opened() + Turns{mailFrom("").thenClose()}, opened() + Turns{mailFrom("").thenReset()}},
         false,
         "ConnectionLost",
         "ConnectionLost: The connection was lost while waiting for the reply to MAIL "
         "FROM:<anna@from.test>.\r\n",
         {},
         {kFirst},
         {},
         true},
        {"silence",
         {opened() + Turns{mailFrom("").thenStall()}},
         false,
         "Timeout",
         "Timeout: Nothing moved for 30000 ms while waiting for the reply to MAIL "
         "FROM:<anna@from.test>.\r\n"},
        {"not SMTP",
         {opened() + Turns{mailFrom("ok\r\n")}},
         false,
         "Failed",
         "ok\r\nFailed: The reply to MAIL FROM:<anna@from.test> is no line of an SMTP server.\r\n"},
        {"refused after no sender",
         {opened() + Turns{turn("MAIL FROM:<>\r\n", "550 who?\r\n"), rset(), quit()}},
         false,
         "FromFailure",
         "FromFailure: MAIL FROM:<> was answered with: 550 who?\r\n",
         {"Warning: No From Address"},
         {kFirst},
         {},
         false,
         ""},
    });
}

TEST(SendDialogue, recipientsFail) {
    const Turns first = opened() + Turns{mailFrom()};
    playAll({
        {"all refused",
         {first +
          Turns{rcptTo("550 unknown\r\n"), rcptTo("551 gone\r\n", kSecond), rset(), quit()}},
         false,
         "NoValidRecipients",
         "NoValidRecipients: No recipient was accepted. RCPT TO:<cili@to.test> was answered with: "
         "551 gone\r\n",
         {"bad_address: bela@to.test", "No valid recipients"},
         kTwo},
        {"one of two refused",
         {first + Turns{rcptTo("550 unknown\r\n"), rcptTo("250 ok\r\n", kSecond), data(), message(),
                        quit()}},
         true,
         "Success",
         "250 taken\r\n",
         {"bad_address: bela@to.test"},
         kTwo},
        {"one of two refused, all wanted",
         {first + Turns{rcptTo(), rcptTo("550 unknown\r\n", kSecond), rset(), quit()}},
         false,
         "SomeBadRecipients",
         "SomeBadRecipients: Not all recipients were accepted. RCPT TO:<cili@to.test> was answered "
         "with: 550 unknown\r\n",
         {},
         kTwo,
         {{"RequireAllRecipients", "1"}}},
        {"421",
         {first + Turns{rcptTo("421 bye\r\n").thenClose()}, wholeSend()},
         true,
         "Success",
         "250 taken\r\n",
         {},
         {kFirst},
         {},
         true},
        {"421 to the second",
         {first + Turns{rcptTo(), rcptTo("421 bye\r\n", kSecond).thenClose()},
          first + Turns{rcptTo(), rcptTo("250 ok\r\n", kSecond), data(), message(), quit()}},
         true,
         "Success",
         "250 taken\r\n",
         {},
         kTwo,
         {},
         true},
        {"451 is no reason to try again",
         {first + Turns{rcptTo("451 no\r\n"), rset(), quit()}},
         false,
         "NoValidRecipients",
         "451 no\r\n"},
        {"closed",
         {first + Turns{rcptTo("").thenClose()}, wholeSend()},
         true,
         "Success",
         "250 taken\r\n",
         {"Failed to read RCPT TO response."},
         {kFirst},
         {},
         true},
        {"closed between two",
         {first + Turns{rcptTo().thenClose()},
          first + Turns{rcptTo(), rcptTo("250 ok\r\n", kSecond), data(), message(), quit()}},
         true,
         "Success",
         "250 taken\r\n",
         {},
         kTwo,
         {},
         true},
        {"silence",
         {first + Turns{rcptTo("").thenStall()}},
         false,
         "Timeout",
         "Timeout: Nothing moved for 30000 ms while waiting for the reply to RCPT "
         "TO:<bela@to.test>.\r\n"},
        {"not SMTP",
         {first + Turns{rcptTo("2500 ok\r\n")}},
         false,
         "Failed",
         "Failed: The reply to RCPT TO:<bela@to.test> is no line of an SMTP server.\r\n"},
    });
}

TEST(SendDialogue, dataFails) {
    const Turns first = opened() + Turns{mailFrom(), rcptTo()};
    playAll({
        {"refused",
         {first + Turns{data("554 no\r\n"), rset(), quit()}},
         false,
         "DataFailure",
         "DataFailure: DATA was answered with: 554 no\r\n",
         {"Non-success DATA response."}},
        {"250 is not 354",
         {first + Turns{data("250 ok\r\n"), rset(), quit()}},
         false,
         "DataFailure",
         "DataFailure: DATA was answered with: 250 ok\r\n"},
        {"421",
         {first + Turns{data("421 bye\r\n").thenClose()}, wholeSend()},
         true,
         "Success",
         "250 taken\r\n",
         {},
         {kFirst},
         {},
         true},
        {"451 is no reason to try again",
         {first + Turns{data("451 no\r\n"), rset(), quit()}},
         false,
         "DataFailure",
         "451 no\r\n"},
        {"closed",
         {first + Turns{data("").thenClose()}, wholeSend()},
         true,
         "Success",
         "250 taken\r\n",
         {},
         {kFirst},
         {},
         true},
        {"silence",
         {first + Turns{data("").thenStall()}},
         false,
         "Timeout",
         "Timeout: Nothing moved for 30000 ms while waiting for the reply to DATA.\r\n"},
    });
}

TEST(SendDialogue, messageFails) {
    const Turns first = opened() + Turns{mailFrom(), rcptTo()};
    playAll({
        {"closed after 354",
         {first + Turns{data().thenClose()}},
         false,
         "ConnectionLost",
         "{N bytes}\nConnectionLost: The server closed the connection before the end of the "
         "message.\r\n"},
        {"accepted before the end of the message",
         {first + Turns{data("354 go\r\n250 taken\r\n"), silence()}},
         false,
         "DataFailure",
         "250 taken\r\nDataFailure: A reply came before the end of the message: 250 taken\r\n"},
        {"refused before the end of the message",
         {first + Turns{data("354 go\r\n552 too big\r\n").thenClose()}},
         false,
         "DataFailure",
         "{N bytes}\n552 too big\r\n",
         {"A reply came before the end of the message: 552 too big"}},
        {"reset after 354",
         {first + Turns{data().thenReset()}},
         false,
         "ConnectionLost",
         "ConnectionLost: The connection was lost while sending the message data.\r\n",
         {"Failed when sending MIME body"}},
        {"nobody reads after 354",
         {first + Turns{data().thenStall()}},
         false,
         "Timeout",
         "Timeout: Nothing moved for 30000 ms while sending the message data.\r\n"},
        {"refused",
         {first + Turns{data(), message("554 spam\r\n")}},
         false,
         "DataFailure",
         "554 spam\r\n",
         {"Non-success DATA terminator response."}},
        {"421 is no reason to try again",
         {first + Turns{data(), message("421 bye\r\n")}},
         false,
         "DataFailure",
         "421 bye\r\n"},
        {"451 is no reason to try again",
         {first + Turns{data(), message("451 no\r\n")}},
         false,
         "DataFailure",
         "451 no\r\n"},
        {"closed",
         {first + Turns{data(), message("").thenClose()}},
         false,
         "ConnectionLost",
         "ConnectionLost: The connection was lost while waiting for the reply to the end of the "
         "message "
         "data.\r\n",
         {"SMTP failed when receiving the DATA terminator response."}},
        {"half a reply",
         {first + Turns{data(), message("250 tak").thenClose()}},
         false,
         "ConnectionLost",
         "the end of the message data (a line without its end had come: 250 tak).\r\n"},
        {"silence",
         {first + Turns{data(), message("").thenStall()}},
         false,
         "Timeout",
         "Timeout: Nothing moved for 30000 ms while waiting for the reply to the end of the "
         "message "
         "data.\r\n"},
        {"not SMTP",
         {first + Turns{data(), message("ok\r\n")}},
         false,
         "Failed",
         "Failed: The reply to the end of the message data is no line of an SMTP server.\r\n"},
        {"421 to a recipient is forgotten once the message goes out",
         {first + Turns{rcptTo("421 no\r\n", kSecond), data(), message("").thenClose()}},
         false,
         "ConnectionLost",
         "ConnectionLost: The connection was lost while waiting for the reply to the end of the "
         "message "
         "data.\r\n",
         {},
         kTwo},
    });
}

TEST(SendDialogue, pipelinedFlightFails) {
    const std::string unknown = "550 unknown\r\n";
    playAll({
        {"sender refused, all refused",
         {openedPiped() + Turns{mailFrom("550 not you\r\n"), rcptTo("503 x\r\n"), data("503 x\r\n"),
                                rset(), quit()}},
         false,
         "FromFailure",
         "FromFailure: MAIL FROM:<anna@from.test> was answered with: 550 not you\r\n"},
        {"sender refused, 354 all the same: closed",
         {openedPiped() + Turns{mailFrom("550 not you\r\n"), rcptTo(), data()}},
         false,
         "FromFailure",
         "FromFailure: MAIL FROM:<anna@from.test> was answered with: 550 not you\r\n"},
        {"sender refused and closed",
         {openedPiped() + Turns{mailFrom("550 not you\r\n").thenClose()}},
         false,
         "FromFailure",
         "550 not you\r\n"},
        {"421 to the sender",
         {openedPiped() + Turns{mailFrom("421 bye\r\n").thenClose()}, wholeSendPiped()},
         true,
         "Success",
         "250 taken\r\n",
         {},
         {kFirst},
         {},
         true},
        {"451 to the sender",
         {openedPiped() +
              Turns{mailFrom("451 later\r\n"), rcptTo("503 x\r\n"), data("503 x\r\n"), rset()},
          wholeSendPiped()},
         true,
         "Success",
         "250 taken\r\n",
         {},
         {kFirst},
         {},
         true},
        {"354 to the sender",
         {openedPiped() + Turns{mailFrom("354 go\r\n"), rcptTo(), data()}},
         false,
         "FromFailure",
         "FromFailure: The replies to the pipelined commands came out of order: 354 too early.\r\n",
         {"Strange that a 354 response was already received."}},
        {"354 to a recipient",
         {openedPiped() + Turns{mailFrom(), rcptTo("354 go\r\n"), data("250 ok\r\n")}},
         false,
         "DataFailure",
         "DataFailure: The replies to the pipelined commands came out of order: 354 too "
         "early.\r\n"},
        {"one reply too many: the 354 comes to RSET, and the connection is closed",
         {openedPiped() + Turns{mailFrom("250 ok\r\n250 extra\r\n"), rcptTo(), data(), rset("")}},
         false,
         "DataFailure",
         "RSET<CRLF>\r\n354 go ahead\r\nDataFailure: DATA was answered with: 250 recipient "
         "ok\r\n"},
        {"all recipients refused, DATA too",
         {openedPiped() +
          Turns{mailFrom(), rcptTo(unknown), data("554 nobody\r\n"), rset(), quit()}},
         false,
         "NoValidRecipients",
         "NoValidRecipients: No recipient was accepted. RCPT TO:<bela@to.test> was answered with: "
         "550 unknown\r\n"},
        {"all recipients refused, message taken",
         {openedPiped() + Turns{mailFrom(), rcptTo(unknown), data(), message(), quit()}},
         false,
         "NoValidRecipients",
         "250 taken\r\nNoValidRecipients: No recipient was accepted. RCPT TO:<bela@to.test> was "
         "answered with: 550 unknown\r\n"},
        {"all recipients refused, message too",
         {openedPiped() + Turns{mailFrom(), rcptTo(unknown), data(), message("554 nobody\r\n")}},
         false,
         "DataFailure",
         "554 nobody\r\n"},
        {"one of two refused",
         {openedPiped() + Turns{mailFrom(), rcptTo(unknown), rcptTo("250 ok\r\n", kSecond), data(),
                                message(), quit()}},
         true,
         "Success",
         "250 taken\r\n",
         {},
         kTwo},
        {"421 to the recipient",
         {openedPiped() + Turns{mailFrom(), rcptTo("421 bye\r\n").thenClose()}, wholeSendPiped()},
         true,
         "Success",
         "250 taken\r\n",
         {},
         {kFirst},
         {},
         true},
        {"421 to the recipient, 354 all the same",
         {openedPiped() + Turns{mailFrom(), rcptTo("421 bye\r\n"), data()}, wholeSendPiped()},
         true,
         "Success",
         "250 taken\r\n",
         {},
         {kFirst},
         {},
         true},
        {"421 to DATA",
         {openedPiped() + Turns{mailFrom(), rcptTo(), data("421 bye\r\n").thenClose()},
          wholeSendPiped()},
         true,
         "Success",
         "250 taken\r\n",
         {},
         {kFirst},
         {},
         true},
        {"DATA refused",
         {openedPiped() + Turns{mailFrom(), rcptTo(), data("554 no\r\n"), rset(), quit()}},
         false,
         "DataFailure",
         "DataFailure: DATA was answered with: 554 no\r\n"},
        {"closed before any reply",
         {openedPiped() + Turns{mailFrom("").thenClose()}, wholeSendPiped()},
         true,
         "Success",
         "250 taken\r\n",
         {"Note: Your application did not provide an SMTP username.",
          "The lack of an SMTP login name could be the cause of this error."},
         {kFirst},
         {},
         true},
        {"closed while waiting for the reply to DATA",
         {openedPiped() + Turns{mailFrom(), rcptTo().thenClose()}, wholeSendPiped()},
         true,
         "Success",
         "250 taken\r\n",
         {},
         {kFirst},
         {},
         true},
        {"silence",
         {openedPiped() + Turns{mailFrom(), rcptTo("").thenStall()}},
         false,
         "Timeout",
         "Timeout: Nothing moved for 30000 ms while waiting for the reply to RCPT "
         "TO:<bela@to.test>.\r\n"},
        {"closed after the message",
         {openedPiped() + Turns{mailFrom(), rcptTo(), data(), message("").thenClose()}},
         false,
         "ConnectionLost",
         "ConnectionLost: The connection was lost while waiting for the reply to the end of the "
         "message "
         "data.\r\n"},
    });
}

TEST(SendDialogue, connectFails) {
    MailWorld refused;
    refused.compose();
    refused.net.refuse(kServer, 25);
    EXPECT_FALSE(refused.mailMan.SendEmail(refused.email));
    EXPECT_EQ(refused.word(), "ConnectFailed");
    EXPECT_EQ(refused.transcript(),
              "ConnectFailed: No connection to 10.0.0.1:25: Connection rejected.\r\n");

    MailWorld silent(Properties{{"ConnectTimeout", "2000"}});
    silent.compose();
    silent.net.silent(kServer, 25);
    EXPECT_FALSE(silent.mailMan.SendEmail(silent.email));
    EXPECT_EQ(silent.transcript(), "ConnectFailed: No connection to 10.0.0.1:25: Timeout.\r\n");

    MailWorld nameless(Properties{{"SmtpHost", "http:///"}});
    nameless.compose();
    EXPECT_FALSE(nameless.mailMan.SendEmail(nameless.email));
    EXPECT_EQ(nameless.word(), "NoSmtpHostname");
    EXPECT_EQ(nameless.transcript(),
              "NoSmtpHostname: Application did not provide an SMTP hostname.\r\n");

    MailWorld unknown(Properties{{"SmtpHost", "nowhere.test"}});
    unknown.compose();
    EXPECT_FALSE(unknown.mailMan.SendEmail(unknown.email));
    EXPECT_EQ(unknown.transcript(),
              "ConnectFailed: No connection to nowhere.test:25: DNS lookup failed.\r\n");

    for (const char* port : {"-1", "70000"}) {
        MailWorld absurd(Properties{{"SmtpPort", port}});
        absurd.compose();
        EXPECT_FALSE(absurd.mailMan.SendEmail(absurd.email)) << port;
        EXPECT_EQ(absurd.word(), "ConnectFailed") << port;
    }
}

// A refusal of the send before explains nothing.
TEST(SendDialogue, everyFailedSendHasItsOwnWords) {
    MailWorld world;
    world.compose();
    world.serve(opened() + Turns{mailFrom(), rcptTo(), data(), message("554 no\r\n")});
    EXPECT_FALSE(world.mailMan.SendEmail(world.email));
    EXPECT_TRUE(world.transcript().ends_with("554 no\r\n"));
    world.mailMan.setProperty("SmtpHost", XString());
    EXPECT_FALSE(world.mailMan.SendEmail(world.email));
    EXPECT_TRUE(world.transcript().ends_with(
        "554 no\r\nNoSmtpHostname: Application did not provide an SMTP hostname.\r\n"));
}

TEST(SendDialogue, withoutRecipientsNothingIsSaid) {
    MailWorld world;
    world.compose({});
    world.serve(opened() + Turns{quit()});
    EXPECT_FALSE(world.mailMan.SendEmail(world.email));
    EXPECT_EQ(world.word(), "NoValidRecipients");
    EXPECT_TRUE(contains(world.logText(), "No SMTP recipients."));
    EXPECT_TRUE(world.transcript().ends_with(
        "NoValidRecipients: There is no point in trying to send an email if there are no "
        "recipients.\r\n"));
}

}  // namespace
}  // namespace tv::test
