// What dialogues as data cannot say: the bytes of TLS hellos, identifiers, the good-bye of a mail
// manager.
#include "tests/unit/mail/MailWorld.h"

namespace tv::test {
namespace {

// Nobody answers the hello: everything is said again, the second hello is without TLS 1.3.
TEST(StartTls, anUnansweredHelloIsRepeatedWithoutTls13) {
    constexpr std::string_view kSupportedVersions("\x00\x2b\x00\x09\x08\x03\x04", 7);
    constexpr std::string_view kFallback("\x56\x00\x01\x00", 4);
    const struct {
        const char* name;
        const char* steps;
        const char* verify = "0";
        const char* policy = "";
    } kRows[] = {
        {"silence", "open; 'STARTTLS' 220 go; silence"},
        {"end of stream", "open; 'STARTTLS' 220 go !close"},
        {"verified", "open; 'STARTTLS' 220 go !close", "1"},
        {"no TLS 1.3 wanted", "open; 'STARTTLS' 220 go !close", "1", "TLS 1.2 or lower"},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        MailWorld world(
            {{"StartTLS", "1"}, {"TlsProtocol", row.policy}, {"RequireSslCertVerify", row.verify}});
        world.compose();
        const size_t tries = *row.policy ? 1 : 2;
        std::vector<FakeLink*> links;
        while (links.size() < tries)
            links.push_back(&world.serve(row.steps));
        EXPECT_FALSE(world.send());
        EXPECT_EQ(world.net.connects.size(), tries);
        EXPECT_EQ(world.word(), "StartTlsFailed");
        EXPECT_TRUE(contains(world.logText(), "Failed to establish TLS connection."));
        EXPECT_EQ(contains(world.logText(), "server hello.  Retry without TLS 1.3"), tries == 2);
        for (size_t i = 0; i < tries; ++i) {
            const std::string& bytes = links[i]->fromClient;
            EXPECT_TRUE(contains(bytes, "STARTTLS\r\n\x16\x03"));
            EXPECT_EQ(contains(bytes, kSupportedVersions), i == 0 && tries == 2);
            EXPECT_EQ(contains(bytes, kFallback), i == 1 && *row.verify == '1');
            EXPECT_FALSE(contains(bytes, "MAIL FROM"));
            EXPECT_TRUE(links[i]->closedByClient);
        }
    }
}

// A second try carries the identifiers of the first: none is drawn anew.
TEST(MailManager, eachSendHasItsOwnIdentifierAndARetryKeepsIt) {
    size_t drawn[2] = {};
    for (const bool retried : {false, true}) {
        MailWorld world;
        world.random.bytes.resize(251);
        for (size_t i = 0; i < 251; ++i)
            world.random.bytes[i] = static_cast<uint8_t>(i);
        world.compose();
        const FakeLink& first = world.serve(retried ? "open; transaction; mail; rcpt; data -!close"
                                                    : "open; transaction; delivered");
        const FakeLink& second = retried ? world.serve("whole") : first;
        EXPECT_TRUE(world.send());
        EXPECT_TRUE(world.send());
        drawn[retried] = world.random.given;
        EXPECT_TRUE(contains(messageOf(second), "Message-ID:"));
        EXPECT_EQ(messageOf(first) == messageOf(second), !retried);
    }
    EXPECT_EQ(drawn[0], drawn[1]);
}

TEST(MailManager, destructionSaysQuitAndWaitsAtMostFiveSeconds) {
    for (const auto& [timeout, waited] : {std::pair{"0", 5u}, {"30000", 5u}, {"1000", 1u}}) {
        MailWorld world;
        world.compose();
        world.serve(script("to-text") + Turns{quit().drippedBy(900)});
        uint64_t beforeNs;
        {
            ClsMailMan mailMan;
            mailMan.setProperty("SmtpHost", XString(kServer));
            mailMan.setProperty("ReadTimeout", XString(timeout));
            EXPECT_TRUE(mailMan.SendEmail(world.email));
            beforeNs = world.clock.nowNs;
        }
        EXPECT_EQ(world.clock.nowNs - beforeNs, waited * 1000000000ull) << timeout;
    }
}

}  // namespace
}  // namespace tv::test
