// Address lists as hosts write them: split, taken apart, written as a header field, and read again.
#include <algorithm>
#include <cstdlib>

#include "base/Ascii.h"
#include "mime/AddressList.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

// What a receiver reads in the header is what the envelope names.
bool sameAddresses(const std::vector<tv::_tvEmailAddress>& sent,
                   const std::vector<tv::_tvEmailAddress>& read) {
    return std::equal(sent.begin(), sent.end(), read.begin(), read.end(),
                      [](const auto& a, const auto& b) { return a.address() == b.address(); });
}

// A line break is only ever a fold.
void requireFoldsOnly(std::string_view field) {
    for (size_t at = 0; (at = field.find_first_of("\r\n", at)) != std::string::npos; at += 3) {
        require(field.substr(at).starts_with("\r\n "));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const std::vector<tv::_tvEmailAddress> list = tv::parseMailboxes(text);
    for (const tv::_tvEmailAddress& mailbox : list) {
        require(!mailbox.empty());
        require(mailbox.address().find_first_of(std::string_view("\r\n\0", 3)) ==
                std::string::npos);
        // the envelope reads it again
        require(tv::firstAddress(mailbox.address()) == mailbox.address());
    }
    for (const uint32_t codePage : {0u, 65001u, 28592u, 932u}) {
        const std::string field = tv::formatAddressList(list, codePage);
        require(tv::isAscii(field));
        requireFoldsOnly(field);
        const std::string utf8 = tv::formatAddressList(list, codePage, tv::AddressForm::Utf8);
        requireFoldsOnly(utf8);
        require(sameAddresses(list, tv::parseMailboxes(tv::replaceAll(utf8, "\r\n", ""))));
    }
    return 0;
}
