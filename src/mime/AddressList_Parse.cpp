// Texts taken apart into mailboxes: one walk from left to right over what a host wrote, in which no
// character is looked at more than three times.
#include <algorithm>
#include <iterator>

#include "base/Ascii.h"
#include "mime/AddressList.h"

namespace tv {
namespace {

constexpr size_t kNone = std::string_view::npos;

constexpr bool isLineEnd(char c) {
    return c == '\r' || c == '\n';
}

constexpr bool isControl(char c) {
    const auto byte = static_cast<uint8_t>(c);
    return byte < 32 || byte == 127;
}

// What stands in an address only between quotes or as its own punctuation (RFC 5322 section 3.2.3).
constexpr bool isSpecial(char c) {
    return !isAsciiAlnum(c) &&
           (isControl(c) || std::string_view(" ()<>@,;:\\\"[]").find(c) != kNone);
}

// The end of what opens at from, on the same line; escaped characters open and close nothing.
template <class Closes>
size_t closing(std::string_view text, size_t from, Closes closes) {
    for (size_t i = from + 1; i < text.size() && !isLineEnd(text[i]); ++i) {
        if (text[i] == '\\' && i + 1 < text.size() && !isLineEnd(text[i + 1])) {
            ++i;
        } else if (closes(text[i])) {
            return i;
        }
    }
    return kNone;
}

size_t closingQuote(std::string_view text, size_t from) {
    return closing(text, from, [](char c) { return c == '"'; });
}

// Comments nest (RFC 5322 section 3.2.2).
size_t closingComment(std::string_view text, size_t from) {
    size_t depth = 1;
    return closing(text, from, [&depth](char c) {
        if (c == '(') ++depth;
        return c == ')' && --depth == 0;
    });
}

// A quote in the middle of a word ("5\" disk") quotes nothing.
bool startsWord(std::string_view before) {
    return before.empty() || isBlank(before.back()) || before.back() == '.';
}

// The place of the "@", or the end for a name without one; kNone for what is no local part.
size_t localPartEnd(std::string_view address) {
    for (size_t i = 0; i < address.size(); ++i) {
        if (address[i] == '@') return i == 0 ? kNone : i;
        if (address[i] == '"' && startsWord(address.substr(0, i))) {
            i = closingQuote(address, i);
            if (i == kNone) return kNone;
        } else if (isSpecial(address[i])) {
            return kNone;
        }
    }
    return address.size();
}

// A name, or an address in square brackets (RFC 5321 section 4.1.3). Letters outside ASCII are none
// that a server can be asked for.
bool isDomain(std::string_view text) {
    const bool literal = text.size() > 2 && text.front() == '[' && text.back() == ']';
    if (literal) text = text.substr(1, text.size() - 2);
    for (const char c : text) {
        if (isSpecial(c) && !(literal && c == ':')) return false;
    }
    return !text.empty() && isAscii(text);
}

bool isBareName(const _tvEmailAddress& mailbox) {
    return mailbox.address().find('@') == kNone;
}

bool isUsable(const _tvEmailAddress& mailbox) {
    const std::string_view address = mailbox.address();
    const size_t at = localPartEnd(address);
    if (at == kNone || address.empty() || !mailbox.fitsHeader()) return false;
    return at == address.size() ? address.find('"') == kNone : isDomain(address.substr(at + 1));
}

// The words themselves where all of the name is one quoted string; otherwise its quotes mean
// quotes. A backslash escapes what has to be escaped; hosts write DOMAIN\name.
std::string displayName(std::string_view raw) {
    const std::string_view text = trimmed(raw);
    if (text.size() < 2 || text.front() != '"' || closingQuote(text, 0) != text.size() - 1) {
        return std::string(text);
    }
    std::string name;
    for (size_t i = 1; i + 1 < text.size(); ++i) {
        const bool escapes = text[i] == '\\' && (text[i + 1] == '"' || text[i + 1] == '\\');
        if (escapes && i + 2 < text.size()) ++i;
        name += text[i];
    }
    return name;
}

// Characters that nobody sees and that make another address of one: blanks and joiners of no width,
// soft hyphens, marks of direction, the byte order mark (RFC 3454 tables B.1 and C.1.2).
constexpr std::string_view kInvisible[] = {
    "\u00A0", "\u00AD", "\u200B", "\u200C", "\u200D", "\u200E", "\u200F", "\u2028", "\u2029",
    "\u202A", "\u202B", "\u202C", "\u202D", "\u202E", "\u2060", "\u3000", "\uFEFF"};

bool hasInvisible(std::string_view text) {
    return !isAscii(text) && std::any_of(std::begin(kInvisible), std::end(kInvisible),
                                         [text](auto each) { return text.find(each) != kNone; });
}

// Texts that were copied from somewhere bring them along at their ends.
std::string_view withoutInvisibleAround(std::string_view text) {
    if (isAscii(text)) return trimmed(text);
    size_t before;
    do {
        before = text.size();
        text = trimmed(text);
        for (const std::string_view each : kInvisible) {
            if (text.starts_with(each)) text.remove_prefix(each.size());
            if (text.ends_with(each)) text.remove_suffix(each.size());
        }
    } while (text.size() != before);
    return text;
}

class MailboxReader {
public:
    MailboxReader(std::string_view text, std::vector<std::string_view>& leftOut)
        : text_(text), leftOut_(leftOut) {}

    std::vector<_tvEmailAddress> read() {
        for (at_ = 0; at_ < text_.size(); ++at_) {
            step(text_[at_]);
        }
        finish(text_.size());
        std::erase_if(mailboxes_, [this](const _tvEmailAddress& mailbox) {
            const bool strays = isBareName(mailbox) && !isWholeText(mailbox.address());
            if (strays) leaveOutName(mailbox.address());
            return strays;
        });
        return std::move(mailboxes_);
    }

private:
    // Alone, or in brackets. Anything else around it may have meant another mailbox.
    bool isWholeText(std::string_view name) const {
        return text_ == name || (text_.starts_with('<') && text_.ends_with('>') &&
                                 trimmed(text_.substr(1, text_.size() - 2)) == name);
    }

    void step(char c) {
        switch (c) {
            case '\r':
            case '\n':
                quoteHasNoEnd_ = commentHasNoEnd_ = false;
                return finish(at_ + 1);
            case ';':
            case '>':
                return finish(at_ + 1);
            case ',':
                return comma();
            case '<':
                return openBracket();
            case ':':
                return colon();
            case '(':
                return comment();
            case '"':
                return quote();
            default:
                hasAt_ = hasAt_ || c == '@';
                return take(c);
        }
    }

    void take(char c) {
        if (isQuery_) return;
        if (c == '\t') c = ' ';
        if (c == '?' && isMailto_) {  // RFC 6068 section 2
            isQuery_ = true;
        } else {
            spoilt_ = spoilt_ || isControl(c);
            address_ += c;
        }
    }

    // A comma behind an address ends it; before one it stands in a name ("Smith, Anna <a@b>").
    void comma() {
        if (bracket_ && !hasAt_) {  // a part of what stands in brackets is not what was meant
            spoilt_ = true;
            return;
        }
        if (bracket_ || hasAt_ || trimmed(text_.substr(start_, at_ - start_)).empty()) {
            return finish(at_ + 1);
        }
        address_.clear();
        lastPart_ = at_ + 1;
    }

    void openBracket() {
        if (bracket_ && !trimmed(address_).empty()) finish(at_);
        if (!bracket_) nameEnd_ = at_;
        bracket_ = true;
        hasAt_ = false;
        address_.clear();
    }

    // Before an address: the name of a group, whose members follow, or "mailto".
    void colon() {
        if (hasAt_) return take(':');
        isMailto_ = equalsIgnoreCase(trimmed(address_), "mailto");
        address_.clear();
        if (!bracket_) start_ = lastPart_ = at_ + 1;
    }

    // Counts as a blank.
    void comment() {
        const size_t end = commentHasNoEnd_ ? kNone : closingComment(text_, at_);
        commentHasNoEnd_ = end == kNone;
        if (commentHasNoEnd_) return take('(');
        at_ = end;
        take(' ');
    }

    void quote() {
        const bool opens = !quoteHasNoEnd_ && startsWord(address_);
        const size_t end = opens ? closingQuote(text_, at_) : kNone;
        quoteHasNoEnd_ = quoteHasNoEnd_ || (opens && end == kNone);
        if (end == kNone) return take('"');
        for (; at_ < end; ++at_) {
            take(text_[at_]);
        }
        take('"');
    }

    // Takes what has been read for a mailbox, or leaves it out; the next one starts at next.
    void finish(size_t next) {
        const size_t end = std::min(at_, text_.size());
        const std::string_view address = withoutInvisibleAround(address_);
        spoilt_ = spoilt_ || hasInvisible(address);
        _tvEmailAddress mailbox(
            bracket_ ? displayName(text_.substr(start_, nameEnd_ - start_)) : std::string(),
            address);
        if (!bracket_ && lastPart_ > start_) leaveOut(start_, lastPart_ - 1);
        if (!spoilt_ && isUsable(mailbox)) {
            mailboxes_.push_back(std::move(mailbox));
        } else if (bracket_ || !mailbox.empty()) {
            leaveOut(bracket_ ? start_ : lastPart_, end);
        }
        start_ = lastPart_ = next;
        address_.clear();
        bracket_ = hasAt_ = isMailto_ = isQuery_ = spoilt_ = false;
    }

    void leaveOut(size_t from, size_t end) {
        leftOut_.push_back(trimmed(text_.substr(from, end - from)));
    }
    // By its place in the text, which outlives the mailbox.
    void leaveOutName(std::string_view name) {
        const size_t from = std::min(text_.find(name), text_.size());
        leaveOut(from, std::min(from + name.size(), text_.size()));
    }

    std::string_view text_;
    std::vector<std::string_view>& leftOut_;
    std::vector<_tvEmailAddress> mailboxes_;
    size_t at_ = 0;
    bool quoteHasNoEnd_ = false;  // both: none of the rest of this line
    bool commentHasNoEnd_ = false;

    // Of the mailbox that is being read.
    size_t start_ = 0;
    size_t lastPart_ = 0;   // behind the last comma; before brackets only
    size_t nameEnd_ = 0;    // where the bracket opened
    std::string address_;   // what may be it: without comments and controls
    bool bracket_ = false;  // opened
    bool hasAt_ = false;    // outside of quotes and comments
    bool isMailto_ = false;
    bool isQuery_ = false;  // behind the "?" of a mailto
    bool spoilt_ = false;   // holds what makes another address of it when it is left out
};

std::string_view withoutSeparatorsAround(std::string_view text) {
    constexpr std::string_view kSeparators = " \t\r\n,;";
    const size_t first = text.find_first_not_of(kSeparators);
    if (first == kNone) return {};
    return text.substr(first, text.find_last_not_of(kSeparators) + 1 - first);
}

// "name@host", as nearly all are, in which there is nothing to take apart: letters, digits, and
// single dots and hyphens between them.
bool isPlainAddress(std::string_view text) {
    constexpr size_t kShort = 64;  // a label of the domain may have 63
    if (text.size() > kShort) return false;
    bool hasAt = false;
    bool between = false;
    for (const char c : text) {
        const bool separates = c == '.' || c == '-' || c == '@';
        if (separates ? !between || (c == '@' && hasAt) : !isAsciiAlnum(c)) return false;
        hasAt = hasAt || c == '@';
        between = !separates;
    }
    return hasAt && between;
}

}  // namespace

std::vector<_tvEmailAddress> parseMailboxes(std::string_view text) {
    std::vector<std::string_view> leftOut;
    return parseMailboxes(text, leftOut);
}

std::vector<_tvEmailAddress> parseMailboxes(std::string_view text,
                                            std::vector<std::string_view>& leftOut) {
    leftOut.clear();
    text = withoutSeparatorsAround(text);
    if (text.empty()) return {};
    return MailboxReader(text, leftOut).read();
}

std::string firstAddress(std::string_view text) {
    if (isPlainAddress(text)) return std::string(text);
    const std::vector<_tvEmailAddress> mailboxes = parseMailboxes(text);
    return mailboxes.empty() ? std::string() : mailboxes.front().address();
}

}  // namespace tv
