// What a machine calls itself in EHLO.
#include "mail/smtp/SmtpCommand.h"

#include <gtest/gtest.h>

#include <utility>

namespace tv {

TEST(SmtpCommand, GreetsWithANameOrAnAddressInBrackets) {
    const std::pair<const char*, const char*> rows[] = {
        {"pc 17.example.com\r\nDATA", "pc17.example.comDATA"},
        {"[192.0.2.1]", "[192.0.2.1]"},
        {"[192.0.2.1]]", "192.0.2.1"},
        {"[ipv6:2001:DB8:0::1]", "[IPv6:2001:db8::1]"},
        {"[fe80::1%3]", "[IPv6:fe80::1]"},
        {"[IPv6:192.0.2.1]", "IPv6192.0.2.1"},
        {"[", "localhost"}};
    for (const auto& [given, sent] : rows)
        EXPECT_EQ(smtp::greetingName(given), sent) << given;
}

}  // namespace tv
