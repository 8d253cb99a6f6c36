// The logo step of an HTML body: where "{LOGO}" stands, an image goes or nothing. Pure.
#pragma once

#include <string>
#include <string_view>

namespace tv {

// The body with its first "{LOGO}" replaced by an image element that shows the related item of this
// Content-ID (without angle brackets). Later ones stay; without one the body comes back unchanged.
std::string bodyWithLogo(std::string_view body, std::string_view contentId);

// The body without its first "{LOGO}".
std::string bodyWithoutLogo(std::string_view body);

}  // namespace tv
