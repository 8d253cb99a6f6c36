// What a host learns of each fault, as a table: checked here against the mail manager driven the
// way the exports drive it, and kept as a document. With TV_WRITE_FAULTS set the document is
// written.
#include <cstdio>
#include <cstdlib>
#include <functional>

#include "tests/unit/mail/MailDialogue.h"
#include "tests/fixtures/TestData.h"

namespace tv::test {
namespace {

enum class Step { Trial, Send };

struct Fault {
    const char* name;
    Step step;  // where it meets the client
    std::vector<Turns> links;
    bool result;
    const char* says;  // of a trial: somewhere in the text; of a send: its end
    Properties properties = {};
    std::vector<std::string> recipients = {kFirst};
    const char* transport = nullptr;  // instead of links: "refuse", "silent", "unreachable"
};

struct Group {
    const char* title;
    std::vector<Fault> faults;
};

// The connection that trial and send make in vain.
std::vector<Turns> twice(const Turns& turns) {
    return {turns, turns};
}

Group connecting() {
    return {"Connecting and greeting",
            {{"No host name set",
              Step::Trial,
              {},
              false,
              "Application did not provide an SMTP hostname.",
              {{"SmtpHost", ""}}},
             {"The host name does not resolve",
              Step::Trial,
              {},
              false,
              "No connection to nowhere.test:25: DNS lookup failed.",
              {{"SmtpHost", "nowhere.test"}}},
             {"The port is no port",
              Step::Trial,
              {},
              false,
              "the port is not a number from 1 to 65535",
              {{"SmtpPort", "70000"}}},
             {"Nothing listens at the port",
              Step::Trial,
              {},
              false,
              "No connection to 10.0.0.1:25: Connection rejected.",
              {},
              {kFirst},
              "refuse"},
             {"The host does not answer",
              Step::Trial,
              {},
              false,
              "No connection to 10.0.0.1:25: Timeout.",
              {},
              {kFirst},
              "silent"},
             {"The network is unreachable",
              Step::Trial,
              {},
              false,
              "No connection to 10.0.0.1:25: Connection rejected.",
              {},
              {kFirst},
              "unreachable"},
             {"Connected, but never greeted", Step::Trial, twice({greeting(""), silence()}), false,
              "Nothing moved for 30000 ms while waiting for the greeting."},
             {"Closed instead of greeted", Step::Trial, twice({greeting("").thenClose()}), false,
              "The connection was lost while waiting for the greeting."},
             {"Greeted with 554", Step::Trial, twice({greeting("554 no service here\r\n")}), false,
              "The server greeted with: 554 no service here"},
             {"Greeted with 421", Step::Trial, twice({greeting("421 too busy\r\n").thenClose()}),
              false, "The server greeted with: 421 too busy"},
             {"A greeting without CR", Step::Trial, twice({greeting("220 mail\n"), silence()}),
              false, "while waiting for the greeting (a line without its end had come: 220 mail)."},
             {"No SMTP server", Step::Trial, twice({greeting("SSH-2.0-server\r\n")}), false,
              "The greeting is no line of an SMTP server."},
             {"EHLO and HELO refused",
              Step::Trial,
              {{greeting(), ehlo("550 no\r\n"), helo("550 not you\r\n")}},
              false,
              "The server refused HELO: 550 not you"},
             {"No reply to EHLO",
              Step::Trial,
              {{greeting(), ehlo("").thenStall()}},
              false,
              "Nothing moved for 30000 ms while waiting for the reply to EHLO TESTHOST."},
             {"Closed after EHLO",
              Step::Trial,
              {{greeting(), ehlo("").thenClose()}},
              false,
              "The connection was lost while waiting for the reply to EHLO TESTHOST."},
             {"STARTTLS wanted and refused",
              Step::Trial,
              {{greeting(), ehlo(), turn("STARTTLS\r\n", "454 not now\r\n")}},
              false,
              "The server refused STARTTLS: 454 not now",
              {{"StartTLS", "1"}}},
             {"The server is gone after the trial",
              Step::Send,
              {trialTurns()},
              false,
              "ConnectFailed: No connection to 10.0.0.1:25: Connection rejected."}}};
}

Group envelope() {
    const Turns first = opened() + Turns{mailFrom()};
    return {
        "The envelope",
        {{"No recipients",
          Step::Send,
          {trialTurns(), opened() + Turns{quit()}},
          false,
          "NoValidRecipients: There is no point in trying to send an email if there are no "
          "recipients.",
          {},
          {}},
         {"MAIL FROM refused",
          Step::Send,
          {trialTurns(), opened() + Turns{mailFrom("550 not you\r\n"), rset(), quit()}},
          false,
          "FromFailure: MAIL FROM:<anna@from.test> was answered with: 550 not you"},
         {"MAIL FROM put off (451), then taken",
          Step::Send,
          {trialTurns(), opened() + Turns{mailFrom("451 later\r\n"), rset()}, wholeSend()},
          true,
          ""},
         {"MAIL FROM put off twice",
          Step::Send,
          {trialTurns(), opened() + Turns{mailFrom("451 later\r\n"), rset()},
           opened() + Turns{mailFrom("451 later\r\n"), rset(), quit()}},
          false,
          "FromFailure: MAIL FROM:<anna@from.test> was answered with: 451 later"},
         {"Closed after MAIL FROM, then taken",
          Step::Send,
          {trialTurns(), opened() + Turns{mailFrom("").thenClose()}, wholeSend()},
          true,
          ""},
         {"Closed after MAIL FROM twice",
          Step::Send,
          {trialTurns(), opened() + Turns{mailFrom("").thenClose()},
           opened() + Turns{mailFrom("").thenClose()}},
          false,
          "ConnectionLost: The connection was lost while waiting for the reply to MAIL "
          "FROM:<anna@from.test>."},
         {"No reply to MAIL FROM",
          Step::Send,
          {trialTurns(), opened() + Turns{mailFrom("").thenStall()}},
          false,
          "Timeout: Nothing moved for 30000 ms while waiting for the reply to MAIL "
          "FROM:<anna@from.test>."},
         {"All recipients refused",
          Step::Send,
          {trialTurns(), first + Turns{rcptTo("550 unknown\r\n"), rset(), quit()}},
          false,
          "NoValidRecipients: No recipient was accepted. RCPT TO:<bela@to.test> was answered "
          "with: 550 unknown"},
         {"Some recipients refused",
          Step::Send,
          {trialTurns(), first + Turns{rcptTo("550 unknown\r\n"), rcptTo("250 ok\r\n", kSecond),
                                       data(), message(), quit()}},
          true,
          "",
          {},
          {kFirst, kSecond}},
         {"421 after a recipient, twice",
          Step::Send,
          {trialTurns(), first + Turns{rcptTo("421 closing\r\n").thenClose()},
           first + Turns{rcptTo("421 closing\r\n").thenClose()}},
          false,
          "NoValidRecipients: No recipient was accepted. RCPT TO:<bela@to.test> was answered "
          "with: 421 closing"},
         {"No reply to RCPT TO",
          Step::Send,
          {trialTurns(), first + Turns{rcptTo("").thenStall()}},
          false,
          "Timeout: Nothing moved for 30000 ms while waiting for the reply to RCPT "
          "TO:<bela@to.test>."},
         {"DATA refused",
          Step::Send,
          {trialTurns(), first + Turns{rcptTo(), data("554 no\r\n"), rset(), quit()}},
          false,
          "DataFailure: DATA was answered with: 554 no"},
         {"Pipelined replies out of order",
          Step::Send,
          {{greeting(), ehloPiped(), quit()},
           openedPiped() + Turns{mailFrom("354 go\r\n"), rcptTo(), data()}},
          false,
          "FromFailure: The replies to the pipelined commands came out of order: 354 too early."}}};
}

Group transfer() {
    const Turns first = opened() + Turns{mailFrom(), rcptTo()};
    const auto after = [&](const Turns& rest) {
        return std::vector<Turns>{trialTurns(), first + rest};
    };
    return {
        "The message",
        {{"Reset while the message goes out", Step::Send, after({data().thenReset()}), false,
          "ConnectionLost: The connection was lost while sending the message data."},
         {"The server stops reading", Step::Send, after({data().thenStall()}), false,
          "Timeout: Nothing moved for 30000 ms while sending the message data."},
         {"The message refused", Step::Send, after({data(), message("554 spam\r\n")}), false,
          "<CRLF>.<CRLF>\r\n554 spam"},
         {"The message put off (451)", Step::Send, after({data(), message("451 later\r\n")}), false,
          "<CRLF>.<CRLF>\r\n451 later"},
         {"Closed before the last reply", Step::Send, after({data(), message("").thenClose()}),
          false,
          "ConnectionLost: The connection was lost while waiting for the reply to the end of "
          "the message data."},
         {"No last reply", Step::Send, after({data(), message("").thenStall()}), false,
          "Timeout: Nothing moved for 30000 ms while waiting for the reply to the end of the "
          "message data."},
         {"A last reply that is none", Step::Send, after({data(), message("thanks\r\n")}), false,
          "Failed: The reply to the end of the message data is no line of an SMTP server."},
         {"The sent-mail log cannot be written",
          Step::Send,
          after({data(), message(), quit()}),
          true,
          "",
          {{"SentMailLogFile", "no/such/place/sent.log"}}}}};
}

std::vector<Group> groups() {
    return {connecting(), envelope(), transfer()};
}

void arrange(MailWorld& world, const Fault& fault) {
    const std::string transport = fault.transport ? fault.transport : "";
    if (transport == "refuse") world.net.refuse(kServer, 25);
    if (transport == "silent") world.net.silent(kServer, 25);
    if (transport == "unreachable") world.net.unreachable(kServer, 25);
    for (const Turns& turns : fault.links) {
        world.serve(turns);
    }
}

// The steps of the send export.
bool brisko(MailWorld& world, std::string& lastError, Step& failedAt) {
    failedAt = Step::Trial;
    if (!world.mailMan.VerifySmtpConnection()) {
        lastError = world.logText();
        return false;
    }
    failedAt = Step::Send;
    lastError.clear();
    world.mailMan.ClearSmtpSessionLog();
    if (!world.mailMan.SendEmail(world.email)) lastError = world.transcript();
    return lastError.empty();
}

TEST(FaultTable, isWhatHappens) {
    for (const Group& group : groups()) {
        for (const Fault& fault : group.faults) {
            SCOPED_TRACE(fault.name);
            MailWorld world(fault.properties);
            world.compose(fault.recipients);
            arrange(world, fault);
            std::string lastError;
            Step failedAt = Step::Trial;
            EXPECT_EQ(brisko(world, lastError, failedAt), fault.result);
            EXPECT_EQ(failedAt, fault.step);
            if (fault.result) continue;
            const bool found = failedAt == Step::Trial
                                   ? contains(lastError, fault.says)
                                   : lastError.ends_with(fault.says + std::string("\r\n"));
            EXPECT_TRUE(found) << lastError;
        }
    }
}

std::string document() {
    std::string text =
        "# What a host learns of a fault\n"
        "\n"
        "`szBrisko` first makes a trial connection. Where that fails, `getLastError` gives the log "
        "of\n"
        "the trial, and the table quotes the line of it that names step and cause. Where the send\n"
        "itself fails, `getLastError` gives the transcript of the dialogue, and the table quotes "
        "its\n"
        "end: the server's refusing reply, or a last line with the status word and the reason.\n";
    for (const Group& group : groups()) {
        text += std::string("\n## ") + group.title + "\n\n";
        text += "| fault | returned | what `getLastError` says |\n|---|---|---|\n";
        for (const Fault& fault : group.faults) {
            text +=
                std::string("| ") + fault.name + " | " + (fault.result ? "true" : "false") + " | ";
            text += fault.result ? "nothing" : "`" + replaceAll(fault.says, "\r\n", "` `") + "`";
            text += " |\n";
        }
    }
    return text;
}

TEST(FaultTable, isTheDocument) {
    const std::string path = testDataPath("../../docs/faults.md");
    const std::string wanted = document();
    if (std::getenv("TV_WRITE_FAULTS")) {
        std::FILE* file = std::fopen(path.c_str(), "wb");
        ASSERT_NE(file, nullptr) << path;
        EXPECT_EQ(std::fwrite(wanted.data(), 1, wanted.size(), file), wanted.size());
        EXPECT_EQ(std::fclose(file), 0);
    }
    std::FILE* file = std::fopen(path.c_str(), "rb");
    ASSERT_NE(file, nullptr) << path;
    std::string found(wanted.size() + 1, '\0');
    found.resize(std::fread(found.data(), 1, found.size(), file));
    std::fclose(file);
    EXPECT_EQ(found, wanted) << "run once with TV_WRITE_FAULTS=1";
}

}  // namespace
}  // namespace tv::test
