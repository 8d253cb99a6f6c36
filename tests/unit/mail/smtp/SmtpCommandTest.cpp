// What a machine calls itself in EHLO.
#include "mail/smtp/SmtpCommand.h"

#include <gtest/gtest.h>

namespace tv {
namespace {

TEST(SmtpCommand, GreetsWithANameOrAnAddressInBrackets) {
    const struct {
        const char* given;
        const char* sent;
    } rows[] = {{"pc17.example.com", "pc17.example.com"},
                {"pc 17\r\nDATA", "pc17DATA"},
                {"[192.0.2.1]", "[192.0.2.1]"},
                {"[192.0.2.1", "192.0.2.1"},
                {"[192.0.2.1]]", "192.0.2.1"},
                {"[ipv6:2001:DB8:0::1]", "[IPv6:2001:db8::1]"},
                {"[fe80::1%3]", "[IPv6:fe80::1]"},
                {"[IPv6:192.0.2.1]", "IPv6192.0.2.1"},
                {"[", "localhost"}};
    for (const auto& [given, sent] : rows)
        EXPECT_EQ(smtp::greetingName(given), sent) << given;
}

}  // namespace
}  // namespace tv
