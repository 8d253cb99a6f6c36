// What a style attribute says that matters without fonts and colours.
#pragma once

#include <cstdint>
#include <string_view>

namespace tv {

// Letters without height show again where a part within has letters of its own height.
enum class Letters : uint8_t { AsAround, None, Shown };

struct HtmlStyle {
    bool hidden = false;        // with all that is in it
    bool preformatted = false;  // blanks and line ends count
    Letters letters = Letters::AsAround;
};

HtmlStyle readHtmlStyle(std::string_view declarations);

}  // namespace tv
