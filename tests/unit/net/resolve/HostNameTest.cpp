#include "net/resolve/HostName.h"

#include <gtest/gtest.h>

#include "base/Ascii.h"

namespace tv {
namespace {

TEST(HostName, Normalised) {
    const struct {
        const char* host;
        const char* expected;
    } kCases[] = {
        {"mail.example", "mail.example"},
        {"  mail.example\r\n", "mail.example"},
        {"anna@mail.example", "mail.example"},
        {"a@b@mail.example", "b@mail.example"},
        {"http://mail.example/path/x", "mail.example"},
        {"HTTPS://mail.example", "mail.example"},
        {"user@ftp://mail.example:25/x", "mail.example:25"},
        {"hthttp://tp://mail.example", "http:"},  // one pass: then cut at the slash
        {"[::1]", "::1"},
        {"[2001:db8::5]:587", "2001:db8::5"},
        {"[::ffff:10.0.0.1]", "[::ffff:10.0.0.1]"},
        {"[mailhost]", "[mailhost]"},
        {"LocalHost", "127.0.0.1"},
        {"localhost.example", "localhost.example"},
        {"", ""},
        {" \t ", ""},
        {"user@", ""},
        {"http://", ""},
        {"[", "["},
    };
    for (const auto& c : kCases)
        EXPECT_EQ(normalizeHost(c.host), c.expected) << c.host;
}

TEST(HostName, OfATlsServer) {
    const struct {
        const char* host;
        const char* expected;
    } kCases[] = {
        {"mail.example", "mail.example"},
        {"anna@https://Mail.Example/x", "mail.example"},
        {"mail.example:465", "mail.example"},
        {"mail.example.", "mail.example"},
        {"mail.example..", "mail.example.."},  // no name, nor to be made one
        {"b\xC3\xBC\xE3\x80\x82", "xn--b-eha"},
        {"localhost", "localhost"},
        {"LocalHost", "localhost"},
        {"10.0.0.1:25", "10.0.0.1"},
        {"[2001:db8::5]:587", "2001:db8::5"},
        {"b\xC3\xBC"
         "cher.example",
         "xn--bcher-kva.example"},
        {"", ""},
    };
    for (const auto& c : kCases)
        EXPECT_EQ(asciiLower(serverName(c.host)), c.expected) << c.host;
}

TEST(HostName, NormalisedForLookUp) {
    const std::string label63(63, 'a');
    const std::string longest = label63 + "." + label63 + "." + label63 + "." + label63.substr(2);
    const struct {
        std::string domain;
        std::string expected;  // empty: not usable
    } kCases[] = {
        {"Mail.Example", "mail.example"},
        {"https://mail.example/x", "mail.example"},
        {"mail.example:25", "mail.example"},
        {"mail.example<b", "mail.example"},
        {" mail.example. ", "mail.example."},
        {"mailhost", "mailhost"},
        {"B\xC3\xBC"
         "cher.example",
         "xn--bcher-kva.example"},
        {"", ""},
        {":25", ""},
        {".", ""},
        {"mail example", ""},
        {"mail\x01.example", ""},
        {"bad\xFF.example", ""},
        {longest, longest},
        {longest + "a", ""},
    };
    for (const auto& c : kCases) {
        std::string out;
        EXPECT_EQ(normalizeDomain(c.domain, out), !c.expected.empty()) << c.domain;
        if (!c.expected.empty()) {
            EXPECT_EQ(out, c.expected) << c.domain;
        }
    }
}

}  // namespace
}  // namespace tv
