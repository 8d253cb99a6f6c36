// Sessions against the scripted server: when they are offered, and what comes of it.
#include "tests/unit/net/tls/peer/ScriptedRow.h"

namespace tv::tls::test {
namespace {

class ScriptedResumption : public testing::TestWithParam<Row> {};

TEST_P(ScriptedResumption, endsAsItsRowSays) {
    expectVerdict(GetParam());
}

const char* const kResumptions = R"(
ticket | 13 ticket resume {,noShare,retry group=24,retry noRetryGroup cookie=09} | | resumed
ticket.sameHash | 13 ticket resume sessionSuite=1303 | | resumed
ticket.forgotten | 13 ticket resume {forgotten,12 forgotten noTicket} | | legal
ticket.otherHash | 13 ticket resume suite=1302 | | illegal parameter
ticket.dropped | 13 ticket resume suite=1302 retry group=24 | | unsupported extension
ticket.index | 13 ticket resume | Hello in 41 set 0001 | illegal parameter
ticket.indexSize | 13 ticket resume | Hello in 41 set {00,000000} | decode error
ticket.inRetry | 13 ticket resume retry group=24 | Retry add 41 0000 | illegal parameter
ticket.inExtensions | 13 ticket resume | Extensions add 41 0000 | illegal parameter
ticket.unsaid | 13 ticket resume | Hello drop 41 | bad record mac
ticket.early | 13 ticket resume flight=Hello/Extensions/{Certificate,Request} | | unexpected message
ticket.compatibility | 13 ticket {resume,} 12 forgotten noTicket echo | | illegal parameter

id | {cbc12,cbc12 noMaster,12,11,10} resume | | resumed
id.forgotten | cbc12 resume forgotten | | legal
id.masterGone | cbc12 resume | Hello drop 23 | handshake failure
id.masterNew | cbc12 noMaster resume master | | handshake failure
id.suite | cbc12 resume | Hello {at 68 2B,at 1 02} | illegal parameter
id.early | cbc12 resume flight=Hello/{Finished,Certificate} | | unexpected message
id.finished | cbc12 resume | Finished xor 11 01 | decrypt error
id.leftover | cbc12 resume | Finished tail 00000000 | unexpected message
id.again | cbc12 resume | emit HelloRequest | legal
id.againOtherwise | cbc12 resume again | Certificate xor -1 01; emit HelloRequest | bad certificate
)";

INSTANTIATE_TEST_SUITE_P(Sessions, ScriptedResumption, testing::ValuesIn(rowsOf(kResumptions)),
                         nameOf);

// What is offered; in place of the verdict the words of the log.
class ScriptedOffer : public testing::TestWithParam<Row> {};

const char* const kOffers = R"(
atOnce | {13 ticket,12} resume | | Session contains valid info...
ticket.beforeItsEnd | 13 ticket resume later=3599999 | | Session contains valid info...
ticket.atItsEnd | 13 ticket resume later=3600000 | | Session ticket is too old.
ticket.days | 13 ticket resume lifetime=16777216 later=604799999 | | Session contains valid info...
ticket.sevenDays | 13 ticket resume lifetime=16777216 later=604800000 | | Session ticket is too old.
ticket.lostSecret | 13 ticket resume lostSecret | | Missing the TLS 1.3 resumption secret...
ticket.noTicket | 13 ticket resume lostId | | Missing the TLS 1.3 session ticket...
future | {13 ticket,12} resume later=-1 | | Session ticket arrived after the current time.
verified | {13 ticket,12} resume verify verified=1 | | Session contains valid info...
verifiedLongAgo | {13 ticket,12} resume verify verified=0
    | | The certificate of the session has to be verified again.
unwanted | {13 ticket resume highest=0303,13 ticket resume disable13,12 resume lowest=0304} | |
noReuse | {13 ticket,12} resume noReuse | |
id.beforeOneDay | 12 resume later=86399999 | | Session contains valid info...
id.oneDay | 12 resume later=86400000 | | Session ticket is too old.
id.lostSecret | 12 resume lostSecret | | masterSecret is empty.
id.lostId | 12 resume lostId | | sessionId is empty.
)";

TEST_P(ScriptedOffer, isOfUsableSessionsAlone) {
    const Row& row = GetParam();
    const Ends ends = endsOf(row.setup);
    Talk talk(ends.server, ends.client);
    talk.pump();
    const auto& hello = talk.server.hellos.at(0);
    const bool is13 = ends.server.version == 0x0304;
    EXPECT_EQ(is13 ? hello.find(41) != nullptr : hello.sessionId == ends.server.sessionId,
              row.verdict == "Session contains valid info...");
    EXPECT_NE(talk.logText().find(row.verdict), std::string::npos) << talk.logText();
}

INSTANTIATE_TEST_SUITE_P(Sessions, ScriptedOffer, testing::ValuesIn(rowsOf(kOffers)), nameOf);

TEST(ScriptedSession, ticketOfAnotherHashIsLeftOutAfterARetry) {
    const Ends ends = endsOf("13 ticket resume forgotten suite=1302 retry group=24");
    Talk talk(ends.server, ends.client);
    ASSERT_EQ(talk.pump().verdict(), "legal") << talk.logText();
    EXPECT_TRUE(talk.server.hellos[0].find(41));
    EXPECT_FALSE(talk.server.hellos[1].find(41));
}

TEST(ScriptedSession, ticketStandsLastAndCarriesItsAge) {
    const Ends ends = endsOf("13 ticket resume later=1234567");
    Talk talk(ends.server, ends.client);
    const Extension& last = talk.pump().server.hellos.at(0).exts.back();
    EXPECT_EQ(last.type, 41);
    const Bytes identity = {0, 12, 0, 6, 't', 'i', 'c', 'k', 'e', 't', 0, 0x12, 0xD6, 0x8E};
    EXPECT_EQ(Bytes(last.body.begin(), last.body.begin() + 14), identity);  // 1234567 + 7
}

TEST(ScriptedSession, keepsItsAgeWhenItIsResumed) {
    const Ends ends = endsOf("cbc12 resume later=72000000");
    Talk talk(ends.server, ends.client);
    ASSERT_EQ(talk.pump().verdict(), "resumed");
    EXPECT_EQ(talk.engine.takeSession().value().receivedAtMs, talk.environment.nowMs - 72000000);
}

// The next hello has to stay within one record.
TEST(ScriptedSession, isNotKeptFromTicketsOfNoLifetimeAndLongOnes) {
    const struct {
        const char* ticket;  // lifetime, age_add, nonce, ticket
        bool kept;
    } rows[] = {{"00000000000000070101+0006+07*6", false},
                {"0000003c000000070101+0006+07*6", true},
                {"0000003c000000070101+3800+07*14336", true},
                {"0000003c000000070101+3801+07*14337", false}};
    for (const auto& row : rows) {
        Ends ends = endsOf("13 ticket");
        ends.server.edits.emplace(Step::NewSessionTicket,
                                  [&](Item& m, Items&) { m.body = bytesFrom(row.ticket); });
        Talk talk(ends.server);
        ASSERT_EQ(talk.pump().verdict(), "legal") << talk.logText();
        ends.client.session = talk.engine.takeSession();
        ASSERT_EQ(ends.client.session.has_value(), row.kept) << row.ticket;
        Talk later(ends.server, ends.client);
        EXPECT_LE(later.engine.output().size(), kRecordHeaderSize + kMaxPlaintext);
    }
}

}  // namespace
}  // namespace tv::tls::test
