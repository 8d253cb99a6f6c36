#include "mime/AddressList.h"

#include "base/Ascii.h"
#include "mime/HeaderText.h"

namespace tv {
namespace {

constexpr size_t kFoldAt = 69;
// A longer name could, with its address, make a line longer than mail allows.
constexpr size_t kLongestPlainName = 250;

// Cuts a text at separators. Quotes and brackets that never close are characters like any other.
class MailboxSplitter {
public:
    explicit MailboxSplitter(std::string_view text) : text_(text) {}

    bool next(std::string_view& mailbox) {
        if (at_ > text_.size()) return false;
        const size_t start = at_;
        while (at_ < text_.size() && text_[at_] != ',' && text_[at_] != ';') {
            skip();
        }
        mailbox = text_.substr(start, at_ - start);
        ++at_;
        return true;
    }

private:
    void skip() {
        constexpr std::string_view kOpen = "\"<([";
        constexpr std::string_view kClose = "\">)]";
        const size_t kind = kOpen.find(text_[at_]);
        if (kind != std::string_view::npos && !unclosed_[kind]) {
            const size_t end = closing(kClose[kind]);
            unclosed_[kind] = end == std::string_view::npos;
            if (!unclosed_[kind]) at_ = end;
        }
        ++at_;
    }

    size_t closing(char wanted) const {
        for (size_t i = at_ + 1; i < text_.size(); ++i) {
            if (text_[i] == wanted) return i;
            if (text_[i] == '\\' && wanted == '"') ++i;
        }
        return std::string_view::npos;
    }

    std::string_view text_;
    size_t at_ = 0;
    bool unclosed_[4] = {};  // known to have no end in the rest of the text
};

bool needsQuotes(std::string_view name) {
    return name.find_first_of(" ()<>@,;:\\\".[]") != std::string_view::npos;
}

std::string formatItem(const _tvEmailAddress& mailbox, uint32_t codePage) {
    const std::string& name = mailbox.name();
    const std::string& address = mailbox.address();
    if (name.empty()) return address;
    std::string item;
    if (needsEncoding(name) || name.size() > kLongestPlainName) {
        item = encodedWords(name, codePage, WordPlace::Phrase);
    } else if (needsQuotes(name)) {
        item = '"' + name + '"';
    } else {
        item = name;
    }
    return item + " <" + address + '>';
}

}  // namespace

std::vector<_tvEmailAddress> parseMailboxes(std::string_view text) {
    std::vector<_tvEmailAddress> list;
    MailboxSplitter splitter(text);
    std::string_view piece;
    while (splitter.next(piece)) {
        _tvEmailAddress mailbox = _tvEmailAddress::parse(piece);
        if (!mailbox.empty()) list.push_back(std::move(mailbox));
    }
    return list;
}

std::string formatAddressList(std::span<const _tvEmailAddress> list, uint32_t codePage) {
    std::string out;
    size_t line = 0;
    for (const _tvEmailAddress& mailbox : list) {
        const std::string item = formatItem(mailbox, codePage);
        if (!out.empty()) out += ", ";
        if (line != 0 && line + item.size() >= kFoldAt) {
            out.pop_back();
            out += "\r\n ";
            line = 0;
        }
        out += item;
        line += item.size() + 2;
        const size_t lastLine = item.rfind('\n');
        if (lastLine != std::string::npos) line = item.size() - lastLine + 1;
    }
    return out;
}

}  // namespace tv
