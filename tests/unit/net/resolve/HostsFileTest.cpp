// The hosts file: its lines, and when it is read.
#include "net/resolve/HostsFile.h"

#include "tests/unit/net/resolve/DnsKit.h"

namespace tv {
namespace {

using HostsFileTest = test::DnsWorld;

TEST_F(HostsFileTest, Lines) {
    const HostsTable table(
        "\xEF\xBB\xBF# a comment\r\n"
        "192.0.2.1\tone.example  ONE  alias.example. # and a comment\r\n"
        "   192.0.2.2 two.example\n"
        "fd00::1 one.example six.example\n"
        "192.0.2.300 wrong.example\n"
        "192.0.2.3\n"
        "no address here\r"
        "192.0.2.4 one.example one.example\n"
        "192.0.2.5 #one.example\n"
        "192.0.2.6 last.example");
    const struct {
        const char* name;
        const char* found;
    } kCases[] = {
        {"one.example", "192.0.2.1 192.0.2.4"},
        {"one", "192.0.2.1"},
        {"alias.example", "192.0.2.1"},
        {"two.example", "192.0.2.2"},
        {"last.example", "192.0.2.6"},
        {"six.example", ""},
        {"wrong.example", ""},
        {"here", ""},
        {"one.exampl", ""},
        {"comment", ""},
        {"", ""},
    };
    for (const auto& c : kCases) {
        std::vector<plat::IpAddress> out;
        EXPECT_EQ(table.find(c.name, out), *c.found != 0) << c.name;
        EXPECT_EQ(textOf(out), c.found) << c.name;
    }
}

TEST_F(HostsFileTest, ReadAgainWhenItChanged) {
    HostsFile hosts;
    std::vector<plat::IpAddress> out;
    const std::string path = file("hosts", "192.0.2.1 a.example\n");
    EXPECT_TRUE(hosts.find(path, "a.example", out));
    EXPECT_FALSE(hosts.find(path, "b.example", out));
    EXPECT_EQ(hosts.timesParsed(), 1U);
    file("hosts", "192.0.2.1 a.example\n192.0.2.2 b.example\n");
    EXPECT_TRUE(hosts.find(path, "b.example", out));
    EXPECT_TRUE(hosts.find(path, "a.example", out));
    EXPECT_EQ(hosts.timesParsed(), 2U);
    std::remove(path.c_str());
    EXPECT_FALSE(hosts.find(path, "a.example", out));
    const std::string other = file("hosts2", "192.0.2.3 a.example\n");
    EXPECT_TRUE(hosts.find(other, "a.example", out));
    EXPECT_EQ(textOf(out), "192.0.2.3");
}

}  // namespace
}  // namespace tv
