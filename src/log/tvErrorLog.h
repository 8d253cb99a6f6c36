// The entries of a log, kept as the text that they become: it grows at its end, and what is open is
// known by where its name stands.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tv {

// An entry for which there is no memory throws and leaves all as it was; closing needs none.
class tvErrorLog {
public:
    // Drops everything but the memory it took; the root context is open.
    void restart();
    // Nothing is added for an empty text, name or value, nor inside a context without a name.
    void addText(std::string_view text);
    // Lines as they are to stand there.
    void addBlock(std::string_view lines);
    void addData(std::string_view name, std::string_view value);
    void openContext(std::string_view name);
    // Closes the innermost open context with its elapsed time; the root stays open.
    void closeContext(uint32_t elapsedMs, bool showElapsed);
    // The whole text, with what is open shown as closed.
    void render(std::string& out) const;

private:
    struct Context {
        size_t nameAt;  // in text_
        size_t nameSize;
        size_t endSize;  // what its last line and its elapsed time take at most
    };

    void addLine(std::string_view name, std::string_view separator, std::string_view value);
    // For a line of this size, and behind it the ends of all that is open.
    void makeRoom(size_t size);
    void appendEnd(size_t index, std::string& out) const;

    std::string text_;           // below the root
    std::vector<Context> open_;  // below the root, outermost first
    size_t endSizes_ = 0;        // of all that are open
    size_t nameless_ = 0;        // open contexts from the first without a name on
};

}  // namespace tv
