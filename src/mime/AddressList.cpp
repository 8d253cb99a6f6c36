// Lists of mailboxes as header fields carry them.
#include "mime/AddressList.h"

#include "base/Ascii.h"
#include "base/CodePage.h"
#include "mime/HeaderText.h"
#include "mime/ParameterText.h"

namespace tv {
namespace {

// Below the 78 columns of RFC 5322 section 2.1.1, for the field's name is not counted.
constexpr size_t kFoldAt = 69;
// A longer name could, with its address, make a line longer than mail allows.
constexpr size_t kLongestPlainName = 250;

// The specials of RFC 5322 section 3.2.3, and the blank.
bool needsQuotes(std::string_view name) {
    return name.find_first_of(" ()<>@,;:\\\".[]") != std::string_view::npos;
}

// A phrase of its own: as it is, between quotes, or as encoded words.
std::string formatName(const std::string& name, uint32_t codePage) {
    if (!needsEncoding(name)) {
        std::string written = needsQuotes(name) ? quotedString(name) : name;
        if (written.size() <= kLongestPlainName) return written;
    }
    return encodedWords(name, codePage, WordPlace::Phrase);
}

std::string formatItem(const _tvEmailAddress& mailbox, uint32_t codePage, AddressForm form) {
    const std::string& name = mailbox.name();
    const std::string& address = mailbox.address();
    if (!form.utf8 && !isAscii(address)) {
        const std::string shown = name.empty() ? address : name + ' ' + address;
        return encodedWords(shown, kCodePageUtf8, WordPlace::Phrase) + " :;";
    }
    if (name.empty()) return form.brackets ? '<' + address + '>' : address;
    return formatName(name, codePage) + " <" + address + '>';
}

}  // namespace

std::string formatAddressList(std::span<const _tvEmailAddress> list, uint32_t codePage,
                              AddressForm form) {
    std::string out;
    size_t line = 0;
    for (const _tvEmailAddress& mailbox : list) {
        const std::string item = formatItem(mailbox, codePage, form);
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
