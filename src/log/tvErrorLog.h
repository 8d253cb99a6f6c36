// The tree of log entries and its text form.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tv {

enum class EntryKind : char {
    Error = 'E',
    Information = 'I',
    Text = 'X',
    Data = 'T',
    Context = 'C'
};

class tvErrorLog {
public:
    // Drops everything and opens the root context.
    void restart(std::string_view rootName);
    // Nothing is added for an empty text, name or value.
    void addText(EntryKind kind, std::string_view text);
    void addData(std::string_view name, std::string_view value);
    void openContext(std::string_view name);
    // Closes the innermost open context with its elapsed time; the root stays open.
    void closeContext(uint32_t elapsedMs, bool showElapsed);
    void render(std::string& out) const;

private:
    struct Entry {
        EntryKind kind;
        std::string name;
        std::string text;
        uint32_t elapsedMs = 0;
        bool showElapsed = false;
        std::vector<Entry> children;
    };

    Entry& current();
    static void renderEntry(const Entry& entry, size_t depth, std::string& out);

    Entry root_{EntryKind::Context, {}, {}, 0, false, {}};
    size_t openDepth_ = 0;  // open contexts below the root: each is the last child of the one above
};

}  // namespace tv
