// Every byte, length, foreign message and cut of the handshakes against the scripted server, and
// what its rows cannot say.
#include "tests/unit/net/tls/peer/ScriptedTalk.h"

namespace tv::tls::test {
namespace {

const std::string kFlight12 = "Hello/Certificate/Exchange/Request/Done";
const std::string kFlight13 = "Hello/Extensions/Request/Certificate/Verify/Finished";

// Changes one message, the at-th time; how many changes of it there are.
using Change = std::function<size_t(size_t at, Item&, Items&)>;
using Judge = std::function<void(ScriptedTalk&, const std::string& step, size_t at)>;

void forEachChange(const std::string& words, const std::string& flight, const Change& change,
                   const Judge& judge) {
    for (const std::string& step : split(flight, '/')) {
        size_t count = 1;
        for (size_t at = 0; at < count; ++at) {
            SCOPED_TRACE(words + " " + step + " " + std::to_string(at));
            Ends ends = endsOf(words);
            ends.server.edits.emplace(step,
                                      [&](Item& m, Items& all) { count = change(at, m, all); });
            ScriptedTalk talk(ends);
            talk.pump();
            judge(talk, step, at);
        }
    }
}

TEST(ScriptedSweep, eachLengthOfEachMessageIsJudged) {
    size_t size = 0;
    const auto cut = [&](size_t at, Item& m, Items&) {
        size = m.flat().size();
        m.body.resize(at < size ? at : size + 1);
        return size + 1;
    };
    // A hello may end before its extensions. That is one of TLS 1.2, with a suite of TLS 1.3.
    forEachChange("asks12 noMaster noRenegotiationInfo", kFlight12 + "/Finished", cut,
                  [](ScriptedTalk& talk, const std::string& step, size_t kept) {
                      const bool whole = step == "Hello" && kept == 70;
                      EXPECT_EQ(talk.verdict(), whole ? "legal" : "decode error");
                  });
    forEachChange("asks13", kFlight13, cut,
                  [](ScriptedTalk& talk, const std::string& step, size_t kept) {
                      const bool of12 = step == "Hello" && kept == 70;
                      EXPECT_EQ(talk.verdict(), of12 ? "illegal parameter" : "decode error");
                  });
}

// A message of every type that has or could have a meaning, without a body, before each message:
// so none can be left out, come twice or elsewhere.
TEST(ScriptedSweep, foreignMessagesAreRefused) {
    bool own = false;  // the type is that of the message due
    const auto put = [&](size_t at, Item& m, Items& all) {
        const size_t type = at < 41 ? at : 213 + at;  // those between have no meaning
        own = m.record == kHandshake && m.type == type;
        all.insert(all.begin(), Item{static_cast<uint8_t>(type)});
        return 43;
    };
    forEachChange("asks12", kFlight12 + "/Ccs/Finished", put,
                  [&](ScriptedTalk& talk, const std::string& step, size_t type) {
                      // An own ServerHelloDone is right, and the one behind it comes too late. A
                      // HelloRequest is ignored, but not by this server's transcript.
                      std::string said =
                          own && step != "Done" ? "decode error" : "unexpected message";
                      if (type == 0) said = step == "Ccs" ? "decrypt error" : "server ends";
                      if (type == 0 && step == "Finished") said = "legal";
                      EXPECT_EQ(talk.verdict(), said);
                  });
    forEachChange("asks13", kFlight13, put,
                  [&](ScriptedTalk& talk, const std::string& step, size_t type) {
                      std::string said = "unexpected message";
                      if (own || (step == "Request" && type == 11)) said = "decode error";
                      // Before the version is known it is left out of the transcript.
                      if (step == "Hello" && type == 0) said = "bad record mac";
                      EXPECT_EQ(talk.verdict(), said);
                  });
}

// The server's transcript and signatures are those of the message as it was.
TEST(ScriptedSweep, noChangedByteOnTheWayIsBelieved) {
    const std::pair<const char*, std::string> rows[] = {
        {"asks12 noRehash", kFlight12 + "/Ccs/Finished"},
        {"asks13 noRehash", kFlight13},
        {"13 retry noRetryGroup cookie=010203 noRehash", "Retry/Hello"}};
    for (const auto& [words, flight] : rows) {
        size_t size = 0;
        const auto flip = [&](size_t at, Item& m, Items&) {
            size = m.flat().size();
            if (size) m.body[std::min(at, size - 1)] ^= static_cast<uint8_t>(1 << at % 8);
            return size;
        };
        forEachChange(words, flight, flip, [&](ScriptedTalk& talk, const std::string&, size_t) {
            EXPECT_EQ(talk.engine.isEstablished(), size == 0);
            EXPECT_TRUE(talk.engine.input().empty());
        });
    }
}

TEST(ScriptedSweep, piecesOfEverySizeMakeNoDifference) {
    for (const char* const words : {"asks12", "10", "asks13 retry noRetryGroup cookie=010203"}) {
        for (size_t chunk = 1; chunk < 100; ++chunk) {
            Ends ends = endsOf(words);
            ends.server.recordSize = 1 + chunk * 7 % 90;
            ScriptedTalk talk(ends);
            talk.pump(chunk);
            talk.server.setup.recordSize = 16384;
            EXPECT_EQ(talk.verdict(), "legal") << words << chunk << talk.logText();
        }
    }
}

TEST(ScriptedSweep, cutAnywhereNothingIsEstablished) {
    for (const char* const words : {"12", "13", "13 retry noRetryGroup cookie=010203"}) {
        const Ends ends = endsOf(words);
        ScriptedTalk whole(ends);
        ASSERT_TRUE(whole.pump().engine.isEstablished());
        // The flights of two connections differ by the length of a signature.
        for (size_t cut = 0; cut + 8 < whole.delivered; ++cut) {
            ScriptedTalk talk(ends);
            talk.pump(SIZE_MAX, cut);
            EXPECT_FALSE(talk.engine.isEstablished()) << words << cut;
            EXPECT_EQ(talk.engine.failure(), Cause::None) << words << cut;
        }
    }
}

// ---- what was said and in which records

// A connection that stands.
struct Standing : ScriptedTalk {
    explicit Standing(const Ends& ends) : ScriptedTalk(ends) {
        pump();
        EXPECT_TRUE(engine.isEstablished() && dataFlows()) << logText();
    }
    explicit Standing(const std::string& words) : Standing(endsOf(words)) {}
};

TEST(ScriptedTalk, recordSizeLimitIsKeptUntilTheNextHandshake) {
    for (const std::string limit : {"0040", "0200", "4000", "4001", "FFFF"}) {
        for (const bool is13 : {false, true}) {
            Ends ends = endsOf(is13 ? "13" : "12");
            ends.server.edits.emplace(is13 ? "Extensions" : "Hello", [=](Item& m, Items&) {
                std::erase_if(*m.exts, [](const Extension& e) { return e.type == 28; });
                m.exts->push_back({28, bytesFrom(limit)});
            });
            Standing talk(ends);
            auto& sizes = talk.server.recordSizes;
            // In TLS 1.3 the type counts.
            const size_t expected = std::min<size_t>(number(limit, 16) - is13, 16384);
            EXPECT_EQ(*std::ranges::max_element(sizes), expected) << limit;
            if (is13) continue;
            sizes.clear();
            talk.server.emit("HelloRequest");
            ASSERT_EQ(talk.pump().engine.failure(), Cause::None) << limit << talk.logText();
            EXPECT_TRUE(talk.dataFlows());
            EXPECT_EQ(*std::ranges::max_element(sizes), 16384u);
        }
    }
}

// What follows a chaining value that is known must not be chosen by anybody.
TEST(ScriptedTalk, firstByteGoesAloneInCbcRecordsOfTls10) {
    EXPECT_EQ(Standing("10").server.recordSizes.at(0), 1u);
    EXPECT_EQ(Standing("11").server.recordSizes.at(0), 16384u);
}

TEST(ScriptedTalk, secondHelloKeepsWhatItMustKeep) {
    for (const std::string asked : {"noRetryGroup", "group=24"}) {
        Standing talk("13 retry cookie=07*300 " + asked);
        Hello expected = talk.server.hellos.at(0);
        const Hello& second = talk.server.hellos.at(1);
        const Bytes& shares = *find(second.exts, 51);
        if (asked == "group=24") {
            EXPECT_EQ(shares.size(), 2u + 4u + 97u);
            EXPECT_EQ(bytesIn(View(shares).first(6)), bytesFrom("006500180061"));
            std::ranges::find(expected.exts, 51, &Extension::type)->body = shares;
        }
        expected.exts.push_back({44, bytesFrom("012c+07*300")});
        EXPECT_TRUE(second == expected) << asked;
    }
}

TEST(ScriptedTalk, nothingCountsBehindCloseNotify) {
    Standing talk("13");
    talk.engine.input().clear();
    talk.server.send(kAlert, bytesFrom("0100"));
    for (int i = 0; i < 4; ++i) {
        talk.server.send(kData, Bytes(16384));
    }
    talk.pump();
    EXPECT_TRUE(talk.engine.closeNotifyReceived()) << talk.logText();
    EXPECT_TRUE(talk.engine.input().empty());
    EXPECT_EQ(talk.engine.room().size(), RecordLayer::kReceiveSize);
}

TEST(ScriptedTalk, laterRequestIsAnsweredWhereItWasOffered) {
    Standing talk("13 laterRequests");
    talk.server.setup.edits.emplace("Request",
                                    [](Item& m, Items&) { m.body = bytesFrom("026964"); });
    talk.server.emit("Request");
    talk.pump();
    EXPECT_EQ(talk.verdict(), "legal") << talk.logText();
    EXPECT_EQ(talk.server.clientFinished, 2);
    EXPECT_EQ(talk.server.clientCertificate, bytesFrom("026964000000"));
}

TEST(ScriptedTalk, renegotiationNeedsItsExtension) {
    Standing talk("12 noRenegotiationInfo");
    talk.server.emit("HelloRequest");
    talk.pump();
    EXPECT_EQ(talk.server.alerts, std::vector{100});
    EXPECT_EQ(talk.server.hellos.size(), 1u);
    EXPECT_TRUE(talk.dataFlows());
}

TEST(ScriptedTalk, ticketOfAnotherHashIsLeftOutAfterARetry) {
    Standing talk("13 ticket resume forgotten suite=1302 retry group=24");
    EXPECT_TRUE(find(talk.server.hellos.at(0).exts, 41));
    EXPECT_FALSE(find(talk.server.hellos.at(1).exts, 41));
}

TEST(ScriptedTalk, ticketStandsLastAndCarriesItsAge) {
    Standing talk("13 ticket resume later=1234567");
    const Extension& last = talk.server.hellos.at(0).exts.back();
    EXPECT_EQ(last.type, 41);
    const Bytes identity = bytesFrom("000c+0006+7469636b6574+0012d68e");  // 1234567 + 7
    EXPECT_EQ(bytesIn(View(last.body).first(14)), identity);
}

TEST(ScriptedTalk, sessionKeepsItsAgeWhenItIsResumed) {
    Standing talk("cbc12 resume later=72000000");
    EXPECT_TRUE(talk.server.resumed);
    EXPECT_EQ(talk.engine.takeSession().value().receivedAtMs, talk.environment.nowMs - 72000000);
}

// The next hello has to stay within one record.
TEST(ScriptedTalk, ticketsOfNoLifetimeAndLongOnesAreNotKept) {
    const std::pair<const char*, bool> rows[] = {// lifetime, age_add, nonce, ticket
                                                 {"00000000000000070101+0006+07*6", false},
                                                 {"0000003c000000070101+0006+07*6", true},
                                                 {"0000003c000000070101+3800+07*14336", true},
                                                 {"0000003c000000070101+3801+07*14337", false}};
    for (const auto& [ticket, kept] : rows) {
        Ends ends = endsOf("13 ticket");
        ends.server.edits.emplace("Ticket",
                                  [text = ticket](Item& m, Items&) { m.body = bytesFrom(text); });
        ends.client.session = Standing(ends).engine.takeSession();
        EXPECT_EQ(ends.client.session.has_value(), kept) << ticket;
        ScriptedTalk later(ends);
        EXPECT_LE(later.engine.output().size(), kRecordHeaderSize + kMaxPlaintext);
    }
}

}  // namespace
}  // namespace tv::tls::test
