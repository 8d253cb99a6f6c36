// The elements in the order of their names.
#include "mime/HtmlElements.h"

#include <algorithm>
#include <iterator>

#include "base/Ascii.h"

namespace tv {
namespace {

using enum HtmlKind;

constexpr HtmlElement kElements[] = {
    {"a", Link},           {"address", Block},
    {"area", Empty},       {"article", Block},
    {"aside", Block},      {"b", Bold},
    {"base", Empty},       {"basefont", Empty},
    {"bgsound", Empty},    {"blockquote", Quote},
    {"body", Block},       {"br", Break},
    {"caption", Block},    {"center", Block},
    {"col", Empty},        {"dd", Term},
    {"details", Block},    {"dir", List},
    {"div", Division},     {"dl", Terms},
    {"dt", Term},          {"em", Italic},
    {"embed", Empty},      {"fieldset", Block},
    {"figcaption", Block}, {"figure", Block},
    {"font", Font},        {"footer", Block},
    {"form", Block},       {"frame", Empty},
    {"h1", Heading, 1},    {"h2", Heading, 2},
    {"h3", Heading, 3},    {"h4", Heading, 4},
    {"h5", Heading, 5},    {"h6", Heading, 6},
    {"header", Block},     {"hr", Rule},
    {"i", Italic},         {"iframe", Raw},
    {"img", Image},        {"input", Empty},
    {"legend", Block},     {"li", Item},
    {"link", Empty},       {"listing", Preformatted},
    {"main", Block},       {"menu", List},
    {"meta", Empty},       {"nav", Block},
    {"noembed", Raw},      {"noframes", Raw},
    {"object", Hidden},    {"ol", List, 1},
    {"p", Paragraph},      {"param", Empty},
    {"pre", Preformatted}, {"script", Raw},
    {"section", Block},    {"select", Hidden},
    {"source", Empty},     {"span", Span},
    {"strong", Bold},      {"style", Raw},
    {"summary", Block},    {"svg", Hidden},
    {"table", Table},      {"tbody", RowGroup},
    {"td", Cell},          {"template", Hidden},
    {"textarea", Raw},     {"tfoot", RowGroup},
    {"th", Cell},          {"thead", RowGroup},
    {"title", Raw},        {"tr", Row},
    {"track", Empty},      {"ul", List},
    {"wbr", Empty},        {"xml", Hidden},
};
static_assert(std::is_sorted(std::begin(kElements), std::end(kElements),
                             [](const auto& a, const auto& b) { return a.name < b.name; }));

}  // namespace

HtmlElement htmlElement(std::string_view name) {
    constexpr HtmlElement kUnknown{"", Other};
    constexpr size_t kLongest = 10;  // "blockquote"
    if (name.size() > kLongest) return kUnknown;
    char lower[kLongest];
    std::transform(name.begin(), name.end(), lower, [](char c) { return asciiLower(c); });
    const std::string_view wanted(lower, name.size());
    const auto* found =
        std::lower_bound(std::begin(kElements), std::end(kElements), wanted,
                         [](const HtmlElement& e, std::string_view n) { return e.name < n; });
    return found == std::end(kElements) || found->name != wanted ? kUnknown : *found;
}

}  // namespace tv
