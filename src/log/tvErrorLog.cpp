// The tree grows at its last branch; the text is two blanks to a level, each context closed by its
// name.
#include "log/tvErrorLog.h"

namespace tv {

void tvErrorLog::restart(std::string_view rootName) {
    root_ = {EntryKind::Context, std::string(rootName), {}, 0, false, {}};
    openDepth_ = 0;
}

tvErrorLog::Entry& tvErrorLog::current() {
    Entry* entry = &root_;
    for (size_t i = 0; i < openDepth_; ++i) {
        entry = &entry->children.back();
    }
    return *entry;
}

void tvErrorLog::addText(EntryKind kind, std::string_view text) {
    if (!text.empty()) {
        current().children.push_back({kind, {}, std::string(text), 0, false, {}});
    }
}

void tvErrorLog::addData(std::string_view name, std::string_view value) {
    if (!name.empty() && !value.empty()) {
        current().children.push_back(
            {EntryKind::Data, std::string(name), std::string(value), 0, false, {}});
    }
}

void tvErrorLog::openContext(std::string_view name) {
    current().children.push_back({EntryKind::Context, std::string(name), {}, 0, false, {}});
    ++openDepth_;
}

void tvErrorLog::closeContext(uint32_t elapsedMs, bool showElapsed) {
    if (openDepth_ == 0) return;
    Entry& context = current();
    context.elapsedMs = elapsedMs;
    context.showElapsed = showElapsed;
    --openDepth_;
}

void tvErrorLog::render(std::string& out) const {
    out.clear();
    renderEntry(root_, 0, out);
}

void tvErrorLog::renderEntry(const Entry& entry, size_t depth, std::string& out) {
    const std::string indent(2 * depth, ' ');
    switch (entry.kind) {
        case EntryKind::Context:
            if (entry.name.empty()) return;
            out += indent + entry.name;
            if (entry.elapsedMs != 0 && entry.showElapsed) {
                out += '(' + std::to_string(entry.elapsedMs) + "ms)";
            }
            out += ":\r\n";
            for (const Entry& child : entry.children) {
                renderEntry(child, depth + 1, out);
            }
            out += indent + "--" + entry.name + "\r\n";
            return;
        case EntryKind::Data:
            out += indent + entry.name + ": " + entry.text + "\r\n";
            return;
        case EntryKind::Error:
        case EntryKind::Information:
        case EntryKind::Text:
            out += indent + entry.text + "\r\n";
            return;
    }
}

}  // namespace tv
