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
ticket.dropped | 13 ticket resume suite=1302 retry group=24 | Hello add 41 0000
    | unsupported extension
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

offer.atOnce | {13 ticket,12} resume | | resumed | Session contains valid info...
offer.beforeItsEnd | {13 ticket resume later=3599999,12 resume later=86399999} | | resumed
offer.atItsEnd | {13 ticket resume later=3600000,12 resume later=86400000}
    | | legal | Session ticket is too old.
offer.days | 13 ticket resume lifetime=16777216 later=604799999 | | resumed
offer.sevenDays | 13 ticket resume lifetime=16777216 later=604800000
    | | legal | Session ticket is too old.
offer.future | {13 ticket,12} resume later=-1
    | | legal | Session ticket arrived after the current time.
offer.verified | {13 ticket,12} resume verify verified=1 | | resumed
offer.verifiedLongAgo | {13 ticket,12} resume verify verified=0
    | | legal | The certificate of the session has to be verified again.
offer.noReuse | {13 ticket,12} resume noReuse | | legal | !Session
offer.not13 | 13 ticket resume 12 noTicket forgotten {highest=0303,disable13} | | legal | !Session
offer.only13 | 12 resume 13 lowest=0304 forgotten | | legal | !Session
offer.ticketSecret | 13 ticket resume lostSecret
    | | legal | Missing the TLS 1.3 resumption secret...
offer.ticket | 13 ticket resume lostId | | legal | Missing the TLS 1.3 session ticket...
offer.secret | 12 resume lostSecret | | legal | masterSecret is empty.
offer.id | 12 resume lostId | | legal | sessionId is empty.
)";

INSTANTIATE_TEST_SUITE_P(Sessions, ScriptedResumption, testing::ValuesIn(rowsOf(kResumptions)),
                         nameOf);

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
