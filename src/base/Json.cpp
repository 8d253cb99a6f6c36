// The reader behind readJsonObject: one descent through the text. Members of the outermost object
// are kept, what is nested in them is checked and kept as text.
#include "base/Json.h"

#include "base/Ascii.h"
#include "base/CodePage.h"

namespace tv {
namespace {

// Walks through the text once; the first mistake stops it for good.
class JsonReader {
public:
    explicit JsonReader(std::string_view text) : text_(text) {}

    // members: null for an object whose content does not matter.
    bool object(std::vector<JsonMember>* members, unsigned depth);
    bool atEnd() {
        skipSpace();
        return at_ == text_.size();
    }

private:
    bool member(std::vector<JsonMember>* members, unsigned depth);
    bool array(unsigned depth);
    bool value(JsonMember& into, unsigned depth);
    bool nested(JsonMember& into, unsigned depth);
    bool string(SecureBuffer& out);
    bool escape(SecureBuffer& out);
    bool unicodeEscape(SecureBuffer& out);
    bool fourHexDigits(uint32_t& unit);
    bool number();
    bool digits();
    bool word(std::string_view wanted);

    void skipSpace() {
        while (at_ < text_.size() && isBlank(text_[at_])) {
            ++at_;
        }
    }
    char peek() const { return at_ < text_.size() ? text_[at_] : '\0'; }
    bool take(char wanted) {
        if (at_ >= text_.size() || text_[at_] != wanted) return false;
        ++at_;
        return true;
    }

    std::string_view text_;
    size_t at_ = 0;
};

bool JsonReader::object(std::vector<JsonMember>* members, unsigned depth) {
    skipSpace();
    if (depth > kMaxJsonDepth || !take('{')) return false;
    skipSpace();
    if (take('}')) return true;
    do {
        if (!member(members, depth)) return false;
        skipSpace();
    } while (take(','));
    return take('}');
}

bool JsonReader::member(std::vector<JsonMember>* members, unsigned depth) {
    skipSpace();
    SecureBuffer name;
    if (!string(name)) return false;
    skipSpace();
    if (!take(':')) return false;
    JsonMember found;
    found.name.assign(reinterpret_cast<const char*>(name.data()), name.size());
    if (!value(found, depth)) return false;
    if (!members) return true;
    if (findMember(*members, found.name)) return false;
    members->push_back(std::move(found));
    return true;
}

bool JsonReader::array(unsigned depth) {
    if (depth > kMaxJsonDepth || !take('[')) return false;
    skipSpace();
    if (take(']')) return true;
    do {
        JsonMember element;
        if (!value(element, depth)) return false;
        skipSpace();
    } while (take(','));
    return take(']');
}

bool JsonReader::value(JsonMember& into, unsigned depth) {
    using Kind = JsonMember::Kind;
    skipSpace();
    if (peek() == '"') {
        into.kind = Kind::Text;
        return string(into.value);
    }
    const size_t from = at_;
    if (!nested(into, depth)) return false;
    into.value.append(text_.substr(from, at_ - from));
    return true;
}

bool JsonReader::nested(JsonMember& into, unsigned depth) {
    using Kind = JsonMember::Kind;
    switch (peek()) {
        case '{':
            into.kind = Kind::Object;
            return object(nullptr, depth + 1);
        case '[':
            into.kind = Kind::Array;
            return array(depth + 1);
        case 't':
            into.kind = Kind::Bool;
            return word("true");
        case 'f':
            into.kind = Kind::Bool;
            return word("false");
        case 'n':
            into.kind = Kind::Null;
            return word("null");
        default:
            into.kind = Kind::Number;
            return number();
    }
}

bool JsonReader::string(SecureBuffer& out) {
    if (!take('"')) return false;
    while (at_ < text_.size()) {
        const char c = text_[at_++];
        if (c == '"') return true;
        if (static_cast<unsigned char>(c) < 0x20) return false;  // RFC 8259 section 7
        if (c == '\\') {
            if (!escape(out)) return false;
        } else {
            out.push_back(static_cast<uint8_t>(c));
        }
    }
    return false;
}

bool JsonReader::escape(SecureBuffer& out) {
    constexpr std::string_view kLetters = "\"\\/bfnrt";
    constexpr std::string_view kMeanings = "\"\\/\b\f\n\r\t";
    if (take('u')) return unicodeEscape(out);
    const size_t which = kLetters.find(peek());
    if (at_ >= text_.size() || which == std::string_view::npos) return false;
    ++at_;
    out.push_back(static_cast<uint8_t>(kMeanings[which]));
    return true;
}

// A character beyond the first plane is written as two surrogates (RFC 8259 section 7): D800 to
// DBFF, then DC00 to DFFF. One without the other is refused.
bool JsonReader::unicodeEscape(SecureBuffer& out) {
    uint32_t unit = 0;
    if (!fourHexDigits(unit) || (unit >= 0xDC00 && unit < 0xE000)) return false;
    std::u16string units(1, static_cast<char16_t>(unit));
    if (unit >= 0xD800 && unit < 0xDC00) {
        if (!take('\\') || !take('u') || !fourHexDigits(unit)) return false;
        if (unit < 0xDC00 || unit >= 0xE000) return false;
        units.push_back(static_cast<char16_t>(unit));
    }
    out.append(utf16ToUtf8(units));
    return true;
}

bool JsonReader::fourHexDigits(uint32_t& unit) {
    unit = 0;
    for (int i = 0; i < 4; ++i) {
        const char c = asciiLower(peek());
        if (!isAsciiDigit(c) && (c < 'a' || c > 'f')) return false;
        unit = unit * 16 + static_cast<uint32_t>(isAsciiDigit(c) ? c - '0' : c - 'a' + 10);
        ++at_;
    }
    return true;
}

bool JsonReader::number() {
    take('-');
    // RFC 8259 section 6: no zero before other digits.
    if (!take('0') && !digits()) return false;
    if (take('.') && !digits()) return false;
    if (!take('e') && !take('E')) return true;
    if (!take('+')) take('-');
    return digits();
}

bool JsonReader::digits() {
    const size_t from = at_;
    while (isAsciiDigit(peek())) {
        ++at_;
    }
    return at_ != from;
}

bool JsonReader::word(std::string_view wanted) {
    if (!text_.substr(at_).starts_with(wanted)) return false;
    at_ += wanted.size();
    return true;
}

}  // namespace

std::optional<std::vector<JsonMember>> readJsonObject(std::string_view text) {
    if (!isValidUtf8(text)) return std::nullopt;
    JsonReader reader(text);
    std::vector<JsonMember> members;
    if (!reader.object(&members, 1) || !reader.atEnd()) return std::nullopt;
    return members;
}

const JsonMember* findMember(const std::vector<JsonMember>& members, std::string_view name) {
    for (const JsonMember& member : members) {
        if (member.name == name) return &member;
    }
    return nullptr;
}

}  // namespace tv
