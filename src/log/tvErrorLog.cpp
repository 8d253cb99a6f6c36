// Two blanks to a level, each context closed by its name.
#include "log/tvErrorLog.h"

#include <algorithm>

namespace tv {
namespace {

constexpr std::string_view kRootName = "TolvaneLog";
constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kEndMark = "--";
constexpr size_t kLongestElapsed = std::string_view("(4294967295ms)").size();

// Of what stands in a context at this index, or in the root.
constexpr size_t indentBelow(size_t contexts) {
    return 2 * (contexts + 1);
}

// In one step: most of what an operation costs beside its work is its account.
template <class... Parts>
void appendLine(std::string& out, size_t indent, Parts... parts) {
    const size_t at = out.size();
    out.append(indent + (parts.size() + ...), ' ');
    char* to = out.data() + at + indent;
    ((to = std::copy(parts.begin(), parts.end(), to)), ...);
}

}  // namespace

void tvErrorLog::restart() {
    text_.clear();
    open_.clear();
    endSizes_ = 0;
    nameless_ = 0;
}

void tvErrorLog::addText(std::string_view text) {
    if (!text.empty()) addLine(text, {}, {});
}

void tvErrorLog::addBlock(std::string_view lines) {
    if (nameless_ > 0) return;
    makeRoom(lines.size());
    text_.append(lines);
}

void tvErrorLog::addData(std::string_view name, std::string_view value) {
    if (!name.empty() && !value.empty()) addLine(name, ": ", value);
}

void tvErrorLog::addLine(std::string_view name, std::string_view separator,
                         std::string_view value) {
    if (nameless_ > 0) return;
    const size_t indent = indentBelow(open_.size());
    makeRoom(indent + name.size() + separator.size() + value.size() + kLineEnd.size());
    appendLine(text_, indent, name, separator, value, kLineEnd);
}

void tvErrorLog::openContext(std::string_view name) {
    if (name.empty() || nameless_ > 0) {
        ++nameless_;
        return;
    }
    const size_t indent = indentBelow(open_.size());
    const size_t lineSize = indent + kEndMark.size() + name.size() + kLineEnd.size();
    const size_t endSize = lineSize + kLongestElapsed;
    makeRoom(lineSize + endSize);
    open_.push_back({text_.size() + indent, name.size(), endSize});
    appendLine(text_, indent, name, std::string_view(":"), kLineEnd);
    endSizes_ += endSize;
}

void tvErrorLog::makeRoom(size_t size) {
    const size_t needed = text_.size() + size + endSizes_;
    if (needed > text_.capacity()) text_.reserve(needed);
}

void tvErrorLog::closeContext(uint32_t elapsedMs, bool showElapsed) {
    if (nameless_ > 0) {
        --nameless_;
        return;
    }
    if (open_.empty()) return;
    const Context& context = open_.back();
    appendEnd(open_.size() - 1, text_);
    if (elapsedMs != 0 && showElapsed) {
        text_.insert(context.nameAt + context.nameSize, '(' + std::to_string(elapsedMs) + "ms)");
    }
    endSizes_ -= context.endSize;
    open_.pop_back();
}

void tvErrorLog::render(std::string& out) const {
    out = kRootName;
    out += ":\r\n";
    out += text_;
    for (size_t i = open_.size(); i > 0; --i) {
        appendEnd(i - 1, out);
    }
    out.append(kEndMark).append(kRootName).append(kLineEnd);
}

void tvErrorLog::appendEnd(size_t index, std::string& out) const {
    const Context& context = open_[index];
    // Stays where it is even where out is the text itself, which has room for this line.
    const std::string_view name(text_.data() + context.nameAt, context.nameSize);
    appendLine(out, indentBelow(index), kEndMark, name, kLineEnd);
}

}  // namespace tv
