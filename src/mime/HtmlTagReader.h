// The attributes of one tag, taken from an HTML document without a parser of its whole.
#pragma once

#include <string_view>

namespace tv {

struct HtmlAttribute {
    std::string_view name;
    std::string_view value;  // as it stands there, without quotes
};

// Reads from behind the tag's name to its ">".
class HtmlTagReader {
public:
    HtmlTagReader(std::string_view html, size_t at) : html_(html), at_(at) {}

    bool next(HtmlAttribute& attribute);
    // Of the ">" once there is no next one, or the end of a document that lacks it.
    size_t position() const { return at_; }

private:
    std::string_view readValue();
    template <class Condition>
    void skipWhile(Condition condition);

    std::string_view html_;
    size_t at_;
};

}  // namespace tv
