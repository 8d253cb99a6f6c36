// Logging in by NTLM, in messages of our own and through the security packages of the system.
#include "base/Hex.h"
#include "mail/sasl/NtlmMessage.h"
#include "mail/sasl/NtlmResponse.h"
#include "mail/sasl/NtlmVersion.h"
#include "tests/fixtures/HexBytes.h"
#include "tests/unit/mail/LoginWorld.h"

namespace tv::test {
namespace {

const Properties kNtlm = withPassword({{"SmtpAuthMethod", "ntlm"}, {"LoginDomain", "Dom"}});

TEST(LoginNtlm, theThirdMessageProvesThePassword) {
    for (const int version : {1, 2}) {
        setDefaultNtlmVersion(version);
        MailWorld world(kNtlm);
        world.compose();
        FakeLink& link =
            world.serve(offering("NTLM") + script("ntlm; type1; any 235 ok; delivered"));
        EXPECT_TRUE(world.send()) << world.logText();
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

TEST(LoginNtlm, aLongChallenge) {
    MailWorld world(kNtlm);
    world.compose();
    world.serve(offering("NTLM") +
                script("ntlm; type1 334 " + std::string(65000, 'A') + "; cancel; quit"));
    EXPECT_FALSE(world.send());
    EXPECT_EQ(world.word(), "AuthFailure");
    EXPECT_TRUE(contains(world.logText(), "Expected TYPE2 message to begin with NTLMSSP."));
}

// A system without the package: the exchange ends politely and LOGIN is tried.
TEST(LoginNtlm, theLoggedOnUserNeedsThePackage) {
    const Properties settings[] = {
        {{"SmtpUsername", "Default"}, {"SmtpPassword", "DEFAULT"}},
        {{"SmtpUsername", " default "}, {"SmtpPassword", "x"}, {"SmtpAuthMethod", "ntlm"}},
        {{"SmtpAuthMethod", "ntlm"}},
    };
    const char* const logins[] = {"'RGVmYXVsdA==' 334; 'REVGQVVMVA=='",
                                  "'IGRlZmF1bHQg' 334; 'eA=='",
                                  "'ZGVmYXVsdA==' 334; 'ZGVmYXVsdA=='"};
    for (size_t i = 0; i < 3; ++i) {
        FakeSecurity security;
        MailWorld world(settings[i]);
        world.compose();
        world.serve(offering("NTLM") + script("ntlm; cancel; login 334; " + std::string(logins[i]) +
                                              " 235 ok; delivered"));
        EXPECT_TRUE(world.send()) << world.logText();
        EXPECT_TRUE(contains(world.logText(), "Using Microsoft SSPI NTLM."));
        EXPECT_TRUE(contains(world.logText(), "alt_login_method: LOGIN"));
        EXPECT_EQ(contains(world.logText(),
                           "Username/password is default/default, therefore using NTLM."),
                  i != 1);
        EXPECT_EQ(security.asked, std::vector<std::string>{"NTLM SMTP/10.0.0.1"});
        EXPECT_EQ(security.users, std::vector<std::string>{"logged on"});
    }
}

// Nothing else can be tried on a connection that the end of the exchange took with it.
TEST(LoginNtlm, whatTheEndOfTheExchangeMeetsIsTold) {
    const char* const rows[][2] = {
        {"cancel -!close", "ConnectionLost: The connection was lost while waiting for the reply to *."},
        {"cancel -; silence", "Timeout: Nothing moved for 30000 ms while waiting for the reply to *."},
        {"cancel ?", "Failed: The reply to * is no line of an SMTP server."},
    };
    for (const auto& [steps, told] : rows) {
        SCOPED_TRACE(steps);
        FakeSecurity security;
        MailWorld world(Properties{{"SmtpUsername", "default"}, {"SmtpPassword", "default"}});
        world.compose();
        world.serve(offering("NTLM") + script("ntlm; " + std::string(steps)));
        EXPECT_FALSE(world.send());
        EXPECT_TRUE(contains(world.transcript(), told)) << world.transcript();
    }
}

TEST(LoginNtlm, tokensOfThePackage) {
    const std::string begun = "ntlm; 'b25l' 334 dHdv; 'dGhyZWU=' ";
    const char* const denied = "Logon denied.  Check username, password, and domain";
    const struct {
        const char* what;
        std::string login;
        const char* logged;
        const char* word = "AuthFailure";
    } rows[] = {
        {"accepted", begun + "235 ok", "smtpAuth.ntlmImpl: microsoftSspi", "Success"},
        {"denied", begun + "535 no", denied},
        {"first token refused", "ntlm; 'b25l' 501 no",
         "exchangePackage: failed to get success response"},
        {"no base64", "ntlm; 'b25l' 334 ?; cancel",
         "The challenge of the server is no base64 text."},
        {"no logon", begun + "334 AAAA; cancel", "NTLM authentication failed"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        FakeSecurity security;
        security.available = "NTLM";
        security.tokens = {"one", "three"};
        security.fails = std::string_view(row.what) == "no logon";
        MailWorld world(Properties{{"SmtpUsername", "default"}, {"SmtpPassword", "default"}});
        world.compose();
        const bool sent = std::string_view(row.word) == "Success";
        world.serve(offering("NTLM LOGIN") + script(row.login) +
                    script(sent ? "delivered" : "quit"));
        EXPECT_EQ(world.send(), sent);
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
                script("'AUTH MSN' 334; 'b25l' 334 dHdv; 'dGhyZWU=' 235 ok; delivered"));
    EXPECT_TRUE(world.send()) << world.logText();
    EXPECT_EQ(security.users, std::vector<std::string>{"tester"});
    EXPECT_EQ(security.challenges, (std::vector<std::string>{"", "two"}));
    EXPECT_TRUE(contains(world.logText(), "smtpAuth.method: msn"));
}

}  // namespace
}  // namespace tv::test
