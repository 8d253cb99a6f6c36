// Logging in by NTLM, in messages of our own and through the security packages of the system.
#include "base/Hex.h"
#include "mail/NtlmMessage.h"
#include "mail/NtlmResponse.h"
#include "mail/NtlmVersion.h"
#include "tests/fixtures/HexBytes.h"
#include "tests/unit/mail/LoginWorld.h"

namespace tv::test {
namespace {

// Domain "Dom" and workstation "TESTHOST" in OEM text.
const char* const kType1 = "TlRMTVNTUAABAAAAB7IIAAMAAwAgAAAACAAIACMAAABEb21URVNUSE9TVA==\r\n";

std::string type2() {
    NtlmChallenge challenge;
    challenge.flags = 0x00088207;
    challenge.challenge = {1, 2, 3, 4, 5, 6, 7, 8};
    challenge.targetInfo = bytesOfHex("010004005300310000000000");
    return base64Encode(*challenge.encode());
}

const Properties kNtlm = withPassword({{"SmtpAuthMethod", "ntlm"}, {"LoginDomain", "Dom"}});

Turns upToType3(const std::string& challenge) {
    return offering("NTLM") +
           Turns{turn("AUTH NTLM\r\n", "334\r\n"), turn(kType1, "334 " + challenge + "\r\n")};
}

TEST(LoginNtlm, theThirdMessageProvesThePassword) {
    for (const int version : {1, 2}) {
        setDefaultNtlmVersion(version);
        MailWorld world(kNtlm);
        world.compose();
        FakeLink& link =
            world.serve(upToType3(type2()) + Turns{upTo("\r\n", "235 ok\r\n")} + delivered());
        EXPECT_TRUE(world.mailMan.SendEmail(world.email)) << world.logText();
        std::string line = link.turnBytes.at(4);
        line.resize(line.size() - 2);
        const auto bytes = base64Decode(line, 10000);
        ASSERT_TRUE(bytes);
        NtlmAuthenticate message;
        ASSERT_EQ(message.decode(*bytes), NtlmDefect::None);
        EXPECT_EQ(message.flags, 0x00088207u);

        const ntlm::Secret secret{"tester", kPassword, "Dom", 437};
        const auto nt = message.ntResponse.bytes();
        const std::span<const uint8_t> clientChallenge(version == 1
                                                           ? message.lmResponse.bytes().first(8)
                                                           : message.lmResponse.bytes().last(8));
        const auto wanted =
            version == 1 ? ntlm::computeNtlmV1Response(
                               secret, 0x80000, bytesOfHex("0102030405060708"), clientChallenge)
                         : ntlm::computeNtlmV2Response(secret, bytesOfHex("0102030405060708"),
                                                       clientChallenge, world.clock.fileTime,
                                                       bytesOfHex("010004005300310000000000"));
        EXPECT_EQ(hexLower(nt), hexLower(wanted.nt.bytes()));
        EXPECT_EQ(hexLower(message.lmResponse.bytes()), hexLower(wanted.lm.bytes()));
        for (const char* entry :
             {"Using Tolvane NTLM...", "smtpAuth.user: tester", "smtpAuth.domain: Dom",
              "smtpAuth.method: ntlm", "smtpAuth.ntlmImpl: tolvane", "NtlmChallenge: TlRM",
              "computerName: TESTHOST", "smtpAuth.computerName: TESTHOST", "nbComputer: S1",
              "NTLM authentication succeeded."}) {
            EXPECT_TRUE(contains(world.logText(), entry)) << entry << world.logText();
        }
        EXPECT_TRUE(contains(world.logText(), "smtpAuth.ntlmVersion: " + std::to_string(version)));
        EXPECT_FALSE(contains(world.logText() + world.transcript(), line));
        EXPECT_FALSE(contains(world.logText(), hexUpper(nt)));
        expectNothingShown(world);
    }
    setDefaultNtlmVersion(2);
}

TEST(LoginNtlm, refusals) {
    const Turn cancelled = turn("*\r\n", "501 cancelled\r\n");
    const struct {
        const char* what;
        Turns turns;
        const char* word;
        const char* logged;
    } rows[] = {
        {"command", offering("NTLM") + Turns{turn("AUTH NTLM\r\n", "504 no\r\n")}, "AuthFailure",
         "AUTH NTLM failed"},
        {"235 at once", offering("NTLM") + Turns{turn("AUTH NTLM\r\n", "235 hm\r\n")},
         "AuthFailure", "AUTH NTLM failed"},
        {"type 1",
         offering("NTLM") +
             Turns{turn("AUTH NTLM\r\n", "334 \r\n"), turn(kType1, "501 bad message\r\n")},
         "AuthFailure", "Failed to get NTLM successful TYPE1 response from SMTP server."},
        {"an empty type 2", upToType3("") + Turns{cancelled}, "AuthFailure",
         "Expected TYPE2 message to begin with NTLMSSP."},
        {"no base64", upToType3("%%") + Turns{cancelled}, "AuthFailure",
         "Failed to decode TYPE2 input message."},
        {"another message", upToType3("TlRMTVNTUAABAAAA") + Turns{cancelled}, "AuthFailure",
         "TYPE2 message type not equal to 2"},
        {"64 KiB", upToType3(std::string(65000, 'A')) + Turns{cancelled}, "AuthFailure",
         "Expected TYPE2 message to begin with NTLMSSP."},
        {"type 3", upToType3(type2()) + Turns{upTo("\r\n", "535 wrong\r\n")}, "AuthFailure",
         "Logon denied.  Check username, password, and domain"},
        {"250 is not enough", upToType3(type2()) + Turns{upTo("\r\n", "250 ok\r\n")}, "AuthFailure",
         "response: 250 ok"},
        {"a challenge more", upToType3(type2()) + Turns{upTo("\r\n", "334 \r\n"), cancelled},
         "AuthFailure", "smtpAuth.statusCode: 334"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        MailWorld world(kNtlm);
        world.compose();
        world.serve(row.turns + Turns{quit()});
        EXPECT_FALSE(world.mailMan.SendEmail(world.email));
        EXPECT_EQ(world.word(), row.word);
        EXPECT_TRUE(contains(world.logText(), row.logged)) << row.logged << world.logText();
        EXPECT_TRUE(contains(world.logText(), "NTLM authentication failed"));
        EXPECT_TRUE(contains(world.logText(), "Failed to login using NTLM method"));
        expectNothingShown(world);
    }
}

TEST(LoginNtlm, closedAtEachStep) {
    for (const size_t at : {0u, 1u, 2u}) {
        Turns login = {turn("AUTH NTLM\r\n", "334 \r\n"), turn(kType1, "334 " + type2() + "\r\n"),
                       upTo("\r\n", "235 ok\r\n")};
        login.resize(at + 1);
        login.back().reply.clear();
        login.back().after = Ending::Eof;
        MailWorld world(kNtlm);
        world.compose();
        world.serve(offering("NTLM") + login);
        EXPECT_FALSE(world.mailMan.SendEmail(world.email));
        EXPECT_EQ(world.word(), "ConnectionLost") << at;
        EXPECT_TRUE(contains(world.logText(), "NTLM authentication failed"));
    }
}

// A system without the package: the exchange ends politely and LOGIN is tried.
TEST(LoginNtlm, theLoggedOnUserNeedsThePackage) {
    const Properties settings[] = {
        {{"SmtpUsername", "Default"}, {"SmtpPassword", "DEFAULT"}},
        {{"SmtpUsername", " default "}, {"SmtpPassword", "x"}, {"SmtpAuthMethod", "ntlm"}},
        {{"SmtpAuthMethod", "ntlm"}},
    };
    const char* const users[] = {"RGVmYXVsdA==", "IGRlZmF1bHQg", "ZGVmYXVsdA=="};
    const char* const passwords[] = {"REVGQVVMVA==", "eA==", "ZGVmYXVsdA=="};
    for (size_t i = 0; i < 3; ++i) {
        FakeSecurity security;
        MailWorld world(settings[i]);
        world.compose();
        world.serve(offering("NTLM") +
                    Turns{turn("AUTH NTLM\r\n", "334 \r\n"), turn("*\r\n", "501 cancelled\r\n"),
                          turn("AUTH LOGIN\r\n", "334 \r\n"),
                          turn(std::string(users[i]) + "\r\n", "334 \r\n"),
                          turn(std::string(passwords[i]) + "\r\n", "235 ok\r\n")} +
                    delivered());
        EXPECT_TRUE(world.mailMan.SendEmail(world.email)) << world.logText();
        EXPECT_TRUE(contains(world.logText(), "Using Microsoft SSPI NTLM."));
        EXPECT_TRUE(contains(world.logText(), "alt_login_method: LOGIN"));
        EXPECT_EQ(contains(world.logText(),
                           "Username/password is default/default, therefore using NTLM."),
                  i != 1);
        EXPECT_EQ(security.asked, std::vector<std::string>{"NTLM SMTP/10.0.0.1"});
        EXPECT_EQ(security.users, std::vector<std::string>{"logged on"});
    }
}

TEST(LoginNtlm, tokensOfThePackage) {
    const Turn command = turn("AUTH NTLM\r\n", "334 \r\n");
    const Turn first = turn("b25l\r\n", "334 " + base64Encode(std::string_view("two")) + "\r\n");
    const struct {
        const char* what;
        Turns login;
        bool fails;
        const char* word;
        const char* logged;
    } rows[] = {
        {"accepted",
         {command, first, turn("dGhyZWU=\r\n", "235 ok\r\n")},
         false,
         "Success",
         "smtpAuth.ntlmImpl: microsoftSspi"},
        {"denied",
         {command, first, turn("dGhyZWU=\r\n", "535 no\r\n")},
         false,
         "AuthFailure",
         "Logon denied.  Check username, password, and domain"},
        {"first token refused",
         {command, turn("b25l\r\n", "501 no\r\n")},
         false,
         "AuthFailure",
         "exchangePackage: failed to get success response"},
        {"no base64",
         {command, turn("b25l\r\n", "334 ?\r\n"), turn("*\r\n", "501 no\r\n")},
         false,
         "AuthFailure",
         "The challenge of the server is no base64 text."},
        {"no logon",
         {command, first, turn("dGhyZWU=\r\n", "334 AAAA\r\n"), turn("*\r\n", "501 no\r\n")},
         true,
         "AuthFailure",
         "NTLM authentication failed"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        FakeSecurity security;
        security.available = "NTLM";
        security.tokens = {"one", "three"};
        security.fails = row.fails;
        MailWorld world(Properties{{"SmtpUsername", "default"}, {"SmtpPassword", "default"}});
        world.compose();
        const bool sent = std::string_view(row.word) == "Success";
        world.serve(offering("NTLM LOGIN") + row.login + (sent ? delivered() : Turns{quit()}));
        EXPECT_EQ(world.mailMan.SendEmail(world.email), sent);
        EXPECT_EQ(world.word(), row.word);
        EXPECT_TRUE(contains(world.logText(), row.logged)) << world.logText();
        EXPECT_TRUE(contains(world.logText(), "sspiAuthenticate:"));
        EXPECT_FALSE(contains(world.logText() + world.transcript(), "dGhyZWU"));
        EXPECT_EQ(security.open, 0) << "released on every path";
        EXPECT_EQ(security.challenges.at(0), "");
    }
}

TEST(LoginNtlm, msn) {
    FakeSecurity security;
    security.available = "MSN";
    security.tokens = {"one", "three"};
    MailWorld world(withPassword());
    world.compose();
    world.serve(offering("MSN CRAM-MD5") +
                Turns{turn("AUTH MSN\r\n", "334 \r\n"), turn("b25l\r\n", "334 dHdv\r\n"),
                      turn("dGhyZWU=\r\n", "235 ok\r\n")} +
                delivered());
    EXPECT_TRUE(world.mailMan.SendEmail(world.email)) << world.logText();
    EXPECT_EQ(security.users, std::vector<std::string>{"tester"});
    EXPECT_EQ(security.challenges, (std::vector<std::string>{"", "two"}));
    EXPECT_TRUE(contains(world.logText(), "smtpAuth.method: msn"));
}

}  // namespace
}  // namespace tv::test
