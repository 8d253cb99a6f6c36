// The published traces of RFC 8448 through our key schedule and records: every secret, key and
// record byte for byte.
#include <gtest/gtest.h>

#include "net/tls/HandshakeMessages.h"
#include "net/tls/KeySchedule13.h"
#include "tests/fixtures/HexBytes.h"
#include "tests/fixtures/Json.h"
#include "tests/fixtures/TestData.h"
#include "tests/unit/net/tls/TestEnvironment.h"

namespace tv::tls::test {
namespace {

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
    Bytes bytes(const std::string& name) const {
        return tv::test::bytesOfHex(GetParam()[name].text());
    }
    bool has(const std::string& name) const { return GetParam().has(name); }
    void expect(const std::string& name, View got) const {
        EXPECT_EQ(bytesIn(got), bytes(name)) << name;
    }
    // The cipher of a secret, whose key and IV are the trace's where it has them.
    std::unique_ptr<RecordCipher> cipherOf(const std::string& side, View secret) const {
        expect(side + "Traffic", secret);
        const RecordKeys keys = trafficKeys13(suite(), secret);
        if (has(side + "Key")) {
            expect(side + "Key", keys.key.bytes());
            expect(side + "Iv", keys.iv.bytes());
        }
        return makeRecordCipher(suite(), Version::Tls13, keys, {});
    }
    Record open(const char* name) {
        std::optional<Record> record;
        const Bytes arrived = bytes(name);
        std::ranges::copy(arrived, records.room().begin());
        records.arrived(arrived.size());
        EXPECT_EQ(records.next(record), Cause::None) << name;
        return record.value();
    }
    void expectSent(const char* name, ContentType type, View text) {
        ASSERT_TRUE(records.send(type, text));
        expect(name, records.outbox().bytes());
        records.outbox().clear();
    }
    SecureBuffer sharedSecret() const;
    void expectFlow(const HandshakeStage13& stage, Transcript& transcript);
    void expectData(View resumption);

    RecordLayer records;
};

SecureBuffer Rfc8448::sharedSecret() const {
    TestEnvironment random;
    random.nextRandom = bytes("clientPrivate");
    const auto share = makeKeyShare(static_cast<Group>(GetParam()["group"].number()),
                                    [&](std::span<uint8_t> out) { return random.random(out); });
    ClientHello offer;
    for (const int type : {51, 43, 41}) {
        offer.extensions.push_back({static_cast<ExtensionType>(type), {}});
    }
    const Bytes message = bytes("serverHello");
    ServerHello hello;
    int tooShort = 0;
    EXPECT_EQ(parseServerHello(View(message).subspan(4), offer, hello, tooShort), Cause::None);
    SecureBuffer shared;
    EXPECT_TRUE(share->derive(hello.extensions.keyShare, shared));
    expect("shared", shared.bytes());
    return shared;
}

// From the server's flight on.
void Rfc8448::expectFlow(const HandshakeStage13& stage, Transcript& transcript) {
    const SecureBuffer client = stage.clientTraffic(transcript.hash());
    transcript.add(open("serverFlight").plaintext);
    const Bytes hash = transcript.hash();
    const Bytes finished = handshakeMessage(HandshakeType::Finished,
                                            finishedMac13(suite().hash, client.bytes(), hash));
    expectSent("clientFlight", ContentType::Handshake, finished);
    transcript.add(finished);
    const MasterStage13 master = stage.master();
    records.protectReading(cipherOf("server", master.serverTraffic(hash).bytes()));
    records.protectWriting(cipherOf("client", master.clientTraffic(hash).bytes()));
    const SecureBuffer resumption = master.resumption(transcript.hash());
    expect("resumption", resumption.bytes());
    if (has("data")) expectData(resumption.bytes());
    const Bytes close = {1, 0};
    expectSent("clientClose", ContentType::Alert, close);
    EXPECT_EQ(bytesIn(open("serverClose").plaintext), close);
}

void Rfc8448::expectData(View resumption) {
    const Record ticketRecord = open("serverTicket");
    NewSessionTicket13 ticket;
    ASSERT_EQ(parseNewSessionTicket13(ticketRecord.plaintext.subspan(4), ticket), Cause::None);
    expect("ticketNonce", ticket.nonce);
    expect("ticketKey", ticketKey13(suite().hash, resumption, ticket.nonce).bytes());
    expectSent("clientData", ContentType::ApplicationData, bytes("data"));
    const Record data = open("serverData");
    expect("data", data.plaintext);
    // Nothing follows, and of what was decrypted nothing stays.
    std::optional<Record> more;
    EXPECT_EQ(records.next(more), Cause::None);
    EXPECT_FALSE(more);
    EXPECT_EQ(bytesIn(data.plaintext), Bytes(data.plaintext.size()));
}

// What follows the ServerHello of the resumed trace belongs to early data, which is not offered.
TEST_P(Rfc8448, secretsAndRecordsAreTheTraces) {
    const EarlyStage13 early(suite().hash, has("psk") ? bytes("psk") : Bytes{});
    if (has("psk")) {
        const SecureBuffer key = early.resumptionBinder();
        expect("binderKey", key.bytes());
        const auto hash = crypto::Hash::of(suite().hash, bytes("truncatedHello"));
        expect("binder", finishedMac13(suite().hash, key.bytes(), hash));
    }
    Transcript transcript;
    if (has("retry")) {
        transcript.add(bytes("firstHello"));
        transcript.restartForRetry(suite().hash);
        transcript.add(bytes("retry"));
    }
    transcript.add(bytes("clientHello"));
    transcript.add(bytes("serverHello"));
    transcript.settle(Version::Tls13, suite().hash);
    const HandshakeStage13 stage = early.handshake(sharedSecret().bytes());
    const Bytes hash = transcript.hash();
    records.setVersion(Version::Tls13);
    records.protectReading(cipherOf("serverHandshake", stage.serverTraffic(hash).bytes()));
    records.protectWriting(cipherOf("clientHandshake", stage.clientTraffic(hash).bytes()));
    EXPECT_EQ(has("clientFlight"), !has("psk"));
    if (has("clientFlight")) expectFlow(stage, transcript);
}

INSTANTIATE_TEST_SUITE_P(Trace, Rfc8448, testing::ValuesIn(traces()),
                         [](const auto& row) { return row.param["name"].text(); });

}  // namespace
}  // namespace tv::tls::test
