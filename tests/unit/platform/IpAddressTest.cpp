// IP addresses as text, and what is none; the system's own functions judge random ones.
#include "platform/IpAddress.h"

#include <gtest/gtest.h>

#include <sstream>

#include "tests/fixtures/TestBytes.h"

#ifndef _WIN32
#include <arpa/inet.h>
#endif

namespace tv::plat {
namespace {

TEST(IpAddress, readsAndWrites) {
    for (const char* same :
         {"127.0.0.1", "255.255.255.255", "0.0.0.0", "::1", "::", "1::", "2001:db8:0:1:1:1:1:1",
          "1:2:3:4:5:6:7:8", "::ffff:10.0.0.1", "fe80::1%3"}) {
        const auto address = parseIp(same);
        ASSERT_TRUE(address) << same;
        EXPECT_EQ(toText(*address), same);
    }
    EXPECT_EQ(toText(parseIp("2001:DB8:0:0:1:0:0:1").value()), "2001:db8::1:0:0:1");
    EXPECT_EQ(toText(parseIp("1:0:0:2:0:0:0:3").value()), "1:0:0:2::3");
    EXPECT_EQ(toText(parseIp("64:ff9b::1.2.3.4").value()), "64:ff9b::102:304");
    std::istringstream texts(
        "256.0.0.1 1.2.3 1.2.3.4.5 1..3.4 0001.2.3.4 mail.example fe80::1%eth0 fe80::1% 12345:: "
        "1:2:3:4:5:6:7 1:2:3:4:5:6:7:8:9 1:2:3:4:5:6:7::8 1::2::3 ::: :1 1: 1.2.3.4:: [::1] "
        "1:2:3:4:5:6:7:1.2.3.4");
    for (std::string none; texts >> none;) {
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
        uint8_t bytes[16], expected[16];
        char written[64];
        std::string text = test::randomText(random() % 16, alphabet, uint32_t(i));
        if (i % 3 == 0) {
            for (uint8_t& byte : bytes) {
                byte = random() % 2 ? 0 : static_cast<uint8_t>(random());
            }
            text = inet_ntop(AF_INET6, bytes, written, sizeof written);
            IpAddress address{AddressFamily::IPv6, {}, 0};
            std::copy(bytes, bytes + 16, address.bytes.begin());
            // The C library also writes the long deprecated dotted form of ::/96.
            const bool isDotted = text.find('.') != text.npos && !text.starts_with("::ffff:");
            EXPECT_TRUE(isDotted || toText(address) == text) << text;
            if (random() % 2) text[random() % text.size()] = alphabet[random() % alphabet.size()];
        }
        const auto ipv6 = parseIpv6(text), ipv4 = parseIpv4(text);
        ASSERT_EQ(ipv6.has_value(), inet_pton(AF_INET6, text.c_str(), expected) == 1) << text;
        EXPECT_TRUE(!ipv6 || std::equal(expected, expected + 16, ipv6->bytes.begin())) << text;
        // Leading zeros are the one thing we are milder with.
        if (inet_pton(AF_INET, text.c_str(), expected) == 1) {
            ASSERT_TRUE(ipv4.has_value()) << text;
            EXPECT_TRUE(std::equal(expected, expected + 4, ipv4->bytes.begin())) << text;
        }
    }
}
#endif

}  // namespace
}  // namespace tv::plat
