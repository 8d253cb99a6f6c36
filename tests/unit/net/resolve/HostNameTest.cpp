// What a host wrote as its server, made into names: to connect to, to announce in TLS, to resolve.
#include "net/resolve/HostName.h"

#include <gtest/gtest.h>

#include "base/Ascii.h"

namespace tv {
namespace {

const std::string kLabel(63, 'a');
const std::string kLongest = kLabel + "." + kLabel + "." + kLabel + "." + kLabel.substr(2);

TEST(HostName, normalised) {
    const struct {
        std::string host, toConnect, ofTls, toResolve;  // toResolve is empty: it cannot be
    } kCases[] = {
        {"  Mail.Example\r\n", "Mail.Example", "mail.example", "mail.example"},
        {"anna@mail.example", "mail.example", "mail.example", "anna@mail.example"},
        {"a@b@mail.example", "b@mail.example", "b@mail.example", "a@b@mail.example"},
        {"HTTP://mail.example/path/x", "mail.example", "mail.example", "mail.example"},
        {"user@ftp://mail.example:25/x", "mail.example:25", "mail.example", "user@ftp"},
        {"hthttp://tp://mail.example", "http:", "http", "http"},  // one pass: then it is cut
        {"[::1]", "::1", "::1", "["},
        {"[2001:db8::5]:587", "2001:db8::5", "2001:db8::5", "[2001"},
        {"[::ffff:10.0.0.1]", "[::ffff:10.0.0.1]", "[::ffff:10.0.0.1]", "["},
        {"LocalHost", "127.0.0.1", "localhost", "localhost"},
        {"mail.example..", "mail.example..", "mail.example..", "mail.example.."},  // no name
        {"b\xC3\xBC\xE3\x80\x82", "b\xC3\xBC\xE3\x80\x82", "xn--b-eha", "xn--b-eha."},
        {"mail.example<b", "mail.example<b", "mail.example<b", "mail.example"},
        {kLongest, kLongest, kLongest, kLongest},
        {kLongest + ".", kLongest + ".", kLongest, kLongest + "."},
        {kLongest + "a", kLongest + "a", kLongest + "a", ""},
        {" \t ", "", "", ""},
        {"user@", "", "", "user@"},
        {":25", ":25", "", ""},
        {"[", "[", "[", "["},
        {".", ".", "", ""},
        {"mail example", "mail example", "mail example", ""},
        {"mail\x7F.example", "mail\x7F.example", "mail\x7F.example", ""},
        {"bad\xFF.example", "bad\xFF.example", "bad\xFF.example", ""},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.host);
        std::string out;
        EXPECT_EQ(normalizeHost(c.host), c.toConnect);
        EXPECT_EQ(asciiLower(serverName(c.host)), c.ofTls);
        EXPECT_EQ(normalizeDomain(c.host, out), !c.toResolve.empty());
        EXPECT_TRUE(c.toResolve.empty() || out == c.toResolve) << out;
    }
}

}  // namespace
}  // namespace tv
