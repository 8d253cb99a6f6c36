// Runs of bytes that stand for themselves are copied, the others coded. The last bytes of each
// piece are held: whether they end a line is not known yet.
#include "mime/QuotedPrintable.h"

#include <algorithm>
#include <cstring>

namespace tv {
namespace {

constexpr size_t kMaxLine = 76;               // RFC 2045 section 6.7 (5)
constexpr size_t kFullColumn = kMaxLine - 1;  // the last place is for the "=" of a soft break

// Blanks and CR depend on what follows them.
enum ByteClass : uint8_t { kPlain, kBlank, kReturn, kCoded };

struct ClassTable {
    uint8_t classes[256];
    constexpr ClassTable() : classes() {
        for (unsigned i = 0; i < 256; ++i) {
            // RFC 2045 section 6.7 (2)
            const bool plain = i >= 33 && i <= 126 && i != '=';
            const bool blank = i == ' ' || i == '\t';
            classes[i] = plain ? kPlain : blank ? kBlank : i == '\r' ? kReturn : kCoded;
        }
    }
};
constexpr ClassTable kClasses;

ByteClass classOf(uint8_t byte) {
    return static_cast<ByteClass>(kClasses.classes[byte]);
}

constexpr size_t kCodedSize = 3;

// What a byte becomes wherever it stands; no size where that depends on what follows it.
struct Item {
    char text[4];
    uint8_t size;
};

struct ItemTable {
    Item items[256];
    constexpr ItemTable() : items() {
        constexpr char kDigits[] = "0123456789ABCDEF";
        for (unsigned i = 0; i < 256; ++i) {
            const bool plain = kClasses.classes[i] == kPlain;
            const bool coded = kClasses.classes[i] == kCoded;
            items[i] = {{'=', kDigits[i >> 4], kDigits[i & 15], 0},
                        static_cast<uint8_t>(coded   ? kCodedSize
                                             : plain ? 1
                                                     : 0)};
            if (plain) items[i].text[0] = static_cast<char>(i);
        }
    }
};
constexpr ItemTable kItems;

void writeCoded(uint8_t byte, char* out) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    out[0] = '=';
    out[1] = kDigits[byte >> 4];
    out[2] = kDigits[byte & 15];
}

bool isBreak(const uint8_t* in, size_t size) {
    return size >= 2 && in[0] == '\r' && in[1] == '\n';
}

// A line must not begin with what ends SMTP data or begins a message in a mailbox file.
bool isUnsafeLineStart(const uint8_t* in, size_t size) {
    return in[0] == '.' || (size >= 5 && std::memcmp(in, "From ", 5) == 0);
}

}  // namespace

bool QuotedPrintableEncoder::put(std::span<const uint8_t> bytes) {
    while (!bytes.empty() && good_) {
        const size_t n = std::min(bytes.size(), input_.size() - held_);
        std::memcpy(input_.data() + held_, bytes.data(), n);
        held_ += n;
        bytes = bytes.subspan(n);
        encodeHeld(false);
    }
    return good_;
}

bool QuotedPrintableEncoder::finish() {
    if (good_) encodeHeld(true);
    flush();
    column_ = 0;
    return good_;
}

// Encodes all that can be judged; the bytes whose successors are not known yet stay.
void QuotedPrintableEncoder::encodeHeld(bool last) {
    const size_t needed = last ? 0 : kLookAhead;
    size_t at = 0;
    while (at < held_ && held_ - at > needed && good_) {
        if (stage_.size() - staged_ < kLargestStep) flush();
        const uint8_t* in = input_.data() + at;
        const size_t size = held_ - at;
        size_t done = copyPlainRun(in, size);
        if (done == 0) done = codeRun(in, size);
        if (done == 0) done = encodeItem(in, size);
        at += done;
    }
    held_ -= at;
    std::memmove(input_.data(), input_.data() + at, held_);
}

// Copies bytes that stand for themselves until the line is full; the result is their number.
size_t QuotedPrintableEncoder::copyPlainRun(const uint8_t* in, size_t size) {
    if (column_ >= kFullColumn || (column_ == 0 && isUnsafeLineStart(in, size))) return 0;
    const size_t limit = std::min(size, kFullColumn - column_);
    size_t run = 0;
    while (run < limit && classOf(in[run]) <= kBlank) {
        ++run;
    }
    // Whether a blank is the last of its line shows what follows it: left to encodeItem.
    if (run != 0 && classOf(in[run - 1]) == kBlank) --run;
    stage({reinterpret_cast<const char*>(in), run});
    column_ += run;
    return run;
}

// Plain and coded bytes in any mixture without a branch on which is which, as long as the line has
// room for a coded one.
size_t QuotedPrintableEncoder::codeRun(const uint8_t* in, size_t size) {
    if (column_ == 0 && isUnsafeLineStart(in, size)) return 0;
    char* const from = stage_.data() + staged_;
    char* out = from;
    char* const end = from + (kFullColumn - std::min(column_, kFullColumn));
    size_t run = 0;
    while (run < size && end - out >= static_cast<ptrdiff_t>(kCodedSize)) {
        const Item& item = kItems.items[in[run]];
        if (item.size == 0) break;
        std::memcpy(out, item.text, sizeof item.text);
        out += item.size;
        ++run;
    }
    staged_ += static_cast<size_t>(out - from);
    column_ += static_cast<size_t>(out - from);
    return run;
}

// One byte, or CR LF; the result is how many bytes of input that was.
size_t QuotedPrintableEncoder::encodeItem(const uint8_t* in, size_t size) {
    if (isBreak(in, size)) {
        stage("\r\n");
        column_ = 0;
        return 2;
    }
    const bool lastOfLine = size == 1 || isBreak(in + 1, size - 1);
    const auto isCoded = [&] {
        const ByteClass kind = classOf(in[0]);
        return kind >= kReturn || (kind == kBlank && lastOfLine) ||
               (column_ == 0 && isUnsafeLineStart(in, size));
    };
    // Only an item that ends its line may use the last place.
    const size_t width = isCoded() ? kCodedSize : 1;
    if (column_ >= kFullColumn || column_ + width > (lastOfLine ? kMaxLine : kFullColumn)) {
        stage("=\r\n");
        column_ = 0;
    }
    if (isCoded()) {
        writeCoded(in[0], stage_.data() + staged_);
        staged_ += kCodedSize;
        column_ += kCodedSize;
    } else {
        stage({reinterpret_cast<const char*>(in), 1});
        ++column_;
    }
    return 1;
}

void QuotedPrintableEncoder::stage(std::string_view text) {
    std::memcpy(stage_.data() + staged_, text.data(), text.size());
    staged_ += text.size();
}

void QuotedPrintableEncoder::flush() {
    if (staged_ != 0 && good_) good_ = out_.write(std::string_view(stage_.data(), staged_));
    staged_ = 0;
}

}  // namespace tv
