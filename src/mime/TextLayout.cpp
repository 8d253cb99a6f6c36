// Every byte is written once and moved once more at most, when its row is joined: rows are joined
// only where they hold no other row.
#include "mime/TextLayout.h"

#include <algorithm>

#include "base/Ascii.h"

namespace tv {
namespace {

constexpr size_t kAllowance = size_t{64} * 1024;
constexpr size_t kRuleWidth = 40;
constexpr size_t kWidestUnderline = 72;
constexpr std::string_view kSeparator = " | ";

// What people write of an address: without scheme and the slash at its end.
std::string_view spoken(std::string_view address) {
    for (const std::string_view scheme : {"http://", "https://", "mailto:"}) {
        if (startsWithIgnoreCase(address, scheme)) address.remove_prefix(scheme.size());
    }
    if (address.ends_with('/')) address.remove_suffix(1);
    return address;
}

}  // namespace

bool TextLayout::affords(size_t size) const {
    return out_.size() + size <= read_ + kAllowance;
}

void TextLayout::await(Mark& mark) {
    mark.waiting = awaited_ = true;
}

void TextLayout::settle(Mark& mark) const {
    if (mark.waiting) mark = {false, out_.size(), lines_, blankLines_};
}

void TextLayout::text(std::string_view characters) {
    if (breaks_ != 0 || out_.empty()) startLine();
    out_ += blanks_;
    blanks_.clear();
    if (inRow_ && !inCell_) dissolveRow();
    if (awaited_) {
        for (Mark* const mark : {&heading_, &link_, &cell_}) {
            settle(*mark);
        }
        awaited_ = false;
    }
    out_ += characters;
}

void TextLayout::blank() {
    if (isBehindLetter()) blanks_ = ' ';
}

void TextLayout::breakAtLeast(size_t count) {
    // Word has a paragraph in each cell, which must not part one row from the other.
    if (inRow_ && inCell_ && cell_.waiting) count = std::min<size_t>(count, 1);
    breaks_ = std::max(breaks_, count);
    blanks_.clear();
}

void TextLayout::lineBreak() {
    breakAtLeast(std::min<size_t>(breaks_ + 1, 2));
}

void TextLayout::exactBreak() {
    breakAtLeast(breaks_ + 1);
}

void TextLayout::startLine() {
    out_ += underline_;
    underline_.clear();
    if (!out_.empty()) {
        out_ += '\n';
        for (size_t i = 1; i < breaks_; ++i) {
            if (affords(commonMarks_)) out_.append(prefix_, 0, commonMarks_);
            out_ += '\n';
        }
        ++lines_;
        if (breaks_ > 1) ++blankLines_;
    }
    if (affords(prefix_.size())) {
        const size_t start = out_.size() + markerAt_;
        out_ += prefix_;
        if (!marker_.empty()) out_.replace(start, marker_.size(), marker_);
    }
    marker_.clear();
    commonMarks_ = marks_;
    breaks_ = 0;
}

void TextLayout::rule() {
    paragraph();
    if (affords(prefix_.size() + kRuleWidth)) text(std::string(kRuleWidth, '-'));
    paragraph();
}

void TextLayout::indent(std::string_view marker) {
    levels_.push_back({prefix_.size(), marks_});
    markerAt_ = prefix_.size();
    marker_ = marker;
    prefix_.append(marker.size(), ' ');
}

void TextLayout::quote() {
    levels_.push_back({prefix_.size(), marks_});
    marks_ = prefix_.size() + 1;
    prefix_ += "> ";
}

void TextLayout::outdent() {
    if (levels_.empty()) return;
    prefix_.resize(levels_.back().prefix);
    marks_ = levels_.back().marks;
    levels_.pop_back();
    commonMarks_ = std::min(commonMarks_, marks_);
    if (markerAt_ >= prefix_.size()) marker_.clear();
}

void TextLayout::beginHeading() {
    paragraph();
    await(heading_);
}

// Characters, not bytes: those that continue one are 10xxxxxx (RFC 3629 section 3).
size_t TextLayout::lengthFrom(size_t at) const {
    return static_cast<size_t>(
        std::count_if(out_.begin() + static_cast<std::ptrdiff_t>(at), out_.end(),
                      [](char c) { return (static_cast<uint8_t>(c) & 0xC0) != 0x80; }));
}

void TextLayout::endHeading(char underline) {
    if (underline != 0 && !heading_.waiting && heading_.lines == lines_) {
        const size_t width = std::min(lengthFrom(heading_.at), kWidestUnderline);
        if (width > 0 && affords(prefix_.size() + width + 1)) {  // 0: no character is whole
            underline_ = '\n' + prefix_ + std::string(width, underline);
        }
    }
    heading_.waiting = false;
    paragraph();
}

void TextLayout::beginLink() {
    await(link_);
}

void TextLayout::endLink(std::string_view target, bool withImage) {
    const bool hasText = !link_.waiting;
    link_.waiting = false;
    if (target.empty() || !(hasText || withImage)) return;
    const std::string_view shown = std::string_view(out_).substr(hasText ? link_.at : out_.size());
    if (equalsIgnoreCase(spoken(shown), spoken(target))) return;
    std::string addition = '<' + std::string(target) + '>';
    if (!hasText) return text(addition);
    if (inRow_ && !inCell_) dissolveRow();
    out_ += ' ' + addition;
}

void TextLayout::beginRow() {
    line();
    cells_.clear();
    inRow_ = true;
    inCell_ = false;
}

void TextLayout::beginCell() {
    const bool behindLines = inRow_ && !cells_.empty() && cells_.back().hasLines;
    behindLines ? paragraph() : line();
    inCell_ = true;
    await(cell_);
}

void TextLayout::endCell() {
    if (inRow_ && inCell_ && !cell_.waiting) {
        cells_.push_back(
            {cell_.at, out_.size(), cell_.lines != lines_, cell_.blankLines != blankLines_});
    }
    inCell_ = cell_.waiting = false;
    line();
}

void TextLayout::endRow() {
    const auto withLines =
        std::count_if(cells_.begin(), cells_.end(), [](const Cell& cell) { return cell.hasLines; });
    const bool withParagraphs = std::any_of(cells_.begin(), cells_.end(),
                                            [](const Cell& cell) { return cell.hasBlankLines; });
    if (inRow_ && cells_.size() > 1 && withLines <= 1 && !withParagraphs) {
        std::string joined;
        for (const Cell& cell : cells_) {
            if (!joined.empty()) joined += kSeparator;
            joined.append(out_, cell.begin, cell.end - cell.begin);
        }
        out_.resize(cells_.front().begin);
        out_ += joined;
        breaks_ = 0;
        link_.at = out_.size();
    }
    inRow_ = false;
    line();
}

std::string TextLayout::take() {
    out_ += underline_;
    if (!out_.empty()) out_ += '\n';
    return std::move(out_);
}

}  // namespace tv
