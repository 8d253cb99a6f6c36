// What the log says about an alert, and about records that nothing can be made of.
#include <gtest/gtest.h>

#include "log/tvLogger.h"
#include "tests/fixtures/HexBytes.h"
#include "tests/unit/net/tls/TestEnvironment.h"

namespace tv::tls::test {
namespace {

// The log of a client whose hello is answered with these bytes.
std::string logOf(const std::string& hex, Cause expected) {
    TestEnvironment environment;
    TlsProtocol engine({}, environment);
    _tvLogger log;
    EXPECT_TRUE(engine.start(log));
    feed(engine, log, tv::test::bytesOfHex(hex));
    EXPECT_EQ(engine.failure(), expected) << hex;
    EXPECT_TRUE(engine.peerAlert() || expected != Cause::TlsPeerAlert);
    EXPECT_EQ(engine.room().size(), RecordLayer::kReceiveSize);
    std::string text;
    log.getText(text);
    return text;
}

void expectLine(const std::string& text, const std::string& words) {
    EXPECT_NE(text.find(" " + words + "\r\n"), std::string::npos) << words << "\n" << text;
}

TEST(TlsAlert, everyNumberHasItsWords) {
    const std::pair<const char*, const char*> rows[] = {
        {"0a", "unexpected message"},    {"14", "bad record mac"},
        {"15", "decryption failed"},     {"16", "record overflow"},
        {"1e", "decompression failure"}, {"28", "handshake failure"},
        {"2a", "bad certificate"},       {"2b", "unsupported certificate"},
        {"2c", "certificate revoked"},   {"2d", "certificate expired"},
        {"2e", "certificate unknown"},   {"2f", "illegal parameter"},
        {"31", "access denied"},         {"30", "unknown certificate authority"},
        {"32", "decode error"},          {"33", "decrypt error"},
        {"3c", "export restriction"},    {"46", "protocol version"},
        {"47", "insufficient security"}, {"50", "internal error"},
        {"5a", "user canceled"},         {"64", "no renegotiation"},
        {"70", "SNI unrecognized name"}, {"00", "close notify"},
    };
    for (const auto& [number, words] : rows) {
        const std::string text = logOf(std::string("1503010002 02") + number, Cause::TlsPeerAlert);
        expectLine(text, "TlsAlert:");
        expectLine(text, "level: fatal");
        expectLine(text, std::string("descrip: ") + words);
        expectLine(text, "Aborting handshake because of fatal alert.");
        expectLine(text, "Closing connection in response to fatal SSL/TLS alert.");
    }
    expectLine(logOf("1503010002 0170", Cause::None), "level: warning");
}

TEST(TlsAlert, otherAnswersAreNamed) {
    const struct {
        std::string bytes;
        Cause failure;
        const char* words;
    } rows[] = {
        {"1403010001 02", Cause::TlsUnexpectedCcs,
         "Sending fatal alert because we received a ChangeCipherSpec before more handshake "
         "messages.."},
        {"3232302072656164790d0a", Cause::TlsRecordType,
         "The peer does not speak TLS on this connection (bad record type)."},
        {"1602000005 0102030405", Cause::TlsRecordVersion,
         "The peer does not speak TLS on this connection (bad record version)."},
        {"1603014001" + std::string(40000, '0'), Cause::TlsRecordOverflow,
         "A received record is too long."},
        {"1603010004 02000000", Cause::TlsServerHelloTooShort, "ServerHello too short (1)"},
        {"1603010004 0b000000", Cause::TlsUnexpectedMessage,
         "Received a handshake message that is not allowed at this point."},
    };
    for (const auto& row : rows) {
        expectLine(logOf(row.bytes, row.failure), row.words);
    }
}

}  // namespace
}  // namespace tv::tls::test
