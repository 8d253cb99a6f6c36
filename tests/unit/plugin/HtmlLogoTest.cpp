// The placeholder of the logo: what is replaced and what stays.
#include "plugin/HtmlLogo.h"

#include <gtest/gtest.h>

namespace tv {
namespace {

constexpr char kElement[] =
    "<img title=\"logo\" src=\"cid:{LOGO}\" style=\"width: 100%; height: auto;\">";

// Body; with a logo, whose Content-ID spells the placeholder (the element as "@"); without one.
const char* const kBodies[][3] = {
    {"abc{LOGO}def", "abc@def", "abcdef"},
    {"{LOGO}", "@", ""},
    {"{LOGO}-{LOGO}", "@-{LOGO}", "-{LOGO}"},
    {"{LO{LOGO}GO}", "{LO@GO}", "{LOGO}"},
    {"{logo}b{Logo}", "{logo}b{Logo}", "{logo}b{Logo}"},
    {"abc{LOGO", "abc{LOGO", "abc{LOGO"},
    {"", "", ""},
    {"\xFF{LOGO}\xC3", "\xFF@\xC3", "\xFF\xC3"},
};

TEST(HtmlLogo, theFirstPlaceholderIsReplacedOrRemoved) {
    for (const auto& [body, with, without] : kBodies) {
        std::string expected = with;
        const size_t at = expected.find('@');
        if (at != std::string::npos) expected.replace(at, 1, kElement);
        EXPECT_EQ(bodyWithLogo(body, "{LOGO}"), expected) << body;
        EXPECT_EQ(bodyWithoutLogo(body), without) << body;
    }
}

}  // namespace
}  // namespace tv
