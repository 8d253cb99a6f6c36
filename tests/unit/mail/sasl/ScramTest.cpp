// SCRAM: the published logins, and what a server may not say.
#include "mail/sasl/SaslScram.h"

#include <gtest/gtest.h>

#include "base/Base64.h"
#include "log/LogNull.h"

namespace tv {
namespace {

using crypto::HashId;

std::string decoded(const SaslTurn& turn) {
    const auto bytes = base64Decode(saslText(turn.text), 65536);
    return bytes ? std::string(bytes->begin(), bytes->end()) : "no base64";
}

SecureBuffer secret(std::string_view text) {
    SecureBuffer out;
    out.append(text);
    return out;
}

struct Login {
    HashId hash;
    std::string_view name, nonce, first, proof, final;
};
// RFC 7677 section 3, RFC 5802 section 5.
constexpr Login kPublished[] = {
    {HashId::kSha256, "SCRAM-SHA-256", "rOprNGfwEbeRWgbNEkqO",
     "r=rOprNGfwEbeRWgbNEkqO%hvYDpWUa2RaTCAfuxFIlj)hNlF$k0,s=W22ZaJ0SNY7soEsUEjb6gQ==,i=4096",
     "c=biws,r=rOprNGfwEbeRWgbNEkqO%hvYDpWUa2RaTCAfuxFIlj)hNlF$k0,"
     "p=dHzbZapWIk4jUhN+Ute9ytag9zjfMHgsqmmiz7AndVQ=",
     "v=6rriTRBi23WpRR/wtup+mMhUZUn/dB5nLTJRsjl95G4="},
    {HashId::kSha1, "SCRAM-SHA-1", "fyko+d2lbbFgONRv9qkxdawL",
     "r=fyko+d2lbbFgONRv9qkxdawL3rfcNHYJY1ZVvWVs7j,s=QSXCR+Q6sek8bf92,i=4096",
     "c=biws,r=fyko+d2lbbFgONRv9qkxdawL3rfcNHYJY1ZVvWVs7j,p=v0X8v3Bz2T0CJGbJQyF0X+HI4Ts=",
     "v=rmF9pqV8S7suAoZWja4dJRkFsKQ="},
};

TEST(Scram, publishedLogins) {
    for (const Login& login : kPublished) {
        SCOPED_TRACE(login.name);
        LogNull log;
        SaslScram scram(login.hash, "user", secret("pencil"), std::string(login.nonce));
        EXPECT_EQ(scram.names().auth, login.name);
        SaslTurn turn;
        ASSERT_FALSE(scram.begin(log, turn));
        EXPECT_EQ(decoded(turn), "n,,n=user,r=" + std::string(login.nonce));
        ASSERT_FALSE(scram.respond(log, base64Encode(login.first), turn = {}));
        EXPECT_EQ(decoded(turn), login.proof);
        EXPECT_EQ(turn.wanted, SaslWanted::Challenge) << "no success before the server's proof";
        ASSERT_FALSE(scram.respond(log, base64Encode(login.final), turn = {}));
        EXPECT_TRUE(turn.text.empty() && turn.wanted == SaslWanted::Success);
    }
}

// Each message in place of the good one, the last of a login that was good until then.
TEST(Scram, serversThatAreNotBelieved) {
    const std::string_view first[] = {"",
                                      "r=nonceX",
                                      "r=nonceX,s=QSXC",
                                      "r=nonce,s=QSXC,i=4096",
                                      "r=nonc,s=QSXC,i=4096",
                                      "r=other,s=QSXC,i=4096",
                                      "r=nonceX,s=,i=4096",
                                      "r=nonceX,s=?,i=4096",
                                      "r=nonceX,s=QSXC,i=4095",
                                      "r=nonceX,s=QSXC,i=1000001",
                                      "r=nonceX,s=QSXC,i=4096x",
                                      "r=nonceX,s=QSXC,i=-4096",
                                      "m=x,r=nonceX,s=QSXC,i=4096",
                                      "r=nonce\xC3\xA1,s=QSXC,i=4096"};
    const std::string_view final[] = {
        "", "v=", "v=AAAA", "v=rmF9pqV8S7suAoZWja4dJRkFsKQ=", "e=x", "x=1"};
    const auto refused = [](std::string_view message, bool isFinal) {
        LogNull log;
        SaslTurn turn;
        SaslScram scram(HashId::kSha1, "a=b,c", secret("p"), "nonce");
        EXPECT_FALSE(scram.begin(log, turn));
        EXPECT_EQ(decoded(turn), "n,,n=a=3Db=2Cc,r=nonce");
        if (isFinal) {
            const auto good = base64Encode("r=nonceX,s=QSXC,i=4096,ext=1");
            EXPECT_FALSE(scram.respond(log, good, turn));
        }
        return scram.respond(log, base64Encode(message), turn).is(Cause::ChallengeUnanswerable);
    };
    for (const std::string_view message : first) {
        EXPECT_TRUE(refused(message, false)) << message;
    }
    for (const std::string_view message : final) {
        EXPECT_TRUE(refused(message, true)) << message;
    }
}

TEST(Scram, whatCannotBeSent) {
    for (const auto& [user, password] :
         {std::pair{"", "p"}, {"u", ""}, {"\xC3\xA1", "p"}, {"u", "\xC3\xA1"}, {"u\r\n", "p"}}) {
        LogNull log;
        SaslTurn turn;
        SaslScram scram(HashId::kSha256, user, secret(password));
        EXPECT_TRUE(scram.begin(log, turn).is(Cause::NoCredentials)) << user << '/' << password;
    }
}

}  // namespace
}  // namespace tv
