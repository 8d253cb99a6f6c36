// What the elements of HTML mean to a reader of plain text.
#pragma once

#include <cstdint>
#include <string_view>

namespace tv {

// Elements of one kind close each other: "</th>" ends a cell that began as "<td>".
enum class HtmlKind : uint8_t {
    Other,  // what says nothing about the layout
    Bold,
    Italic,
    Font,
    Span,
    Link,
    Block,  // on lines of its own
    Division,
    Paragraph,  // and with a blank line around it
    Heading,
    List,
    Item,
    Terms,
    Term,
    Quote,
    Preformatted,
    Table,
    RowGroup,
    Row,
    Cell,
    Break,  // from here on without content
    Rule,
    Image,
    Empty,
    Hidden,  // from here on not for readers
    Raw,     // all text up to the end tag
};

struct HtmlElement {
    std::string_view name;
    HtmlKind kind;
    uint8_t detail = 0;  // of a heading its level, 1 of a list with numbers
};

// The name may be in any case; who is not known is of the kind Other.
HtmlElement htmlElement(std::string_view name);

constexpr bool isInline(HtmlKind kind) {
    return kind < HtmlKind::Block || kind == HtmlKind::Hidden;
}

}  // namespace tv
