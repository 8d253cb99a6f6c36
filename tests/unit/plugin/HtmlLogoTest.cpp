#include "plugin/HtmlLogo.h"

#include <gtest/gtest.h>

namespace tv {
namespace {

const std::string kElement =
    "<img title=\"logo\" src=\"cid:ID@x\" style=\"width: 100%; height: auto;\">";

struct LogoCase {
    const char* name;
    std::string body;
    std::string with;
    std::string without;
};

TEST(HtmlLogo, TheFirstPlaceholderIsReplacedOrRemoved) {
    const LogoCase cases[] = {
        {"in the middle", "abc{LOGO}def", "abc" + kElement + "def", "abcdef"},
        {"alone", "{LOGO}", kElement, ""},
        {"at the end", "abc{LOGO}", "abc" + kElement, "abc"},
        {"only the first", "{LOGO}-{LOGO}", kElement + "-{LOGO}", "-{LOGO}"},
        {"left over by the removal", "{LO{LOGO}GO}", "{LO" + kElement + "GO}", "{LOGO}"},
        {"case matters", "a{logo}b{Logo}", "a{logo}b{Logo}", "a{logo}b{Logo}"},
        {"cut short", "abc{LOGO", "abc{LOGO", "abc{LOGO"},
        {"shorter than the placeholder", "ab", "ab", "ab"},
        {"empty", "", "", ""},
        {"bytes of any kind", "\xFF{LOGO}\xC3", "\xFF" + kElement + "\xC3", "\xFF\xC3"},
    };
    for (const LogoCase& c : cases) {
        EXPECT_EQ(bodyWithLogo(c.body, "ID@x"), c.with) << c.name;
        EXPECT_EQ(bodyWithoutLogo(c.body), c.without) << c.name;
    }
}

// A second logo finds no placeholder, even where the first one's Content-ID spells one.
TEST(HtmlLogo, WhatWasInsertedIsNotReplacedItself) {
    EXPECT_EQ(bodyWithLogo("{LOGO}{LOGO}", "{LOGO}"),
              "<img title=\"logo\" src=\"cid:{LOGO}\" style=\"width: 100%; height: auto;\">{LOGO}");
}

}  // namespace
}  // namespace tv
