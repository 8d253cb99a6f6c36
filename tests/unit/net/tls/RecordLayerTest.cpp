// The room for a whole read: it is there whatever has come before.
#include "net/tls/RecordLayer.h"

#include <gtest/gtest.h>

#include "log/LogNull.h"
#include "tests/unit/net/tls/TestEnvironment.h"

namespace tv::tls::test {
namespace {

// All but the last byte of a record with a body of this size.
std::vector<uint8_t> unfinished(ContentType type, size_t body) {
    std::vector<uint8_t> bytes(kRecordHeaderSize + body - 1);
    const uint8_t header[] = {static_cast<uint8_t>(type), 3, 3, static_cast<uint8_t>(body >> 8),
                              static_cast<uint8_t>(body)};
    std::copy(std::begin(header), std::end(header), bytes.begin());
    return bytes;
}

TEST(RecordLayer, RoomBehindTheLongestRecord) {
    const CipherSuite& suite = *findCipherSuite(0x009C);  // TLS_RSA_WITH_AES_128_GCM_SHA256
    const RecordKeys keys{{}, SecureBuffer(suite.keySize), SecureBuffer(suite.fixedIvSize)};
    RecordLayer records;
    records.setVersion(Version::Tls12);
    records.protectReading(makeRecordCipher(suite, Version::Tls12, keys, {}));
    const std::vector<uint8_t> longest = unfinished(ContentType::ApplicationData, kMaxCiphertext12);
    for (std::span<const uint8_t> left = longest; !left.empty();) {
        const size_t size = std::min(left.size(), RecordLayer::kReceiveSize);
        ASSERT_EQ(records.room().size(), RecordLayer::kReceiveSize);
        std::copy_n(left.begin(), size, records.room().begin());
        records.arrived(size);
        left = left.subspan(size);
        std::optional<Record> record;
        ASSERT_EQ(records.next(record), Cause::None);
        ASSERT_FALSE(record);
    }
    EXPECT_EQ(records.room().size(), RecordLayer::kReceiveSize);
}

TEST(RecordLayer, RoomAfterAFailure) {
    TestEnvironment environment;
    TlsProtocol engine({}, environment);
    LogNull log;
    ASSERT_TRUE(engine.start(log));
    feed(engine, log, unfinished(ContentType::Handshake, kMaxPlaintext));
    ASSERT_EQ(engine.failure(), Cause::None);
    feed(engine, log, std::vector<uint8_t>(RecordLayer::kReceiveSize));
    ASSERT_NE(engine.failure(), Cause::None);
    EXPECT_EQ(engine.room().size(), RecordLayer::kReceiveSize);
}

}  // namespace
}  // namespace tv::tls::test
