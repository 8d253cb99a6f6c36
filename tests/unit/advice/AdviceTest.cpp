// What is said about a failure: which row fits a reply, the one sentence, and the reference, which
// leaves no cause out. How texts of hosts are read is shown by the dialogues of tests/data/mail.
#include <gtest/gtest.h>

#include "advice/Reference.h"
#include "base/Ascii.h"
#include "tests/fixtures/TestData.h"

namespace tv::advice {
namespace {

struct Reply {
    const char* reply;
    Stage stage;
    const char* change;  // stands in it
};

// As large providers and usual servers write them.
constexpr Reply kReplies[] = {
    {"535 5.7.139 Authentication unsuccessful, SmtpClientAuthentication is disabled for the Tenant",
     Stage::Login, "switched off logins"},
    // Of a wrong password.
    {"535 5.7.3 Authentication unsuccessful", Stage::Login, "Correct user name and password"},
    {"535 5.7.139 Authentication unsuccessful, the user credentials were incorrect.", Stage::Login,
     "Correct user name and password"},
    {"534-5.7.9 Application-specific password required\n534 5.7.9 see the help", Stage::Login,
     "application password: make one"},
    {"535-5.7.8 Username and Password not accepted.\n535 5.7.8 https://x/?p=BadCredentials",
     Stage::Login, "application password: make one"},
    {"535 5.7.8 Error: authentication failed", Stage::Login, "Correct user name and password"},
    {"454 4.7.0 Temporary authentication failure", Stage::Login, "cannot check logins"},
    {"530 5.7.0 Must issue a STARTTLS command first", Stage::Sender, "encryption first"},
    {"530 5.7.57 Client not authenticated to send mail", Stage::Sender, "wants a login"},
    {"550 5.7.1 Authentication required", Stage::Recipients, "wants a login"},
    {"550 5.7.60 SMTP; Client does not have permissions to send as this sender", Stage::Acceptance,
     "may not send as this sender"},
    {"554 5.2.252 SendAsDenied; a@b not allowed to send as c@d", Stage::Acceptance,
     "may not send as this sender"},
    {"553 5.7.1 <a@b>: Sender address rejected: not owned by user c", Stage::Recipients,
     "may not send as this sender"},
    {"554 5.7.1 <c@d>: Relay access denied", Stage::Recipients, "allowed to relay"},
    {"550 5.7.54 SMTP; Unable to relay recipient in non-accepted domain", Stage::Recipients,
     "allowed to relay"},
    {"450 4.2.0 <c@d>: Recipient address rejected: Greylisted", Stage::Recipients, "5 to 30"},
    {"550-5.7.26 Unauthenticated email from b is not accepted\n550 5.7.26 x", Stage::Acceptance,
     "SPF, DKIM, DMARC"},
    {"554 5.7.1 Service unavailable; Client host [192.0.2.1] blocked using zen.spamhaus.org",
     Stage::Recipients, "block list"},
    {"550 5.7.25 The IP address sending this message does not have a PTR record", Stage::Acceptance,
     "no name that the server finds right"},
    {"421 4.7.0 mx Error: too many connections from 192.0.2.1", Stage::Greeting, "how much"},
    {"421 4.3.2 Service not available", Stage::Ehlo, "a restart"},
    {"421 4.3.2 The maximum number of concurrent connections has exceeded a limit", Stage::Greeting,
     "how much"},
    {"552 5.2.2 Mailbox full", Stage::Recipients, "mailbox is full"},
    {"552 5.3.4 Message size exceeds fixed limit", Stage::Sender, "Send less"},
    {"452 4.3.1 Insufficient system storage", Stage::Sender, "disk is full"},
    {"550 5.1.1 <c@d>: User unknown", Stage::Recipients, "Correct the refused"},
    {"550 5.1.8 Sender address rejected: Domain not found", Stage::Sender, "domain of the sender"},
    // The sender, refused where a recipient was named.
    {"450 4.1.8 <a@b>: Sender address rejected: Domain not found", Stage::Recipients,
     "Correct the sender"},
    {"550 5.1.0 <a@b>: Sender address rejected: User unknown in virtual mailbox table",
     Stage::Recipients, "Correct the sender"},
    {"550 Sender verify failed", Stage::Recipients, "Correct the sender"},
    {"550 5.1.2 <c@d>: Recipient address rejected: Domain not found", Stage::Recipients,
     "Correct the refused"},
    {"553 5.7.1 <a@b>: Sender address rejected: not logged in", Stage::Sender, "wants a login"},
    {"450 4.7.1 Client host rejected: cannot find your reverse hostname, [192.0.2.1]",
     Stage::Recipients, "no name that the server finds right"},
    {"554 5.7.0 Reject, id=1-01 - BANNED: application/x-msdownload,.exe", Stage::Acceptance,
     "content or an attachment"},
    {"552-5.7.0 This message was blocked because its content presents a potential\n552 5.7.0 x",
     Stage::Acceptance, "content or an attachment"},
    {"550 5.7.1 192.0.2.1 is banned here", Stage::Recipients, "block list"},
    // Words within words, numbers within numbers: no row of theirs fits.
    {"550 5.7.139 x", Stage::Recipients, "rules forbid"},
    {"550 15.7.26 and 15.7.54", Stage::Recipients, "Correct the refused"},
    {"550 5.1.1 See http://x/spf and noDKIM, by spfilter 4.2.2", Stage::Recipients,
     "Correct the refused"},
    {"550 5.7.1 SPF: fail", Stage::Recipients, "SPF, DKIM, DMARC"},
    // Names of people and machines say nothing.
    {"550 5.1.1 <bob@relay.example>: unknown at relay2.example", Stage::Recipients,
     "Correct the refused"},
    {"550 5.1.1 <blacklist+spf@example.test>: User unknown", Stage::Recipients,
     "Correct the refused"},
    {"554 5.7.1 <unknown[192.0.2.1]>: Client host rejected: Access denied", Stage::Recipients,
     "log in"},
    {"452 4.5.3 Error: too many recipients", Stage::Recipients, "fewer at a time"},
};

Finding findingOfReply(const Reply& row) {
    const std::string reply = row.reply;
    return {row.stage,
            Cause::FromFailure,
            Repeat::NothingSent,
            std::stoi(reply.substr(0, 3)),
            "was answered with: " + reply.substr(reply.rfind('\n') + 1),
            reply};
}

TEST(Advice, repliesOfServers) {
    for (const Reply& row : kReplies) {
        const std::string change = whatToChange(adviceOn(findingOfReply(row)));
        EXPECT_NE(change.find(row.change), std::string::npos) << row.reply << "\n" << change;
    }
}

TEST(Advice, afterALoginThatWasTaken) {
    const std::string envelope =
        "MAIL FROM:<a@b><CRLF>\n250 ok\nRCPT TO:<c@d><CRLF>\n554 5.7.1 <c@d>: Relay access denied\n"
        "NoValidRecipients: No recipient was accepted. RCPT TO:<c@d> was answered with: 554 5.7.1 "
        "<c@d>: Relay access denied";
    for (const bool loggedIn : {false, true}) {
        const Finding finding = findingIn((loggedIn ? "235 2.7.0 ok\n" : "") + envelope);
        const std::string change = whatToChange(adviceOn(finding));
        EXPECT_EQ(change.starts_with("Log in"), !loggedIn) << change;
        EXPECT_EQ(change.starts_with("The login stood"), loggedIn) << change;
    }
}

TEST(Advice, namesOfHostsAndFilesSayNothing) {
    constexpr std::pair<const char*, const char*> kRows[] = {
        {"No connection to relay.example.com:25: Connection rejected.", "Check host and port"},
        {"No connection to blacklist.example.com:25: App aborted in event callback.", "stopped it"},
        {"The TLS handshake after STARTTLS failed: Timeout in the TLS handshake.", "use port 465"},
        {"The settings file /relaying/e.ini cannot be used: line 3: x", "Correct the settings"},
    };
    for (const auto& [text, change] : kRows) {
        const std::string told = whatToChange(adviceOn(findingIn(text)));
        EXPECT_NE(told.find(change), std::string::npos) << text << "\n" << told;
    }
}

TEST(Advice, namesFunctionsOrKeys) {
    for (const Advice& row : advices()) {
        const std::string functions = whatHostsChange(row), keys = whatToChange(row);
        EXPECT_EQ((functions + keys).find_first_of("{}"), std::string::npos) << functions;
        const bool settings = std::string_view(row.change).find('{') != std::string::npos;
        EXPECT_EQ(functions != keys, settings) << functions;
        EXPECT_TRUE(keys.ends_with('.') && keys.size() > 15) << keys;
        EXPECT_TRUE(!settings || keys.find(']') != std::string::npos) << keys;
    }
}

TEST(Advice, oneSentence) {
    const Finding login{
        Stage::Login,
        Cause::AuthFailure,
        Repeat::RefusedForGood,
        535,
        "The server refused the login by PLAIN: 535 no\x1b[2J\xC2\x9B\xE2\x80\xAE\r\n",
        "535 no"};
    EXPECT_EQ(oneSentence(login),
              "The login failed: The server refused the login by PLAIN: 535 no [2J. Correct user "
              "name and password (user and password in [login]); a second factor needs "
              "an application password or a token (oauth2 in [login]). Refused for good: sending "
              "it again is useless before something has changed.");
    EXPECT_EQ(oneSentence({}), "");
    Finding longer = login;
    longer.words = std::string(599, 'x') + "\xC3\xA9" + std::string(100000, 'x');
    const std::string shown = oneSentence(longer);
    EXPECT_NE(shown.find(std::string(599, 'x') + "... Correct"), std::string::npos) << shown;
}

TEST(Advice, textsThatAreNoDialogue) {
    struct Row {
        const char* text;
        Stage stage;
        Cause cause;
    };
    for (const Row& row : {
             Row{"", Stage::None, Cause::None},
             Row{"\r\n \n", Stage::None, Cause::None},
             Row{"Sending failed: Out of memory.", Stage::None, Cause::OutOfMemory},
             Row{"Nothing was sent: Initialise has not been called.", Stage::Local,
                 Cause::Internal},
             Row{"The settings file /e.ini, line 3: x", Stage::Local, Cause::SettingsUnusable},
             Row{"No connection to a:25: The name server 10.0.0.1 refuses to answer this host.",
                 Stage::NameLookup, Cause::DnsFailed},
             Row{"never seen", Stage::None, Cause::Internal},
             Row{"The login failed: x\r\nTolvaneLog:\r\n  No connection to a:25: DNS timeout.\r\n"
                 "  Failed.\r\n--TolvaneLog\r\n",
                 Stage::NameLookup, Cause::DnsTimeout},
         }) {
        const Finding finding = findingIn(row.text);
        EXPECT_EQ(finding.stage, row.stage) << row.text;
        EXPECT_EQ(finding.cause, row.cause) << row.text;
    }
}

TEST(Reference, leavesNoCauseOut) {
    for (int number = 1; number < 256; ++number) {
        const auto cause = static_cast<Cause>(number);
        if (statusWord(cause) == "Success") continue;
        bool explained = false;
        for (const Explanation& row : explanations())
            explained |= row.first <= cause && cause <= row.last;
        EXPECT_TRUE(explained) << number;
    }
    for (const Explanation& row : explanations()) {
        EXPECT_NE(&adviceOn(exampleOf(row)), &advices().back()) << row.meaning;
    }
}

// What follows is added by hand.
TEST(Reference, isTheDocument) {
    const std::string document = fileText(testDataPath("../../docs/errors.md"));
    EXPECT_TRUE(document.starts_with(referenceText()))
        << "write what \"emailsend errors\" prints over the first part of docs/errors.md";
}

}  // namespace
}  // namespace tv::advice
