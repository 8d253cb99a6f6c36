// Each byte is looked at once. A quote that is not closed takes all that is left, as browsers have
// it.
#include "mime/HtmlTagReader.h"

#include "base/Ascii.h"

namespace tv {

template <class Condition>
void HtmlTagReader::skipWhile(Condition condition) {
    while (at_ < html_.size() && condition(html_[at_])) {
        ++at_;
    }
}

bool HtmlTagReader::next(HtmlAttribute& attribute) {
    skipWhile([](char c) { return isBlank(c) || c == '/'; });
    if (at_ >= html_.size() || html_[at_] == '>') return false;
    const size_t name = at_;
    ++at_;
    skipWhile([](char c) { return !isBlank(c) && c != '=' && c != '>' && c != '/'; });
    attribute = {html_.substr(name, at_ - name), {}};
    skipWhile(isBlank);
    if (at_ < html_.size() && html_[at_] == '=') {
        ++at_;
        skipWhile(isBlank);
        attribute.value = readValue();
    }
    return true;
}

std::string_view HtmlTagReader::readValue() {
    if (at_ >= html_.size()) return {};
    const char quote = html_[at_];
    const bool quoted = quote == '"' || quote == '\'';
    if (quoted) ++at_;
    const size_t start = at_;
    skipWhile([&](char c) { return quoted ? c != quote : !isBlank(c) && c != '>'; });
    const std::string_view value = html_.substr(start, at_ - start);
    if (quoted && at_ < html_.size()) ++at_;
    return value;
}

}  // namespace tv
