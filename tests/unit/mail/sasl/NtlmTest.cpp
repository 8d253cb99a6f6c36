// NTLM against the example values that MS-NLMP publishes in section 4.2, and against messages that
// are none.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/Base64.h"
#include "base/Hex.h"
#include "log/tvLogger.h"
#include "mail/sasl/ClsNtlm.h"
#include "mail/sasl/NtlmResponse.h"
#include "mail/sasl/NtlmText.h"
#include "platform/SysVersion.h"
#include "tests/fixtures/FakeSystem.h"
#include "tests/fixtures/HexBytes.h"
#include "tests/fixtures/Record.h"
#include "tests/fixtures/TestData.h"

namespace tv::test {
namespace {

using Bytes = std::vector<uint8_t>;

const Bytes kServerChallenge = bytesOfHex("0123456789abcdef");
const Bytes kClientChallenge = bytesOfHex("aaaaaaaaaaaaaaaa");
const ntlm::Secret kSecret = {"User", "Password", "Domain", 437};

// "Domain" and "Server" as names of domain and computer.
const char* const kTargetInfo =
    "02000c0044006f006d00610069006e00 01000c005300650072007600650072000000 0000";

std::string hex(const SecureBuffer& bytes) {
    return hexLower(bytes.bytes());
}
std::string hexOf(const char* text) {
    return hexLower(bytesOfHex(text));
}

TEST(NtlmPublished, hashes) {
    EXPECT_EQ(hex(ntlm::ntHash("Password")), "a4f49c406510bdcab6824ee7c30fd852");
    EXPECT_EQ(hex(ntlm::lmHash("Password", 437)), "e52cac67419a9a224a3b108f3fa6cb6d");
    EXPECT_EQ(hex(ntlm::ntowfV2("User", "Password", "Domain")), "0c868a403bfd7a93a3001ef22ef02e3f");
}

TEST(NtlmPublished, responses) {
    const auto v1 =
        ntlm::computeNtlmV1Response(kSecret, 0xe2028233, kServerChallenge, kClientChallenge);
    EXPECT_EQ(hex(v1.nt), "67c43011f30298a2ad35ece64f16331c44bdbed927841f94");
    EXPECT_EQ(hex(v1.lm), "98def7b87f88aa5dafe2df779688a172def11c7d5ccdef13");

    const auto ntOnly =
        ntlm::computeNtlmV1Response(kSecret, ntlm::kNtOnly, kServerChallenge, kClientChallenge);
    EXPECT_EQ(hex(ntOnly.nt), hex(v1.nt));
    EXPECT_EQ(hex(ntOnly.lm), hex(v1.nt));

    const auto session =
        ntlm::computeNtlmV1Response(kSecret, 0x820a8233, kServerChallenge, kClientChallenge);
    EXPECT_EQ(hex(session.nt), "7537f803ae367128ca458204bde7caf81e97ed2683267232");
    EXPECT_EQ(hex(session.lm), "aaaaaaaaaaaaaaaa00000000000000000000000000000000");

    const auto v2 = ntlm::computeNtlmV2Response(kSecret, kServerChallenge, kClientChallenge, 0,
                                                bytesOfHex(kTargetInfo));
    EXPECT_EQ(hex(v2.lm), "86c35097ac9cec102554764a57cccc19aaaaaaaaaaaaaaaa");
    EXPECT_EQ(hex(v2.nt),
              hexOf("68cd0ab851e51c96aabc927bebef6a1c"
                    "0101000000000000 0000000000000000 aaaaaaaaaaaaaaaa 00000000"
                    "02000c0044006f006d00610069006e00 01000c00530065007200760065007200 00000000"
                    "00000000"));
}

// The messages of one kind from the file: version 1, version 1 with client challenge, version 2.
std::vector<Bytes> messagesOf(const std::string& kind) {
    const std::string text = fileText(testDataPath("mail/ntlm.txt"));
    std::vector<Bytes> messages;
    for (size_t at = 0; (at = text.find("\n" + kind + " ", at)) != std::string::npos;) {
        at += kind.size() + 2;
        messages.push_back(bytesOfHex(text.substr(at, text.find('\n', at) - at)));
    }
    EXPECT_EQ(messages.size(), 3u);
    return messages;
}
const std::vector<Bytes> kChallenges = messagesOf("challenge");
const std::vector<Bytes> kAuthenticates = messagesOf("authenticate");

TEST(NtlmPublished, messagesDecodeAndEncode) {
    for (const Bytes& bytes : kChallenges) {
        NtlmChallenge message;
        ASSERT_EQ(message.decode(bytes), NtlmDefect::None);
        EXPECT_EQ(Bytes(message.challenge.begin(), message.challenge.end()), kServerChallenge);
        EXPECT_EQ(message.targetName, bytesOfHex("530065007200760065007200"));
        EXPECT_EQ(message.version, (NtlmOsVersion{6, 0, 6000, 15}));
        EXPECT_EQ(message.encode(), bytes);
        const NtlmTargetNames names = ntlmTargetNames(message.targetInfo);
        EXPECT_EQ(names.nbComputer, message.targetInfo.empty() ? "" : "Server");
        EXPECT_EQ(names.nbDomain, message.targetInfo.empty() ? "" : "Domain");
    }
    for (const Bytes& bytes : kAuthenticates) {
        NtlmAuthenticate message;
        ASSERT_EQ(message.decode(bytes), NtlmDefect::None);
        EXPECT_EQ(hex(message.userName), hexOf("5500730065007200"));
        EXPECT_EQ(message.version, (NtlmOsVersion{5, 1, 2600, 15}));
        const auto again = message.encode();
        ASSERT_TRUE(again);
        EXPECT_EQ(hex(*again), hexLower(bytes));
    }
}

struct NtlmWorld {
    FakeClock clock;
    FakeRandom random{kClientChallenge};
    FakeHost host{"COMPUTER"};
    ClsNtlm ntlm;
    _tvLogger log;
    Recorded recorded{log};

    NtlmWorld() {
        clock.fileTime = 0;
        ntlm.put_UserName(XString("User"));
        ntlm.put_Password(XString("Password"));
        ntlm.put_Domain(XString("Domain"));
        ntlm.put_Workstation(XString("COMPUTER"));
        ntlm.put_NtlmVersion(2);
    }
    std::string answer(const Bytes& type2) {
        SecureBuffer out;
        if (!ntlm.genType3(log, base64Encode(type2), out)) return "failed";
        const std::string_view text(reinterpret_cast<const char*>(out.data()), out.size());
        return hexLower(*base64Decode(text, 65536));
    }
    std::string logText() {
        std::string out;
        log.getText(out);
        return out;
    }
};

// The published messages but for the session key, which mail does not use, and the version.
TEST(ClsNtlm, answersThePublishedChallenge) {
    for (const int version : {1, 2}) {
        NtlmWorld world;
        world.ntlm.put_NtlmVersion(version);
        world.ntlm.put_Flags(0xe2888235);
        NtlmAuthenticate wanted;
        wanted.decode(kAuthenticates[static_cast<size_t>(version)]);
        wanted.sessionKey.reset();
        wanted.flags = 0xe2888235 & (version == 1 ? 0x820a8233 : 0xe28a8233);
        const plat::SystemVersion running = plat::systemVersion();
        wanted.version = {running.major, running.minor, running.build, 15};
        EXPECT_EQ(world.answer(kChallenges[static_cast<size_t>(version)]), hex(*wanted.encode()));
        const std::string log = world.logText();
        for (const char* entry :
             {"genType3:", "TargetName: Server", "Adding version structure to TYPE3 message.",
              "ntlmDomain: Domain", "ntlmUsername: User", "workstation: COMPUTER",
              "Generating random client challenge.", "ClientChallenge: AAAAAAAAAAAAAAAA",
              "LmResponse: {PasswordOrCredentials}", "NtResponse: {PasswordOrCredentials}"}) {
            EXPECT_NE(log.find(entry), std::string::npos) << entry << "\n" << log;
        }
        EXPECT_NE(log.find("NtlmVersion: " + std::to_string(version)), std::string::npos);
        EXPECT_NE(log.find("ntlmVersion" + std::to_string(version) + ":"), std::string::npos);
    }
}

TEST(ClsNtlm, type1) {
    const struct {
        const char* domain;
        const char* workstation;
        uint32_t flags;
        const char* wanted;
    } rows[] = {
        {"", "", 0x88207, "4e544c4d5353500001000000 07820800 0000000000000000 0000000000000000"},
        {"Dom", "", 0x88207,
         "4e544c4d5353500001000000 07920800 0300030020000000 0000000000000000 446f6d"},
        {"", "PC", 0x88207,
         "4e544c4d5353500001000000 07a20800 0000000000000000 0200020020000000 5043"},
        // the OEM code page, and capitals only where the caller wrote them
        {"Käse", "pc", 0x88207,
         "4e544c4d5353500001000000 07b20800 0400040020000000 0200020024000000 4b847365 7063"},
        {"", "", 0x3000, "4e544c4d5353500001000000 00000000 0000000000000000 0000000000000000"},
    };
    for (const auto& row : rows) {
        NtlmWorld world;
        world.ntlm.put_Domain(XString(row.domain));
        world.ntlm.put_Workstation(XString(row.workstation));
        world.ntlm.put_Flags(row.flags);
        std::string out;
        ASSERT_TRUE(world.ntlm.genType1(world.log, out));
        const auto bytes = base64Decode(out, 1000);
        ASSERT_TRUE(bytes);
        EXPECT_EQ(hexLower(*bytes), hexOf(row.wanted));
        NtlmNegotiate read;
        EXPECT_EQ(read.decode(*bytes), NtlmDefect::None);
        EXPECT_EQ(*read.encode(), *bytes);
    }
    NtlmWorld versioned;
    versioned.ntlm.put_Flags(ntlm::kVersion);
    std::string out;
    ASSERT_TRUE(versioned.ntlm.genType1(versioned.log, out));
    NtlmNegotiate read;
    ASSERT_EQ(read.decode(*base64Decode(out, 1000)), NtlmDefect::None);
    EXPECT_EQ(read.version.major, plat::systemVersion().major);
    EXPECT_EQ(read.domain, bytesOf("Domain"));
    EXPECT_NE(versioned.logText().find("t1_flags: 0x02003000"), std::string::npos);

    NtlmWorld tooLong;
    tooLong.ntlm.put_Domain(XString(std::string(65536, 'x')));
    EXPECT_FALSE(tooLong.ntlm.genType1(tooLong.log, out));
}

TEST(ClsNtlm, oemServerGetsOemText) {
    NtlmWorld world;
    world.ntlm.put_UserName(XString("Jürgen"));
    world.ntlm.put_ClientChallenge(bytesOfHex("0011223344556677"));
    NtlmChallenge challenge;
    challenge.flags = ntlm::kOem | ntlm::kNtlm;
    challenge.targetName = bytesOf("S\x84rver");
    NtlmAuthenticate read;
    ASSERT_EQ(read.decode(bytesOfHex(world.answer(*challenge.encode()))), NtlmDefect::None);
    EXPECT_EQ(hex(read.userName), hexLower(bytesOf("J\x81rgen")));
    EXPECT_EQ(hex(read.domain), hexLower(bytesOf("Domain")));
    EXPECT_EQ(read.flags, ntlm::kOem | ntlm::kNtlm);
    EXPECT_FALSE(read.sessionKey);
    EXPECT_EQ(hexLower(read.lmResponse.bytes().subspan(16)), "0011223344556677");
    EXPECT_NE(world.logText().find("Using pre-set client challenge."), std::string::npos);
    EXPECT_NE(world.logText().find("TargetName: Särver"), std::string::npos);
}

TEST(ClsNtlm, failsWithoutRandom) {
    NtlmWorld world;
    world.random.failAfter = 4;
    EXPECT_EQ(world.answer(kChallenges[2]), "failed");
    EXPECT_NE(world.logText().find("The system's random source failed."), std::string::npos);
    world.ntlm.put_ClientChallenge(kServerChallenge);
    EXPECT_NE(world.answer(kChallenges[2]), "failed");
}

// A whole Type 2 with the numbers at the offset replaced.
Bytes patched(size_t offset, const char* digits) {
    Bytes message = kChallenges[2];
    const Bytes bytes = bytesOfHex(digits);
    std::copy(bytes.begin(), bytes.end(), message.begin() + static_cast<std::ptrdiff_t>(offset));
    return message;
}
Bytes cut(size_t size) {
    Bytes message = kChallenges[2];
    message.resize(size);
    return message;
}

TEST(ClsNtlm, type2FromBadServers) {
    const char* const good = "";
    const char* const name = "Failed to get target name from TYPE2 message.";
    const char* const info = "Failed to get target info data from TYPE2 message.";
    const struct {
        const char* what;
        Bytes message;
        const char* logged;
    } rows[] = {
        {"nothing", {}, "Expected TYPE2 message to begin with NTLMSSP."},
        {"another signature", patched(6, "51"), "Expected TYPE2 message to begin with NTLMSSP."},
        {"no NUL behind it", patched(7, "20"), good},
        {"type 1", patched(8, "01"), "TYPE2 message type not equal to 2"},
        {"type 258", patched(9, "01"), "TYPE2 message type not equal to 2"},
        {"signature alone", cut(7), "TYPE2 message type not equal to 2"},
        {"header alone", cut(12), good},
        {"half a challenge", cut(28), name},
        {"name ends at the end", patched(12, "0c000c005c000000"), good},
        {"name ends behind the end", patched(12, "0c000c005d000000"), name},
        {"name at 4 GiB", patched(12, "ffffffffffffffff"), name},
        {"name wraps around", patched(12, "ffffffff01ffffff"), name},
        {"name in the padding", patched(12, "0800080068000000"), name},
        {"no name, far away", patched(12, "00000000ffffffff"), name},
        {"no name, behind the end", patched(12, "0000000070000000"), good},
        {"info ends behind the end", patched(40, "2400240045000000"), info},
        {"info at 4 GiB", patched(40, "0100010000000080"), info},
        {"info too long", patched(40, "ffff240044000000"), info},
        {"no info", patched(40, "0000000000000000"), good},
        {"a pair too long", patched(70, "ff7f"), good},
        {"pairs without an end", patched(100, "05000000"), good},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        NtlmWorld world;
        const std::string answer = world.answer(row.message);
        const std::string log = world.logText();
        if (row.logged == good) {
            NtlmAuthenticate read;
            EXPECT_EQ(read.decode(bytesOfHex(answer)), NtlmDefect::None) << log;
        } else {
            EXPECT_EQ(answer, "failed");
            EXPECT_NE(log.find(row.logged), std::string::npos) << log;
            EXPECT_NE(log.find("Failed to decode TYPE2 input message."), std::string::npos);
        }
    }
}

TEST(ClsNtlm, type2ThatDoesNotFit) {
    NtlmWorld world;
    SecureBuffer out;
    for (const char* text : {"!", "TlRM", "TlRMTVNTUAA", "=", "TlRMTVNTUAACAAAA=AAA"}) {
        EXPECT_FALSE(world.ntlm.genType3(world.log, text, out)) << text;
    }
    // Target information that leaves no room for the response around it.
    NtlmChallenge challenge;
    challenge.targetInfo.assign(65500, 0x41);
    EXPECT_EQ(world.answer(*challenge.encode()), "failed");
    EXPECT_NE(world.logText().find("longer than 65535 bytes"), std::string::npos);
    challenge.targetInfo.assign(65000, 0x41);
    EXPECT_NE(world.answer(*challenge.encode()), "failed");
    EXPECT_FALSE(world.ntlm.genType3(world.log, std::string(100000, 'A'), out));
}

TEST(NtlmMessages, type3ThatIsNone) {
    NtlmAuthenticate read;
    EXPECT_EQ(read.decode({}), NtlmDefect::Signature);
    EXPECT_EQ(read.decode(kChallenges[0]), NtlmDefect::Type);
    const Bytes whole = kAuthenticates[2];
    for (size_t size = 0; size < whole.size(); ++size) {
        EXPECT_NE(read.decode(std::span(whole).first(size)), NtlmDefect::None) << size;
    }
}

TEST(NtlmText, capitals) {
    const struct {
        const char* given;
        const char* wanted;
    } rows[] = {
        {"User_1{|}~@", "USER_1{|}~@"},
        {"árvíztűrő tükörfúrógép", "ÁRVÍZTŰRŐ TÜKÖRFÚRÓGÉP"},
        {"ß÷ÿžŁłșț", "ß÷ŸŽŁŁȘȚ"},
        {"κωδικός ήώ", "ΚΩΔΙΚΌΣ ΉΏ"},
        {"пароль ёї", "ПАРОЛЬ ЁЇ"},
        {"ạựỹ", "ẠỰỸ"},
        {"字a😀", "字A😀"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(hex(ntlm::upperUtf16Le(row.given)), hex(ntlm::utf16Le(row.wanted))) << row.given;
    }
    EXPECT_EQ(hex(ntlm::upperOemText(852, "tűr")), hexLower(bytesOf("T\xEBR")));
    EXPECT_EQ(hex(ntlm::upperOemText(437, "tűr")), hexLower(bytesOf("T?R")));
    // What follows the fourteenth character does not count.
    EXPECT_EQ(hex(ntlm::lmHash("abcdefghijklmnop", 437)), hex(ntlm::lmHash("ABCDEFGHIJKLMN", 437)));
}

}  // namespace
}  // namespace tv::test
