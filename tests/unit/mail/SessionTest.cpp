// What dialogues as data cannot say: the bytes of TLS hellos, identifiers, the good-bye of a mail
// manager.
#include "tests/unit/mail/MailWorld.h"

namespace tv::test {
namespace {

// Nobody answers the hello: everything is said again, the second hello is without TLS 1.3.
TEST(StartTls, anUnansweredHelloIsRepeatedWithoutTls13) {
    constexpr std::string_view kSupportedVersions("\x00\x2b\x00\x09\x08\x03\x04", 7);
    constexpr std::string_view kFallback("\x56\x00\x01\x00", 4);
    for (const char* verified : {"0", "1"}) {
        MailWorld world({{"StartTLS", "1"}, {"RequireSslCertVerify", verified}});
        world.compose();
        const FakeLink& first = world.serve("open; 'STARTTLS' 220 go !close");
        const FakeLink& second = world.serve("open; 'STARTTLS' 220 go !close");
        EXPECT_FALSE(world.send());
        EXPECT_TRUE(contains(world.logText(), "server hello.  Retry without TLS 1.3"));
        EXPECT_TRUE(contains(first.fromClient, kSupportedVersions));
        EXPECT_FALSE(contains(first.fromClient, kFallback));
        EXPECT_TRUE(contains(second.fromClient, "STARTTLS\r\n\x16\x03"));
        EXPECT_FALSE(contains(second.fromClient, kSupportedVersions));
        EXPECT_EQ(contains(second.fromClient, kFallback), *verified == '1');
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
        Turns turns = script("to-text; quit");
        turns.back().dripMs = 900;
        world.serve(turns);
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
