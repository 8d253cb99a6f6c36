// One walk over the document with a stack of the elements that are open. What HTML leaves out (end
// tags above all) is completed as the HTML Standard has it (section 13.2.6.4), as far as it shows.
#include "mime/HtmlToText.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "base/Ascii.h"
#include "mime/HtmlElements.h"
#include "mime/HtmlEntities.h"
#include "mime/HtmlStyle.h"
#include "mime/HtmlTagReader.h"
#include "mime/TextLayout.h"

namespace tv {
namespace {

// Deeper elements have no effect of their own.
constexpr size_t kDeepest = 32768;
constexpr size_t kKinds = static_cast<size_t>(HtmlKind::Raw) + 1;

struct Attributes {
    std::string_view target;
    std::string_view alternative;
    int64_t first = 1;
    HtmlStyle style;
};

struct OpenElement {
    HtmlKind kind;
    uint8_t detail;
    bool hides;
    bool shown;  // its beginning had its effect, so its end has
    bool preformatted;
    bool lettersWereNone;
    bool over = false;   // it ended before others that began within it
    uint32_t outer = 0;  // place of the next outer one of its kind
};

constexpr bool isAsciiLetter(char c) {
    return isAsciiUpper(c) || isAsciiLower(c);
}

constexpr bool isSpaceCode(char c) {
    return isBlank(c) || c == '\f';
}

// Characters of UTF-8 that are white space, or nothing, to a reader of plain text.
enum class Sign : uint8_t { Letter, Space, Nothing, Joiner };

struct KnownSign {
    Sign sign;
    uint8_t size;
};

// The sign at the front of a text whose first byte is above 127; of a letter, its first byte alone.
KnownSign signOf(std::string_view text) {
    constexpr struct {
        std::string_view bytes;
        Sign sign;
    } kSigns[] = {
        {"\xC2\xA0", Sign::Space},        // no-break space
        {"\xC2\xAD", Sign::Nothing},      // soft hyphen
        {"\xCD\x8F", Sign::Nothing},      // combining grapheme joiner, which fills preheaders
        {"\xE2\x80\x8B", Sign::Nothing},  // zero width space
        {"\xE2\x80\x8C", Sign::Joiner},  {"\xE2\x80\x8D", Sign::Joiner},
        {"\xE2\x80\xAF", Sign::Space},    // narrow no-break space
        {"\xE2\x81\xA0", Sign::Nothing},  // word joiner
        {"\xEF\xBB\xBF", Sign::Nothing},  // byte order mark
    };
    for (const auto& [bytes, sign] : kSigns) {
        if (text.starts_with(bytes)) return {sign, static_cast<uint8_t>(bytes.size())};
    }
    // U+2000 to U+200A: spaces of many widths
    const bool space = text.size() > 2 && text.starts_with("\xE2\x80") && text[2] <= '\x8A';
    return space ? KnownSign{Sign::Space, 3} : KnownSign{Sign::Letter, 1};
}

// Where nothing is marked, somebody wrote plain text: lines and blanks count.
bool isUnmarked(std::string_view html) {
    size_t at = 0;
    while ((at = html.find('<', at)) != std::string_view::npos) {
        const char next = ++at < html.size() ? html[at] : ' ';
        if (isAsciiLetter(next) || next == '/' || next == '!' || next == '?') return false;
    }
    return true;
}

// An address as it can be followed; empty where a reader of plain text cannot.
std::string readableTarget(std::string_view raw) {
    std::string target = withoutHtmlEntities(trimmed(raw));
    std::erase_if(target, [](char c) { return static_cast<uint8_t>(c) < ' ' || c == '\x7F'; });
    for (const std::string_view useless :
         {"#", "javascript:", "vbscript:", "data:", "about:", "cid:", "tel:"}) {
        if (startsWithIgnoreCase(target, useless)) return {};
    }
    if (!startsWithIgnoreCase(target, "mailto:")) return target;
    return target.substr(0, target.find('?'));
}

int64_t numberOf(std::string_view digits) {
    constexpr size_t kMostDigits = 9;
    const size_t size = std::min(digits.find_first_not_of("0123456789"), digits.size());
    int64_t number = 0;
    for (const char c : digits.substr(0, size)) {
        number = number * 10 + (c - '0');
    }
    return size == 0 || size > kMostDigits ? 1 : number;
}

class Walk {
public:
    explicit Walk(std::string_view html) : html_(html) {}
    std::string run();

private:
    using enum HtmlKind;

    void takeMarkup();
    void takeTag(bool isEnd);
    Attributes takeAttributes();
    void skipPast(std::string_view end, size_t from);
    void skipRawText(std::string_view name);

    void takeText(std::string_view text);
    size_t takeCharacter(std::string_view rest);
    size_t takeLetters(std::string_view rest);
    void takeBlank(char c);
    void takeSign(std::string_view utf8);

    void begin(const HtmlElement& element, const Attributes& attributes);
    void beginEmpty(HtmlKind kind, const Attributes& attributes);
    void completeBefore(HtmlKind kind);
    void push(const HtmlElement& element, const Attributes& attributes);
    void enter(const HtmlElement& element, const Attributes& attributes);
    void enterItem();
    void end(HtmlKind kind);
    void endAt(size_t place);
    void finish(OpenElement& element);
    void leave(const OpenElement& element);
    void leaveLink();

    // Places in the stack count from 1; 0 is none.
    uint32_t& last(HtmlKind kind) { return last_[static_cast<size_t>(kind)]; }
    size_t innermost(HtmlKind a, HtmlKind b) { return std::max(last(a), last(b)); }
    // What began before this place is out of reach from within a cell.
    size_t wall() { return innermost(Cell, Table); }
    bool isHidden() const { return hidden_ != 0; }

    std::string_view html_;
    size_t at_ = 0;
    TextLayout layout_;
    std::vector<OpenElement> open_;
    std::vector<uint32_t> blocks_;  // places of those that are not inline
    uint32_t last_[kKinds] = {};
    std::vector<int64_t> lists_;  // the next number, or kBullets
    size_t hidden_ = 0;
    size_t preformatted_ = 0;
    bool lettersAreNone_ = false;
    bool atStartOfPre_ = false;
    std::string_view linkTarget_;
    bool linkHasImage_ = false;
    std::string sign_;

    static constexpr int64_t kBullets = -1;
};

std::string Walk::run() {
    if (isUnmarked(html_)) preformatted_ = 1;
    while (at_ < html_.size()) {
        const size_t next = std::min(html_.find('<', at_), html_.size());
        const std::string_view text = html_.substr(at_, next - at_);
        at_ = next;
        takeText(text);
        if (at_ < html_.size()) takeMarkup();
    }
    while (!open_.empty()) {
        endAt(open_.size());
    }
    return layout_.take();
}

// HTML Standard, section 13.2.5.6.
void Walk::takeMarkup() {
    const std::string_view rest = html_.substr(at_);
    const char first = rest.size() > 1 ? rest[1] : ' ';
    const char second = rest.size() > 2 ? rest[2] : ' ';
    if (rest.starts_with("<!--")) {
        skipPast("-->", at_ + 2);  // "<!-->" is whole
    } else if (isAsciiLetter(first)) {
        takeTag(false);
    } else if (first == '/' && isAsciiLetter(second)) {
        takeTag(true);
    } else if (first == '!' || first == '?' || first == '/') {
        skipPast(">", at_);
    } else {
        ++at_;
        takeText(rest.substr(0, 1));
    }
}

void Walk::skipPast(std::string_view end, size_t from) {
    const size_t found = html_.find(end, from);
    at_ = found == std::string_view::npos ? html_.size() : found + end.size();
}

void Walk::takeTag(bool isEnd) {
    at_ += isEnd ? 2 : 1;
    const std::string_view rest = html_.substr(at_);
    const std::string_view name = rest.substr(0, rest.find_first_of(" \t\r\n\f/>"));
    at_ += name.size();
    const Attributes attributes = takeAttributes();
    if (at_ == html_.size()) return;  // it never ended, so it is none
    ++at_;
    layout_.setRead(at_);
    atStartOfPre_ = false;
    const HtmlElement element = htmlElement(name);
    if (isEnd) {
        end(element.kind);
    } else if (element.kind == Raw) {
        skipRawText(name);
    } else if (element.kind >= Break && element.kind < Hidden) {
        if (!attributes.style.hidden && !isHidden()) beginEmpty(element.kind, attributes);
    } else {
        begin(element, attributes);
    }
}

Attributes Walk::takeAttributes() {
    Attributes found;
    bool hidden = false;
    HtmlTagReader reader(html_, at_);
    HtmlAttribute attribute;
    while (reader.next(attribute)) {
        const auto is = [&](std::string_view name) {
            return equalsIgnoreCase(attribute.name, name);
        };
        if (is("href")) found.target = attribute.value;
        if (is("alt")) found.alternative = attribute.value;
        if (is("start")) found.first = numberOf(attribute.value);
        if (is("style")) found.style = readHtmlStyle(attribute.value);
        // Its style often stands in a style sheet only.
        hidden |= is("hidden") || (is("class") && equalsIgnoreCase(attribute.value, "preheader"));
    }
    found.style.hidden |= hidden;
    at_ = reader.position();
    return found;
}

// HTML Standard, section 13.2.5.12: nothing but its own end tag ends it.
void Walk::skipRawText(std::string_view name) {
    size_t found = at_;
    while ((found = html_.find("</", found)) != std::string_view::npos) {
        found += 2;
        const std::string_view rest = html_.substr(found);
        if (!startsWithIgnoreCase(rest, name) || rest.size() == name.size()) continue;
        const char behind = rest[name.size()];
        if (isSpaceCode(behind) || behind == '/' || behind == '>') break;
    }
    at_ = found == std::string_view::npos ? html_.size() : found - 2;
}

// Text that stands before at_, or further in front.
void Walk::takeText(std::string_view text) {
    if (isHidden() || lettersAreNone_) return;
    while (!text.empty()) {
        layout_.setRead(at_ - text.size());
        const size_t taken = takeCharacter(text);
        atStartOfPre_ = false;
        text.remove_prefix(taken);
    }
}

// How many bytes that were, of letters as many as stand together.
size_t Walk::takeCharacter(std::string_view rest) {
    const char c = rest[0];
    if (isSpaceCode(c)) {
        const bool pair = preformatted_ != 0 && rest.starts_with("\r\n");
        takeBlank(pair ? '\n' : c);
        return pair ? 2 : 1;
    }
    if (c == '&') {
        sign_.clear();
        const size_t size = takeHtmlEntity(rest, sign_);
        takeSign(size == 0 ? "&" : std::string_view(sign_));
        return std::max<size_t>(size, 1);
    }
    if (static_cast<uint8_t>(c) >= 0x80) {
        const KnownSign known = signOf(rest);
        if (known.sign == Sign::Letter) return takeLetters(rest);
        takeSign(rest.substr(0, known.size));
        return known.size;
    }
    return takeLetters(rest);
}

size_t Walk::takeLetters(std::string_view rest) {
    const auto mayBeSign = [](char c) {
        return c == '\xC2' || c == '\xCD' || c == '\xE2' || c == '\xEF';
    };
    const auto isOrdinary = [&](char c) {
        const auto byte = static_cast<uint8_t>(c);
        return byte > ' ' && c != '&' && c != '\x7F' && !mayBeSign(c);
    };
    const auto* const begin = rest.data();
    const auto* const end = begin + rest.size();
    // The first was looked at, whatever it may begin; a control character is dropped.
    const bool control = static_cast<uint8_t>(*begin) < ' ' || *begin == '\x7F';
    if (control) return 1;
    const auto size = static_cast<size_t>(std::find_if_not(begin + 1, end, isOrdinary) - begin);
    layout_.text(rest.substr(0, size));
    return size;
}

void Walk::takeBlank(char c) {
    if (preformatted_ == 0) {
        layout_.blank();
    } else if (c != '\n' && c != '\r') {
        layout_.exactBlank(c == '\f' ? ' ' : c);
    } else if (!atStartOfPre_) {  // HTML Standard, section 13.2.6.4.7: the first one is ignored
        layout_.exactBreak();
    }
}

// One character: as it stands in the text, or what a reference stands for.
void Walk::takeSign(std::string_view utf8) {
    const auto byte = static_cast<uint8_t>(utf8[0]);
    const Sign sign = byte >= 0x80 ? signOf(utf8).sign : Sign::Letter;
    if (sign == Sign::Space || isSpaceCode(utf8[0])) {
        takeBlank(sign == Sign::Space ? ' ' : utf8[0]);
    } else if (sign == Sign::Letter ? byte >= ' ' && byte != 0x7F
                                    : sign == Sign::Joiner && layout_.isBehindLetter()) {
        layout_.text(utf8);
    }
}

void Walk::beginEmpty(HtmlKind kind, const Attributes& attributes) {
    if (kind == Break) layout_.lineBreak();
    if (kind == Rule) {
        layout_.dissolveRow();
        layout_.rule();
    }
    if (kind != Image) return;
    linkHasImage_ = true;
    const bool none = std::exchange(lettersAreNone_, false);  // an image has a height of its own
    layout_.blank();
    takeText(attributes.alternative);
    layout_.blank();
    lettersAreNone_ = none;
}

// End tags that may be left out.
void Walk::completeBefore(HtmlKind kind) {
    if (!isInline(kind) && last(Paragraph) > wall()) endAt(last(Paragraph));
    if (kind == Link && last(Link) > wall()) endAt(last(Link));
    if (kind == Item && last(Item) > std::max<size_t>(wall(), last(List))) endAt(last(Item));
    if (kind == Term && last(Term) > std::max<size_t>(wall(), last(Terms))) endAt(last(Term));
    const size_t table = last(Table);
    if ((kind == Cell || kind == Row || kind == RowGroup) && last(Cell) > table) endAt(last(Cell));
    if ((kind == Row || kind == RowGroup) && last(Row) > table) endAt(last(Row));
    if (kind == RowGroup && last(RowGroup) > table) endAt(last(RowGroup));
    if (kind == Cell && last(Row) <= table) push({"", Row}, {});
}

void Walk::begin(const HtmlElement& element, const Attributes& attributes) {
    const bool ofTable = element.kind == Cell || element.kind == Row || element.kind == RowGroup;
    if (ofTable && last(Table) == 0) return isHidden() ? void() : layout_.line();
    completeBefore(element.kind);
    push(element, attributes);
}

void Walk::push(const HtmlElement& element, const Attributes& attributes) {
    if (open_.size() >= kDeepest) return;
    const HtmlStyle& style = attributes.style;
    OpenElement entry{element.kind,
                      element.detail,
                      style.hidden || element.kind == Hidden,
                      false,
                      style.preformatted || element.kind == Preformatted,
                      lettersAreNone_};
    entry.outer = last(element.kind);
    hidden_ += entry.hides ? 1 : 0;
    preformatted_ += entry.preformatted ? 1 : 0;
    if (style.letters != Letters::AsAround) lettersAreNone_ = style.letters == Letters::None;
    entry.shown = !isHidden();
    open_.push_back(entry);
    last(element.kind) = static_cast<uint32_t>(open_.size());
    if (!isInline(element.kind)) blocks_.push_back(static_cast<uint32_t>(open_.size()));
    if (entry.shown) enter(element, attributes);
}

void Walk::enter(const HtmlElement& element, const Attributes& attributes) {
    const HtmlKind kind = element.kind;
    if (isInline(kind) && kind != Link) return;
    if (kind == Heading || kind == List || kind == Quote || kind == Preformatted || kind == Table) {
        layout_.dissolveRow();
    }
    switch (kind) {
        case Link:
            linkTarget_ = attributes.target;
            linkHasImage_ = false;
            return layout_.beginLink();
        case Heading:
            return layout_.beginHeading();
        case List:
            lists_.empty() ? layout_.paragraph() : layout_.line();
            return lists_.push_back(element.detail != 0 ? attributes.first : kBullets);
        case Item:
            return enterItem();
        case Quote:
            layout_.paragraph();
            return layout_.quote();
        case Preformatted:
            atStartOfPre_ = true;
            return layout_.paragraph();
        case Paragraph:
        case Terms:
        case Table:
            return layout_.paragraph();
        case Row:
            return layout_.beginRow();
        case Cell:
            return layout_.beginCell();
        default:
            return layout_.line();
    }
}

void Walk::enterItem() {
    layout_.line();
    const bool numbered = !lists_.empty() && lists_.back() != kBullets;
    layout_.indent(numbered ? std::to_string(lists_.back()++) + ". " : "- ");
}

void Walk::end(HtmlKind kind) {
    const size_t place = last(kind);
    const bool ofTable = kind == Cell || kind == Row || kind == RowGroup;
    const size_t reach = kind == Table ? 0 : ofTable ? last(Table) : wall();
    if (place > reach) return endAt(place);
    if (isHidden()) return;
    if (kind == Paragraph) layout_.paragraph();  // HTML Standard, section 13.2.6.4.7
    if (kind == Break) layout_.lineBreak();
}

// Ends an element and what is open within it; but an inline one ends alone where a block has begun
// within it.
void Walk::endAt(size_t place) {
    OpenElement& element = open_[place - 1];
    if (isInline(element.kind) && !blocks_.empty() && blocks_.back() > place) {
        finish(element);
        element.over = true;
        return;
    }
    while (open_.size() >= place) {
        OpenElement& inner = open_.back();
        if (!inner.over) finish(inner);
        open_.pop_back();
        if (!blocks_.empty() && blocks_.back() > open_.size()) blocks_.pop_back();
    }
}

void Walk::finish(OpenElement& element) {
    last(element.kind) = element.outer;
    hidden_ -= element.hides ? 1 : 0;
    preformatted_ -= element.preformatted ? 1 : 0;
    lettersAreNone_ = element.lettersWereNone;
    if (element.shown) leave(element);
}

void Walk::leave(const OpenElement& element) {
    switch (element.kind) {
        case Link:
            return leaveLink();
        case Heading:
            return layout_.endHeading(element.detail == 1 ? '=' : element.detail == 2 ? '-' : '\0');
        case List:
            lists_.pop_back();
            return lists_.empty() ? layout_.paragraph() : layout_.line();
        case Item:
            layout_.outdent();
            return layout_.line();
        case Quote:
            layout_.outdent();
            return layout_.paragraph();
        case Paragraph:
        case Preformatted:
        case Terms:
        case Table:
            return layout_.paragraph();
        case Row:
            return layout_.endRow();
        case Cell:
            return layout_.endCell();
        default:
            return isInline(element.kind) ? void() : layout_.line();
    }
}

void Walk::leaveLink() {
    layout_.endLink(readableTarget(std::exchange(linkTarget_, {})), linkHasImage_);
}

}  // namespace

std::string htmlToText(std::string_view html) {
    return Walk(html).run();
}

}  // namespace tv
