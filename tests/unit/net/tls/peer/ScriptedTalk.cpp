#include "tests/unit/net/tls/peer/ScriptedTalk.h"

namespace tv::tls::test {
namespace {

ServerSetup prepared(Prepare prepare) {
    ServerSetup setup;
    prepare(setup);
    return setup;
}

std::string nameOf(Step step) {
    static const char* const names[] = {
        "HelloRetry",         "ServerHello",      "EncryptedExtensions",
        "CertificateRequest", "Certificate",      "CertificateStatus",
        "CertificateVerify",  "ServerKeyParams",  "ServerKeyExchange",
        "ServerHelloDone",    "NewSessionTicket", "ChangeCipherSpec",
        "Finished",           "HelloRequest",     "KeyUpdate"};
    return names[static_cast<size_t>(step)];
}

// step: the message that was changed, where it is one. From the ServerHello of TLS 1.3 on alerts
// are protected (RFC 8446, 6).
void expectVerdict(const ServerSetup& setup, Alert expected, const std::string& words,
                   const TlsSettings& settings = namedSettings(), Step step = Step::ServerHello) {
    Talk talk(setup, settings);
    EXPECT_EQ(wordOf(talk.pump().verdict()), wordOf(expected)) << words << "\n" << talk.logText();
    const bool mustHide = setup.version == 0x0304 && step > Step::ServerHello;
    EXPECT_TRUE(!mustHide || talk.server.clearAlerts == 0) << words;
}

}  // namespace

void expectRow(const Row& row, const TlsSettings& settings) {
    ServerSetup setup = prepared(row.prepare);
    if (row.edit) setup.edits.emplace(row.step, row.edit);
    expectVerdict(setup, row.expected, row.name, settings, row.step);
}

void expectFlips(const FlipRow& row) {
    for (size_t at = row.from; at < row.to; ++at) {
        for (const uint8_t mask : row.masks) {
            ServerSetup setup = prepared(row.prepare);
            setup.edits.emplace(row.step, [=](Item& m, Items&) {
                Bytes& body = m.flat().body;  // the length of a signature varies
                body[std::min(at, body.size() - 1)] ^= mask;
            });
            expectVerdict(
                setup, row.expected,
                row.name + (" byte " + std::to_string(at)) + " mask " + std::to_string(mask),
                namedSettings(), row.step);
        }
    }
}

void expectPost(const PostRow& row, Prepare prepare) {
    Talk talk(prepared(prepare));
    ASSERT_EQ(talk.pump().verdict(), kLegal) << talk.logText();
    talk.engine.input().clear();
    row.act(talk.server);
    EXPECT_EQ(wordOf(talk.pump().verdict()), wordOf(row.expected)) << row.name << talk.logText();
    // Behind our close_notify it is answered by nothing.
    Talk closing(prepared(prepare));
    closing.pump().engine.sendCloseNotify();
    closing.pump();
    row.act(closing.server);
    EXPECT_FALSE(closing.pump().serverGaveUp) << row.name << closing.serverWords;
}

void expectTruncations(Prepare prepare, const std::vector<Step>& flight,
                       const std::function<Alert(Step, size_t, size_t)>& expected) {
    for (const Step step : flight) {
        size_t size = 1;
        for (size_t keep = 0; keep < size + 1; ++keep) {
            ServerSetup setup = prepared(prepare);
            setup.edits.emplace(step, [&](Item& m, Items&) {
                size = m.flat().body.size();
                m.body.resize(keep < size ? keep : size + 1);
            });
            Talk talk(setup);
            talk.pump();
            EXPECT_EQ(wordOf(talk.verdict()), wordOf(expected(step, keep, size)))
                << nameOf(step) << " cut to " << keep << talk.logText();
        }
    }
}

void expectOrders(Prepare prepare, const std::vector<Step>& flight, Step optional) {
    const auto expectOrder = [&](const std::vector<Step>& order, Alert expected) {
        ServerSetup setup = prepared(prepare);
        setup.flight = order;
        std::string words;
        for (const Step step : order) {
            words += nameOf(step) + " ";
        }
        expectVerdict(setup, expected, words);
    };
    for (size_t i = 0; i < flight.size(); ++i) {
        std::vector<Step> order = flight;
        order.insert(order.begin() + static_cast<std::ptrdiff_t>(i), flight[i]);
        expectOrder(order, Alert::UnexpectedMessage);
        std::vector<Step> rest = flight;
        rest.erase(rest.begin() + static_cast<std::ptrdiff_t>(i));
        const bool last = i + 1 == flight.size();
        expectOrder(rest, last                    ? kSilence
                          : flight[i] == optional ? kLegal
                                                  : Alert::UnexpectedMessage);
        for (size_t to = 0; to < flight.size(); ++to) {
            order = rest;
            order.insert(order.begin() + static_cast<std::ptrdiff_t>(to), flight[i]);
            if (to != i) expectOrder(order, Alert::UnexpectedMessage);
        }
    }
}

void expectForeign(Prepare prepare, const std::vector<Step>& flight,
                   const std::function<Alert(Step, int, bool)>& expected) {
    for (const Step step : flight) {
        for (int type = 0; type < 256; type == 40 ? type = 254 : ++type) {
            ServerSetup setup = prepared(prepare);
            bool own = false;
            setup.edits.emplace(step, [&](Item& m, Items& all) {
                own = m.record == 22 && m.type == type;
                Item foreign;
                foreign.type = static_cast<uint8_t>(type);
                before(all, foreign);
            });
            Talk talk(setup);
            talk.pump();
            EXPECT_EQ(wordOf(talk.verdict()), wordOf(expected(step, type, own)))
                << nameOf(step) << " " << type << talk.logText();
        }
    }
}

void expectNothingBelieved(Prepare prepare, const std::vector<Step>& flight) {
    for (const Step step : flight) {
        size_t size = 1;
        for (size_t at = 0; at < size; ++at) {
            ServerSetup setup = prepared(prepare);
            setup.rehash = false;
            setup.edits.emplace(step, [&](Item& m, Items&) {
                size = m.flat().body.size();
                if (size) m.body[std::min(at, size - 1)] ^= static_cast<uint8_t>(1 << at % 8);
            });
            Talk talk(setup);
            talk.pump();
            const bool unchanged = size == 0;
            EXPECT_EQ(talk.engine.isEstablished(), unchanged) << nameOf(step) << " byte " << at;
            EXPECT_TRUE(talk.engine.input().empty());
        }
    }
}

void expectPieces(Prepare prepare) {
    for (size_t chunk = 1; chunk < 100; ++chunk) {
        ServerSetup setup = prepared(prepare);
        setup.recordSize = 1 + chunk * 7 % 90;
        Talk talk(setup);
        talk.pump(chunk);
        talk.server.setup.recordSize = 16384;
        EXPECT_EQ(wordOf(talk.verdict()), "legal") << chunk << talk.logText();
    }
}

void expectCuts(Prepare prepare) {
    const ServerSetup setup = prepared(prepare);
    Talk whole(setup);
    whole.pump();
    ASSERT_TRUE(whole.engine.isEstablished());
    // The flights of two connections differ by the length of a signature.
    for (size_t cut = 0; cut + 8 < whole.delivered; ++cut) {
        Talk talk(setup);
        talk.pump(SIZE_MAX, cut);
        EXPECT_FALSE(talk.engine.isEstablished()) << cut;
        EXPECT_EQ(talk.engine.failure(), Cause::None) << cut;
    }
}

}  // namespace tv::tls::test
