// What a system's services share: addresses as text, an account as one line, the time as Windows
// counts it; and the paths that Windows takes.
#include <gtest/gtest.h>

#include <chrono>
#include <sstream>

#include "platform/IpAddress.h"
#include "platform/SysClock.h"
#include "platform/SysDialog.h"
#include "platform/SysFile.h"
#include "platform/SysHost.h"
#include "tests/fixtures/TestBytes.h"

#ifdef _WIN32
#include "src/platform/win32/WidePath.h"
#else
#include <arpa/inet.h>
#endif

namespace tv::plat {
namespace {

TEST(IpAddress, readsAndWrites) {
    std::istringstream good(
        "127.0.0.1 255.255.255.255 0.0.0.0 ::1 :: 1:: 2001:db8:0:1:1:1:1:1 ::ffff:10.0.0.1 "
        "1:2:3:4:5:6:7:8 1:0:0:2::3 64:ff9b::102:304 fe80::1%3");
    for (std::string same; good >> same;) {
        const auto address = parseIp(same);
        ASSERT_TRUE(address) << same;
        EXPECT_EQ(toText(*address), same);
    }
    std::istringstream bad(
        "256.0.0.1 1.2.3 1.2.3.4.5 1..3.4 0001.2.3.4 mail.example fe80::1%eth0 fe80::1% 12345:: "
        "1:2:3:4:5:6:7 1:2:3:4:5:6:7:8:9 1:2:3:4:5:6:7::8 1::2::3 ::: :1 1: 1.2.3.4:: [::1] "
        "1:2:3:4:5:6:7:1.2.3.4");
    for (std::string none; bad >> none;) {
        EXPECT_FALSE(parseIp(none)) << none;
    }
    EXPECT_FALSE(parseIp("") || parseIp("1.2.3.4 "));
}

#ifndef _WIN32
// The system's own functions judge a few ten thousand texts that are addresses or nearly so.
TEST(IpAddress, agreesWithTheSystem) {
    std::mt19937 random(7);
    const std::string alphabet = "0123456789abcF:::...";
    for (int i = 0; i < 60000; ++i) {
        uint8_t expected[16];
        char written[64];
        std::string text = test::randomText(random() % 16, alphabet, uint32_t(i));
        if (i % 3 == 0) {
            IpAddress address{AddressFamily::IPv6, {}, 0};
            for (uint8_t& byte : address.bytes) {
                byte = random() % 2 ? 0 : static_cast<uint8_t>(random());
            }
            text = inet_ntop(AF_INET6, address.bytes.data(), written, sizeof written);
            // The C library also writes the long deprecated dotted form of ::/96.
            const bool isDotted = text.find('.') != text.npos && !text.starts_with("::ffff:");
            EXPECT_TRUE(isDotted || toText(address) == text) << text;
            if (random() % 2) text[random() % text.size()] = alphabet[random() % alphabet.size()];
        }
        const auto ipv6 = parseIpv6(text), ipv4 = parseIpv4(text);
        ASSERT_EQ(ipv6.has_value(), inet_pton(AF_INET6, text.c_str(), expected) == 1) << text;
        EXPECT_TRUE(!ipv6 || std::equal(expected, expected + 16, ipv6->bytes.begin())) << text;
        // Leading zeros are the one thing we are milder with.
        if (inet_pton(AF_INET, text.c_str(), expected) != 1) continue;
        EXPECT_TRUE(ipv4 && std::equal(expected, expected + 4, ipv4->bytes.begin())) << text;
    }
}
#endif

TEST(SysDialog, asOneLine) {
    const std::pair<std::string_view, std::string_view> rows[] = {
        {"Log:\r\n  Call:\r\n    Failed.\r\n--Log\r\n", "Log: Call: Failed. --Log"},
        {{"a\0b\x1B[31mc\x7F", 10}, "a b [31mc"},
        {"hi\xC3\xA1ny\xC3\xB3\n", "hi\xC3\xA1ny\xC3\xB3"},
    };
    for (const auto& [text, line] : rows) {
        EXPECT_EQ(asOneLine(text), line);
    }
}

TEST(SysHost, nameThatOthersKnow) {
    constexpr std::string_view kHosts =
        "127.0.0.1 localhost.test localhost\n# 10.0.0.1 a.test pc\n::1 #b.test pc\n"
        "pc.test x\n127.0.1.1\tpc17 \tPC.example.test other.test  pc\r\n10.0.0.2 c.test pc\n"
        "10.0.0.3 d.Local d\n10.0.0.4 e";
    const std::pair<std::string, std::string_view> rows[] = {{"pc17.a-1.test", "pc17.a-1.test"},
                                                             {"Pc", "PC.example.test"},
                                                             {"pc.local", ""},
                                                             {"localhost.localdomain", ""},
                                                             {"d", ""},
                                                             {"e", ""},
                                                             {"x", ""},
                                                             {"pc1", ""},
                                                             {"", ""},
                                                             {"a..test", ""},
                                                             {".test", ""},
                                                             {"pc.", ""},
                                                             {"a_b.test", ""},
                                                             {"a\r\n.test", ""},
                                                             {std::string(250, 'a') + ".test", ""}};
    for (const auto& [hostName, wanted] : rows) {
        EXPECT_EQ(nameInDns(hostName, kHosts), wanted) << hostName;
    }
}

TEST(SysClock, fileTimeCountsFrom1601) {
    using namespace std::chrono;
    const auto now = floor<milliseconds>(system_clock::now()) - sys_days(year(1601) / 1 / 1);
    const milliseconds late = milliseconds(sysClock().fileTimeUtc() / 10'000) - now;
    EXPECT_TRUE(late > -100ms && late < 60s) << late.count();  // ticks of Windows, a slow machine
}

#ifdef _WIN32
// Wine opens long paths in any form, so no file can judge them here.
TEST(WidePath, longOnesTakeTheFormThatHasNoLimit) {
    const std::string deep = std::string(130, 'd') + '/' + std::string(130, 'e');
    const std::string wide = std::string(130, 'd') + '\\' + std::string(130, 'e');
    const std::string here = currentDirectory();
    const std::pair<std::string, std::string> rows[] = {
        {"a/b.txt", "a/b.txt"},
        {"C:/" + deep, "\\\\?\\C:\\" + wide},
        {"C:\\x\\..\\" + deep + "/./f", "\\\\?\\C:\\" + wide + "\\f"},
        {deep, "\\\\?\\" + here + (here.ends_with('\\') ? "" : "\\") + wide},
        {"//server/share/" + deep, "\\\\?\\UNC\\server\\share\\" + wide},
        {"\\\\?\\C:\\" + deep, "\\\\?\\C:\\" + deep},
    };
    for (const auto& [path, opened] : rows) {
        EXPECT_EQ(narrow(widePath(path)), opened);
    }
}
#endif

}  // namespace
}  // namespace tv::plat
