// The published traces of RFC 8448 through our key schedule, record cipher and handshake: every
// secret, key and record byte for byte. The hellos are the traces' own, so the handshake is entered
// behind them.
#include <gtest/gtest.h>

#include "base/Hex.h"
#include "log/LogNull.h"
#include "net/tls/ClientHandshake13.h"
#include "tests/fixtures/HexBytes.h"
#include "tests/fixtures/Json.h"
#include "tests/fixtures/TestData.h"
#include "tests/unit/net/tls/TestEnvironment.h"

namespace tv::tls::test {
namespace {

using Bytes = std::vector<uint8_t>;
using tv::test::bytesOfHex;
using tv::test::Json;

// A missing file ends the program: no trace must not look like every trace passed.
std::vector<Json> traces() {
    return Json::load(testDataPath("tls/rfc8448.json")).value()["traces"].items();
}

const CipherSuite& suite() {
    return *findCipherSuite(0x1301);
}

class Rfc8448 : public testing::TestWithParam<Json> {
protected:
    Bytes bytes(const char* name) const { return bytesOfHex(GetParam()[name].text()); }
    void expect(const char* name, std::span<const uint8_t> got) const {
        EXPECT_EQ(hexLower(got), GetParam()[name].text()) << name;
    }
    bool has(const char* name) const { return GetParam().has(name); }

    // The transcript through the ServerHello.
    void addHellos(Transcript& transcript) const {
        if (has("retry")) {
            transcript.add(bytes("firstHello"));
            transcript.restartForRetry(suite().hash);
            transcript.add(bytes("retry"));
        }
        transcript.add(bytes("clientHello"));
        transcript.add(bytes("serverHello"));
        transcript.settle(Version::Tls13, suite().hash);
    }
    std::unique_ptr<KeyShare> clientShare() {
        environment.nextRandom = bytes("clientPrivate");
        return makeKeyShare(static_cast<Group>(GetParam()["group"].number()),
                            [this](std::span<uint8_t> out) { return environment.random(out); });
    }
    ServerHello serverHello() const {
        ServerHello hello;
        int tooShort = 0;
        EXPECT_EQ(parseServerHello(std::span(message_).subspan(4), offer(), hello, tooShort),
                  Cause::None);
        return hello;
    }
    static ClientHello offer() {
        ClientHello hello;
        for (const int type : {0, 10, 51, 43, 28, 41}) {
            hello.extensions.push_back({static_cast<ExtensionType>(type), {}});
        }
        return hello;
    }
    Record open(const char* name) {
        std::optional<Record> record;
        const Bytes arrived = bytes(name);
        std::ranges::copy(arrived, records.room().begin());
        records.arrived(arrived.size());
        EXPECT_EQ(records.next(record), Cause::None) << name;
        return record.value();
    }
    void expectSent(const char* name) {
        expect(name, records.outbox().bytes());
        records.outbox().clear();
    }
    void expectSecrets();
    void expectFlow();
    void expectData(const TrafficSecrets13& secrets);

    TestEnvironment environment;
    LogNull log;
    RecordLayer records;

private:
    const Bytes message_ = bytes("serverHello");
};

void Rfc8448::expectSecrets() {
    SecureBuffer shared;
    ASSERT_TRUE(clientShare()->derive(serverHello().extensions.keyShare, shared));
    expect("shared", shared.bytes());
    const EarlyStage13 early(suite().hash, has("psk") ? bytes("psk") : Bytes{});
    if (has("psk")) {
        const SecureBuffer key = early.resumptionBinder();
        expect("binderKey", key.bytes());
        const auto hash = crypto::Hash::of(suite().hash, bytes("truncatedHello"));
        expect("binder", finishedMac13(suite().hash, key.bytes(), hash));
    }
    Transcript transcript;
    addHellos(transcript);
    const HandshakeStage13 stage = early.handshake(shared.bytes());
    const SecureBuffer client = stage.clientTraffic(transcript.hash());
    const SecureBuffer server = stage.serverTraffic(transcript.hash());
    expect("clientHandshakeTraffic", client.bytes());
    expect("serverHandshakeTraffic", server.bytes());
    const RecordKeys clientKeys = trafficKeys13(suite(), client.bytes());
    const RecordKeys serverKeys = trafficKeys13(suite(), server.bytes());
    expect("clientHandshakeKey", clientKeys.key.bytes());
    expect("clientHandshakeIv", clientKeys.iv.bytes());
    expect("serverHandshakeKey", serverKeys.key.bytes());
    expect("serverHandshakeIv", serverKeys.iv.bytes());
}

void Rfc8448::expectData(const TrafficSecrets13& secrets) {
    const Record ticketRecord = open("serverTicket");
    NewSessionTicket13 ticket;
    ASSERT_EQ(parseNewSessionTicket13(ticketRecord.plaintext.subspan(4), ticket), Cause::None);
    expect("ticketNonce", ticket.nonce);
    expect("ticketKey",
           ticketKey13(suite().hash, secrets.resumption.bytes(), ticket.nonce).bytes());
    ASSERT_TRUE(records.send(ContentType::ApplicationData, bytes("data")));
    expectSent("clientData");
    const Record data = open("serverData");
    expect("data", data.plaintext);
    // Nothing follows, and of what was decrypted nothing stays.
    std::optional<Record> more;
    EXPECT_EQ(records.next(more), Cause::None);
    EXPECT_FALSE(more);
    EXPECT_EQ(hexLower(data.plaintext), std::string(2 * data.plaintext.size(), '0'));
}

void Rfc8448::expectFlow() {
    TlsSettings settings;
    Handshake shared{settings, environment, records, {}, offer(), {}, false, false, {}, {}, {}};
    shared.shares.push_back(clientShare());
    addHellos(shared.transcript);
    shared.result.version = Version::Tls13;
    shared.result.suite = &suite();
    records.setVersion(Version::Tls13);
    ClientHandshake13 flow(shared);
    ASSERT_EQ(flow.begin(log, serverHello()), Cause::None);
    const Record flight = open("serverFlight");
    HandshakeReader reader;
    reader.append(flight.plaintext);
    HandshakeMessage message{};
    while (reader.next(message) == HandshakeReader::Result::Message) {
        ASSERT_TRUE(flow.next().allows(message.type));
        ASSERT_EQ(flow.onMessage(log, message, reader.atBoundary()), Cause::None);
    }
    ASSERT_TRUE(flow.done());
    expectSent("clientFlight");

    const TrafficSecrets13 secrets = flow.takeSecrets();
    expect("clientTraffic", secrets.client.bytes());
    expect("serverTraffic", secrets.server.bytes());
    expect("resumption", secrets.resumption.bytes());
    if (has("data")) expectData(secrets);
    const uint8_t close[] = {1, 0};
    ASSERT_TRUE(records.send(ContentType::Alert, close));
    expectSent("clientClose");
    EXPECT_EQ(hexLower(open("serverClose").plaintext), hexLower(close));
}

// What follows the ServerHello of the resumed trace belongs to early data, which is not offered.
TEST_P(Rfc8448, secretsAndRecordsAreTheTraces) {
    expectSecrets();
    EXPECT_EQ(has("clientFlight"), !has("psk"));
    if (has("clientFlight")) expectFlow();
}

INSTANTIATE_TEST_SUITE_P(Trace, Rfc8448, testing::ValuesIn(traces()),
                         [](const auto& row) { return row.param["name"].text(); });

}  // namespace
}  // namespace tv::tls::test
