// NTLM against the example values that MS-NLMP publishes in section 4.2, and against messages that
// are none.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "base/Base64.h"
#include "base/Hex.h"
#include "base/crypto/Rc4.h"
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

const Bytes kClientChallenge = bytesOfHex("aaaaaaaaaaaaaaaa");

std::string hex(const SecureBuffer& bytes) {
    return hexLower(bytes.bytes());
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

TEST(NtlmPublished, messagesAndResponses) {
    const ntlm::Secret secret = {"User", "Password", "Domain", 437};
    for (size_t i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        NtlmChallenge challenge;
        ASSERT_EQ(challenge.decode(kChallenges[i]), NtlmDefect::None);
        EXPECT_EQ(challenge.encode(), kChallenges[i]);
        const NtlmTargetNames names = ntlmTargetNames(challenge.targetInfo);
        EXPECT_EQ(names.nbComputer, i < 2 ? "" : "Server");
        EXPECT_EQ(names.nbDomain, i < 2 ? "" : "Domain");

        const ntlm::Challenge& server = challenge.challenge;
        NtlmAuthenticate message;
        ASSERT_EQ(message.decode(kAuthenticates[i]), NtlmDefect::None);
        EXPECT_EQ(hex(*message.encode()), hexLower(kAuthenticates[i]));
        const auto response =
            i == 2 ? ntlm::computeNtlmV2Response(secret, server, kClientChallenge, 0,
                                                 challenge.targetInfo)
                   : ntlm::computeNtlmV1Response(secret, challenge.flags, server, kClientChallenge);
        EXPECT_EQ(hex(response.nt), hex(message.ntResponse));
        EXPECT_EQ(hex(response.lm), hex(message.lmResponse));
        if (i == 2) {  // the published random session key under the key exchange key
            SecureBuffer sessionKey = *message.sessionKey;
            crypto::Rc4(response.sessionBaseKey.bytes()).apply(sessionKey.bytes());
            EXPECT_EQ(hex(sessionKey), std::string(32, '5'));
        }
        const auto ntOnly =
            ntlm::computeNtlmV1Response(secret, ntlm::kNtOnly, server, kClientChallenge);
        EXPECT_EQ(hex(ntOnly.lm), hex(ntOnly.nt));
        EXPECT_EQ(hex(ntOnly.nt) == hex(message.ntResponse), i == 0);
    }
    // What follows the fourteenth character does not count.
    EXPECT_EQ(hex(ntlm::lmHash("abcdefghijklmnopqrstu", 437)),
              hex(ntlm::lmHash("ABCDEFGHIJKLMN", 437)));
}

struct NtlmWorld {
    FakeClock clock;
    FakeRandom random{kClientChallenge};
    FakeHost host{"COMPUTER"};
    ClsNtlm ntlm;
    _tvLogger log;
    Recorded recorded{log};

    explicit NtlmWorld(const char* domain = "Domain", const char* workstation = "COMPUTER") {
        clock.fileTime = 0;
        ntlm.put_UserName(XString("User"));
        ntlm.put_Password(XString("Password"));
        ntlm.put_Domain(XString(domain));
        ntlm.put_Workstation(XString(workstation));
        ntlm.put_NtlmVersion(2);
    }
    std::string answer(const Bytes& type2) {
        SecureBuffer out;
        if (!ntlm.genType3(log, base64Encode(type2), out)) return "failed";
        const std::string_view text(reinterpret_cast<const char*>(out.data()), out.size());
        return hexLower(*base64Decode(text, 65536));
    }
    void expectLogged(std::initializer_list<std::string> entries) {
        std::string text;
        log.getText(text);
        for (const std::string& entry : entries)
            EXPECT_NE(text.find(entry), std::string::npos) << entry << "\n" << text;
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
        world.expectLogged({"TargetName: Server", "Adding version structure to TYPE3 message.",
                            "ClientChallenge: AAAAAAAAAAAAAAAA",
                            "ntlmVersion" + std::to_string(version) + ":"});
    }
}

// A hash of a certificate, and what Microsoft's protocol team published of it.
const std::string kEndPoint =
    "tls-server-end-point:"
    "\xEA\x05\xFE\xFE\xCC\x6B\x0B\xD5\x71\xDB\xBC\x5B\xAA\x3E\xD4\x53\x86\xD0\x44\x68\x35\xF7\xB7"
    "\x4C"
    "\x85\x62\x1B\x99\x83\x47\x5F\x95";
const std::string kBinding = "0a001000 6586e99d81c2fc984e47172fd4dd0310 00000000";

TEST(ClsNtlm, boundAnswers) {
    const struct {
        const char* what;
        std::string info, kept;  // pairs of the challenge, and what is left of them
        const char* flags = "02000000";
        const char* time = "0000000000000000";
    } rows[] = {
        {"no pairs", "", ""},
        {"names and time", "01000200 4100 07000800 0102030405060708 00000000",
         "01000200 4100 07000800 0102030405060708", "02000000", "0102030405060708"},
        {"a time of four bytes", "07000400 01020304 00000000", "07000400 01020304"},
        {"the server's flags", "06000400 05000000 00000000", "", "07000000"},
        {"flags of two bytes", "06000200 0500 00000000", ""},
        {"bindings of somebody else",
         "0a001000 ffffffffffffffffffffffffffffffff 01000200 4100 0a000000 00000000",
         "01000200 4100"},
        {"bindings behind the end", "00000000 0a001000 ffffffffffffffffffffffffffffffff", ""},
        {"a pair that is too long", "01000200 4100 0a00ff00 ff", "01000200 4100"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        NtlmWorld world;
        world.ntlm.put_Flags(0x40088207);  // would exchange a key, has no version
        world.ntlm.put_ChannelBinding(bytesOf(kEndPoint));
        NtlmChallenge challenge;
        challenge.flags = 0xffffffff;
        challenge.targetInfo = bytesOfHex(row.info);
        const Bytes bytes = bytesOfHex(world.answer(*challenge.encode()));
        NtlmAuthenticate read;
        ASSERT_EQ(read.decode(bytes), NtlmDefect::None);
        EXPECT_EQ(read.flags, 0x88207u);
        EXPECT_EQ(bytes[32], 88) << "where the domain begins, behind the MIC";
        const std::string response = hex(read.ntResponse);
        EXPECT_EQ(response.substr(48, 16), row.time);
        EXPECT_EQ(response.substr(88),
                  hexLower(bytesOfHex(row.kept + "06000400" + row.flags + kBinding + "00000000")));
        const bool told = std::string(row.time) != "0000000000000000";
        EXPECT_EQ(hex(read.lmResponse) == std::string(48, '0'), told);
    }
}

TEST(ClsNtlm, type1) {
    const struct {
        const char* domain;
        const char* workstation;
        uint32_t flags;
        const char* wanted;  // behind signature and type
    } rows[] = {
        {"", "", 0x88207, "07820800 0000000000000000 0000000000000000"},
        {"", "PC", 0x88207, "07a20800 0000000000000000 0200020020000000 5043"},
        // the OEM code page, and capitals only where the caller wrote them
        {"Käse", "pc", 0x88207, "07b20800 0400040020000000 0200020024000000 4b847365 7063"},
        {"", "", 0x3000, "00000000 0000000000000000 0000000000000000"},
    };
    std::string out;
    NtlmNegotiate read;
    for (const auto& row : rows) {
        NtlmWorld world(row.domain, row.workstation);
        world.ntlm.put_Flags(row.flags);
        ASSERT_TRUE(world.ntlm.genType1(world.log, out));
        const auto bytes = base64Decode(out, 1000);
        EXPECT_EQ(*bytes, bytesOfHex(std::string("4e544c4d5353500001000000") + row.wanted));
        EXPECT_EQ(read.decode(*bytes), NtlmDefect::None);
        EXPECT_EQ(*read.encode(), *bytes);
    }
    NtlmWorld versioned;
    versioned.ntlm.put_Flags(ntlm::kVersion);
    ASSERT_TRUE(versioned.ntlm.genType1(versioned.log, out));
    ASSERT_EQ(read.decode(*base64Decode(out, 1000)), NtlmDefect::None);
    EXPECT_EQ(read.version.major, plat::systemVersion().major);
    versioned.expectLogged({"t1_flags: 0x02003000"});
    NtlmWorld tooLong(std::string(65536, 'x').c_str());
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
    world.expectLogged({"Using pre-set client challenge.", "TargetName: Särver"});
}

TEST(ClsNtlm, failsWithoutRandom) {
    NtlmWorld world;
    world.random.failAfter = 4;
    EXPECT_EQ(world.answer(kChallenges[2]), "failed");
    world.expectLogged({"The system's random source failed."});
}

TEST(ClsNtlm, type2FromBadServers) {
    const char* const good = "";
    const char* const signature = "Expected TYPE2 message to begin with NTLMSSP.";
    const char* const type = "TYPE2 message type not equal to 2";
    const char* const name = "Failed to get target name from TYPE2 message.";
    const char* const info = "Failed to get target info data from TYPE2 message.";
    const struct {
        const char* what;
        size_t at;           // of a whole message, what stands there is replaced
        const char* digits;  // or it ends there
        const char* logged;
    } rows[] = {
        {"nothing", 0, "", signature},
        {"another signature", 6, "51", signature},
        {"no NUL behind it", 7, "20", good},
        {"type 1", 8, "01", type},
        {"type 258", 9, "01", type},
        {"signature alone", 7, "", type},
        {"header alone", 12, "", good},
        {"half a challenge", 28, "", name},
        {"name ends at the end", 12, "0c000c005c000000", good},
        {"name ends behind the end", 12, "0c000c005d000000", name},
        {"name wraps around", 12, "ffffffff0100ffff", name},
        {"no name, far away", 12, "00000000ffffffff", name},
        {"no name, behind the end", 12, "0000000070000000", good},
        {"info ends behind the end", 40, "2400240045000000", info},
        {"no info", 40, "0000000000000000", good},
        {"a pair too long", 70, "ff7f", good},
        {"pairs without an end", 100, "05000000", good},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Bytes message = kChallenges[2];
        const Bytes bytes = bytesOfHex(row.digits);
        if (bytes.empty()) message.resize(row.at);
        std::copy(bytes.begin(), bytes.end(), &message[0] + (bytes.empty() ? 0 : row.at));
        NtlmWorld world;
        const std::string answer = world.answer(message);
        NtlmAuthenticate read;
        EXPECT_EQ(answer == "failed", row.logged != good);
        if (row.logged == good) {
            EXPECT_EQ(read.decode(bytesOfHex(answer)), NtlmDefect::None);
        } else {
            world.expectLogged({row.logged, "Failed to decode TYPE2 input message."});
        }
    }
}

TEST(ClsNtlm, type2ThatDoesNotFit) {
    NtlmWorld world;
    SecureBuffer out;
    for (const std::string& text : {std::string("!"), std::string(100000, 'A')})
        EXPECT_FALSE(world.ntlm.genType3(world.log, text, out)) << text;
    // Target information that leaves no room for the response around it.
    NtlmChallenge challenge;
    challenge.targetInfo.assign(65500, 0x41);
    EXPECT_EQ(world.answer(*challenge.encode()), "failed");
    world.expectLogged({"longer than 65535 bytes"});
    challenge.targetInfo.assign(65000, 0x41);
    EXPECT_NE(world.answer(*challenge.encode()), "failed");
}

TEST(NtlmMessages, type3ThatIsNone) {
    NtlmAuthenticate read;
    EXPECT_EQ(read.decode({}), NtlmDefect::Signature);
    EXPECT_EQ(read.decode(kChallenges[0]), NtlmDefect::Type);
    for (size_t size = 0; size < kAuthenticates[2].size(); ++size)
        EXPECT_NE(read.decode(std::span(kAuthenticates[2]).first(size)), NtlmDefect::None) << size;
}

TEST(NtlmText, capitals) {
    const std::pair<const char*, const char*> rows[] = {
        {"User_1{|}~@", "USER_1{|}~@"},
        // what begins and ends each range of letters
        {"àöøþÿāįĳķĺňŋŷźžơ", "ÀÖØÞŸĀĮĲĶĹŇŊŶŹŽƠ"},
        {"ƥưǎǜǟǯǹȟȣȳάέίαρς", "ƤƯǍǛǞǮǸȞȢȲΆΈΊΑΡΣ"},
        {"σϋόύώаяѐџѡҁҋҿӂӎӏӑԯաֆḁẕ",
         "ΣΫΌΎΏАЯЀЏѠҀҊҾӁӍӀӐԮԱՖḀẔ"},
        {"字a😀ß÷ạỿ", "字A😀ß÷ẠỾ"},
    };
    for (const auto& [given, wanted] : rows)
        EXPECT_EQ(hex(ntlm::upperUtf16Le(given)), hex(ntlm::utf16Le(wanted))) << given;
    EXPECT_EQ(hex(ntlm::upperOemText(852, "tűr")), hexLower(bytesOf("T\xEBR")));
    EXPECT_EQ(hex(ntlm::upperOemText(437, "tűr")), hexLower(bytesOf("T?R")));
}

}  // namespace
}  // namespace tv::test
