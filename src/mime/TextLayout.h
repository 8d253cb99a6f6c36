// Plain text as it is laid out: lines with what stands before them, blank lines, rows of a table.
// A line ends only when the next one begins, so that more can still be added to it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tv {

class TextLayout {
public:
    // How much of the source was read. What only decorates (quote marks, indents, underlines) is
    // left out where the text would grow beyond its source by more than a fixed size.
    void setRead(size_t size) { read_ = size; }

    void text(std::string_view characters);
    // White space between words: one blank, none at the ends of a line.
    void blank();
    // White space that counts.
    void exactBlank(char c) { blanks_ += c; }
    bool isBehindLetter() const { return !out_.empty() && breaks_ == 0 && blanks_.empty(); }

    void line() { breakAtLeast(1); }
    void paragraph() { breakAtLeast(2); }
    void lineBreak();   // a blank line, where the line is ended already, but never two
    void exactBreak();  // one more, however many there are
    void rule();

    // The marker stands before the first line of what follows, blanks before the others.
    void indent(std::string_view marker);
    void quote();
    void outdent();  // ends the innermost of both

    void beginHeading();
    void endHeading(char underline);  // 0 for none

    void beginLink();
    void endLink(std::string_view target, bool withImage);

    // Cells stand side by side if that is clear: one of them at most may have several lines, and
    // none paragraphs.
    void beginRow();
    void beginCell();
    void endCell();
    void endRow();
    void dissolveRow() { inRow_ = false; }  // holds more than text: one cell below the other

    std::string take();

private:
    // Where the next text begins, and how many lines there were before it.
    struct Mark {
        bool waiting = false;
        size_t at = 0, lines = 0, blankLines = 0;
    };
    struct Level {
        size_t prefix, marks;
    };
    struct Cell {
        size_t begin, end;
        bool hasLines, hasBlankLines;
    };

    void breakAtLeast(size_t count);
    void await(Mark& mark);
    void settle(Mark& mark) const;
    void startLine();
    bool affords(size_t size) const;
    size_t lengthFrom(size_t at) const;

    std::string out_;
    std::string blanks_;     // not written before what follows them is known
    std::string underline_;  // goes below the line that is open
    std::string prefix_;     // of each line
    std::string marker_;     // for the next line, in place of blanks in the prefix
    size_t markerAt_ = 0;
    std::vector<Level> levels_;  // as it was outside each indent and quote
    size_t marks_ = 0;           // size of the prefix up to its last quote mark
    size_t commonMarks_ = 0;     // the least of that since the last line began
    size_t breaks_ = 0;          // line ends that are due
    size_t lines_ = 0, blankLines_ = 0;
    size_t read_ = 0;

    bool awaited_ = false;  // some mark waits
    Mark heading_, link_, cell_;
    bool inRow_ = false, inCell_ = false;
    std::vector<Cell> cells_;
};

}  // namespace tv
