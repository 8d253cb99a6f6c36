// The placeholder and the words of the image element, which are fixed to the byte.
#include "plugin/HtmlLogo.h"

namespace tv {
namespace {

constexpr std::string_view kPlaceholder = "{LOGO}";
constexpr std::string_view kOpening = "<img title=\"logo\" src=\"cid:";
constexpr std::string_view kClosing = "\" style=\"width: 100%; height: auto;\">";
static_assert(kOpening.size() == 27 && kClosing.size() == 37);

std::string withPlaceholderAs(std::string_view body, std::string_view replacement) {
    std::string result(body);
    const size_t at = result.find(kPlaceholder);
    if (at != std::string::npos) result.replace(at, kPlaceholder.size(), replacement);
    return result;
}

}  // namespace

std::string bodyWithLogo(std::string_view body, std::string_view contentId) {
    std::string element(kOpening);
    element += contentId;
    element += kClosing;
    return withPlaceholderAs(body, element);
}

std::string bodyWithoutLogo(std::string_view body) {
    return withPlaceholderAs(body, {});
}

}  // namespace tv
