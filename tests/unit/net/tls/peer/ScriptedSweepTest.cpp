// Every byte, length, order and cut of the handshakes against the scripted server, and what its
// rows cannot say.
#include "tests/unit/net/tls/peer/ScriptedRow.h"

namespace tv::tls::test {
namespace {

using enum Step;

const std::vector<Step> kFlight12 = stepsOf("Hello/Certificate/Exchange/Request/Done");
const std::vector<Step> kWhole12 = stepsOf("Hello/Certificate/Exchange/Request/Done/Ccs/Finished");
const std::vector<Step> kFlight13 = stepsOf("Hello/Extensions/Request/Certificate/Verify/Finished");

// What becomes of a connection of which one message is changed.
std::string verdictOf(const std::string& words, Step step, const Edit& edit) {
    ServerSetup setup = endsOf(words).server;
    setup.edits.emplace(step, edit);
    return Talk(setup).pump().verdict();
}

// Each message cut to each length, and made longer by a byte.
void expectTruncations(const std::string& words, const std::vector<Step>& flight,
                       const std::function<const char*(Step, size_t kept, size_t size)>& expected) {
    for (const Step step : flight) {
        size_t size = 1;
        for (size_t keep = 0; keep < size + 1; ++keep) {
            const std::string said = verdictOf(words, step, [&](Item& m, Items&) {
                size = m.flat().body.size();
                m.body.resize(keep < size ? keep : size + 1);
            });
            EXPECT_EQ(said, expected(step, keep, size)) << nameOfStep(step) << " cut to " << keep;
        }
    }
}

TEST(ScriptedSweep, eachLengthOfEachMessageIsJudged) {
    const auto flight = stepsOf("Hello/Certificate/Exchange/Request/Done/Finished");
    expectTruncations(
        "asks12 noMaster noRenegotiationInfo", flight, [](Step step, size_t kept, size_t size) {
            // An empty block of extensions may be left out; ServerHelloDone is empty anyway.
            const bool legal =
                (step == ServerHello && kept == 70) || (step == ServerHelloDone && kept < size);
            return legal ? "legal" : "decode error";
        });
    expectTruncations("asks13", kFlight13, [](Step step, size_t kept, size_t) {
        // A hello that ends before its extensions is one of TLS 1.2 with a suite of TLS 1.3.
        return step == ServerHello && kept == 70 ? "illegal parameter" : "decode error";
    });
}

// Each message left out, sent twice, and moved to every other place.
void expectOrders(const char* words, const std::vector<Step>& flight) {
    const auto expectOrder = [&](const std::vector<Step>& order, const char* expected) {
        ServerSetup setup = endsOf(words).server;
        setup.flight = order;
        std::string names;
        for (const Step step : order) {
            names += nameOfStep(step) + " ";
        }
        EXPECT_EQ(Talk(setup).pump().verdict(), expected) << names;
    };
    for (size_t i = 0; i < flight.size(); ++i) {
        std::vector<Step> rest = flight;
        rest.erase(rest.begin() + static_cast<std::ptrdiff_t>(i));
        const bool last = i + 1 == flight.size(), optional = flight[i] == CertificateRequest;
        expectOrder(rest, last ? "silence" : optional ? "legal" : "unexpected message");
        for (size_t to = 0; to < flight.size(); ++to) {
            std::vector<Step> order = to == i ? flight : rest;
            order.insert(order.begin() + static_cast<std::ptrdiff_t>(to), flight[i]);
            expectOrder(order, "unexpected message");
        }
    }
}

TEST(ScriptedSweep, eachOtherOrderIsRefused) {
    expectOrders("12", kFlight12);
    expectOrders("13", kFlight13);
}

// A message of every type that has or could have a meaning, without a body, before each message;
// own: the type is that of the message due.
void expectForeign(const std::string& words, const std::vector<Step>& flight,
                   const std::function<const char*(Step, int type, bool own)>& expected) {
    for (const Step step : flight) {
        for (int type = 0; type < 256; type == 40 ? type = 254 : ++type) {
            bool own = false;
            const std::string said = verdictOf(words, step, [&](Item& m, Items& all) {
                own = m.record == 22 && m.type == type;
                all.insert(all.begin(), Item{})->type = static_cast<uint8_t>(type);
            });
            EXPECT_EQ(said, expected(step, type, own)) << nameOfStep(step) << " " << type;
        }
    }
}

TEST(ScriptedSweep, foreignMessagesAreRefused) {
    expectForeign("asks12", kWhole12, [](Step step, int type, bool own) {
        // An own ServerHelloDone is right, and the one behind it comes too late. A HelloRequest is
        // ignored, but not by this server's transcript.
        if (type == 0 && step == Finished) return "legal";
        if (type == 0) return step == ChangeCipherSpec ? "decrypt error" : "server ends";
        return own && step != ServerHelloDone ? "decode error" : "unexpected message";
    });
    expectForeign("asks13", kFlight13, [](Step step, int type, bool own) {
        if (own || (step == CertificateRequest && type == 11)) return "decode error";
        // A HelloRequest before the version is known is left out of the transcript.
        return step == ServerHello && type == 0 ? "bad record mac" : "unexpected message";
    });
}

// The server's transcript and signatures are those of the message as it was.
void expectNothingBelieved(const std::string& words, const std::vector<Step>& flight) {
    for (const Step step : flight) {
        size_t size = 1;
        for (size_t at = 0; at < size; ++at) {
            ServerSetup setup = endsOf(words).server;
            setup.rehash = false;
            setup.edits.emplace(step, [&](Item& m, Items&) {
                size = m.flat().body.size();
                if (size) m.body[std::min(at, size - 1)] ^= static_cast<uint8_t>(1 << at % 8);
            });
            Talk talk(setup);
            talk.pump();
            EXPECT_EQ(talk.engine.isEstablished(), size == 0) << nameOfStep(step) << " " << at;
            EXPECT_TRUE(talk.engine.input().empty());
        }
    }
}

TEST(ScriptedSweep, noChangedByteOnTheWayIsBelieved) {
    expectNothingBelieved("asks12", kWhole12);
    expectNothingBelieved("asks13", kFlight13);
    expectNothingBelieved("13 retry noRetryGroup cookie=010203", {HelloRetry, ServerHello});
}

TEST(ScriptedSweep, piecesOfEverySizeMakeNoDifference) {
    for (const char* const words : {"asks12", "10", "asks13 retry noRetryGroup cookie=010203"}) {
        for (size_t chunk = 1; chunk < 100; ++chunk) {
            ServerSetup setup = endsOf(words).server;
            setup.recordSize = 1 + chunk * 7 % 90;
            Talk talk(setup);
            talk.pump(chunk);
            talk.server.setup.recordSize = 16384;
            EXPECT_EQ(talk.verdict(), "legal") << words << chunk << talk.logText();
        }
    }
}

TEST(ScriptedSweep, cutAnywhereNothingIsEstablished) {
    for (const char* const words : {"12", "13", "13 retry noRetryGroup cookie=010203"}) {
        const ServerSetup setup = endsOf(words).server;
        Talk whole(setup);
        ASSERT_TRUE(whole.pump().engine.isEstablished());
        // The flights of two connections differ by the length of a signature.
        for (size_t cut = 0; cut + 8 < whole.delivered; ++cut) {
            Talk talk(setup);
            talk.pump(SIZE_MAX, cut);
            EXPECT_FALSE(talk.engine.isEstablished()) << words << cut;
            EXPECT_EQ(talk.engine.failure(), Cause::None) << words << cut;
        }
    }
}

// ---- what was said and in which records

TEST(ScriptedTalk, recordSizeLimitIsKeptUntilTheNextHandshake) {
    for (const std::string limit : {"0040", "0200", "4000", "4001", "FFFF"}) {
        const size_t number = std::stoul(limit, nullptr, 16);
        for (const bool is13 : {false, true}) {
            ServerSetup setup = endsOf(is13 ? "13" : "12").server;
            setup.edits.emplace(is13 ? EncryptedExtensions : ServerHello, [=](Item& m, Items&) {
                m.drop(28);
                m.exts->push_back({28, bytesFrom(limit)});
            });
            Talk talk(setup);
            auto& sizes = talk.server.recordSizes;
            ASSERT_EQ(talk.pump().verdict(), "legal") << limit;
            // In TLS 1.3 the type counts.
            EXPECT_EQ(*std::ranges::max_element(sizes), std::min<size_t>(number - is13, 16384));
            if (is13) continue;
            sizes.clear();
            talk.server.emit(HelloRequest);
            ASSERT_EQ(talk.pump().verdict(), "legal") << limit << talk.logText();
            EXPECT_EQ(*std::ranges::max_element(sizes), 16384u);
        }
    }
}

// What follows a chaining value that is known must not be chosen by anybody.
TEST(ScriptedTalk, firstByteGoesAloneInCbcRecordsOfTls10) {
    for (const bool is10 : {true, false}) {
        Talk talk(endsOf(is10 ? "10" : "11").server);
        ASSERT_EQ(talk.pump().verdict(), "legal");
        EXPECT_EQ(talk.server.recordSizes.at(0), is10 ? 1u : 16384u);
    }
}

TEST(ScriptedTalk, secondHelloKeepsWhatItMustKeep) {
    Talk talk(endsOf("13 retry group=24 cookie=07*300").server);
    ASSERT_EQ(talk.pump().verdict(), "legal") << talk.logText();
    const auto& first = talk.server.hellos.at(0);
    const auto& second = talk.server.hellos.at(1);
    EXPECT_EQ(first.random, second.random);
    EXPECT_EQ(first.sessionId, second.sessionId);
    EXPECT_EQ(first.suites, second.suites);
    std::vector<Extension> repeated = second.exts;
    std::erase_if(repeated, [](const Extension& e) { return e.type == 44; });
    ASSERT_EQ(first.exts.size(), repeated.size());
    for (size_t i = 0; i < repeated.size(); ++i) {
        EXPECT_EQ(first.exts[i].type, repeated[i].type);
        EXPECT_EQ(first.exts[i].body == repeated[i].body, repeated[i].type != 51);
    }
    EXPECT_EQ(second.find(44)->body, bytesFrom("012c+07*300"));
    const Bytes& shares = second.find(51)->body;
    EXPECT_EQ(shares.size(), 2u + 4u + 97u);
    EXPECT_EQ(Bytes(shares.begin(), shares.begin() + 6), bytesFrom("006500180061"));
    Talk same(endsOf("13 retry noRetryGroup cookie=07").server);  // which asks for no other share
    same.pump();
    EXPECT_EQ(same.server.hellos.at(0).find(51)->body, same.server.hellos.at(1).find(51)->body);
}

TEST(ScriptedTalk, nothingCountsBehindCloseNotify) {
    Talk talk({});
    talk.pump().server.send(21, bytesFrom("0100"));
    for (int i = 0; i < 4; ++i) {
        talk.server.send(23, Bytes(16384));
    }
    talk.pump();
    EXPECT_TRUE(talk.engine.closeNotifyReceived()) << talk.logText();
    EXPECT_TRUE(talk.engine.input().empty());
    EXPECT_EQ(talk.engine.room().size(), RecordLayer::kReceiveSize);
}

TEST(ScriptedTalk, laterRequestIsAnsweredWhereItWasOffered) {
    const Ends ends = endsOf("13 laterRequests");
    Talk talk(ends.server, ends.client);
    ASSERT_EQ(talk.pump().verdict(), "legal");
    talk.server.setup.edits.emplace(CertificateRequest,
                                    [](Item& m, Items&) { m.body = bytesFrom("026964"); });
    talk.server.emit(CertificateRequest);
    EXPECT_EQ(talk.pump().verdict(), "legal") << talk.logText();
    EXPECT_EQ(talk.server.clientFinished, 2);
    EXPECT_EQ(talk.server.clientCertificate, bytesFrom("026964000000"));
}

TEST(ScriptedTalk, renegotiationNeedsItsExtension) {
    for (const bool hasInfo : {true, false}) {
        Talk talk(endsOf(hasInfo ? "12" : "12 noRenegotiationInfo").server);
        ASSERT_EQ(talk.pump().verdict(), "legal");
        talk.server.emit(HelloRequest);
        talk.pump();
        EXPECT_EQ(talk.server.alerts, hasInfo ? std::vector<int>{} : std::vector<int>{100});
        ASSERT_EQ(talk.server.hellos.size(), hasInfo ? 2u : 1u);
        EXPECT_TRUE(talk.dataFlows());
        if (!hasInfo) continue;
        EXPECT_EQ(talk.server.hellos[1].find(0xFF01)->body.size(), 13u);
        EXPECT_TRUE(talk.server.hellos[1].sessionId.empty());
    }
}

}  // namespace
}  // namespace tv::tls::test
