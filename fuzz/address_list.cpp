// Address lists as hosts write them: split, taken apart, written as a header field, and read again.
#include "Target.h"
#include "base/Ascii.h"
#include "mime/AddressList.h"

void tv::take(Input input) {
    const std::vector<_tvEmailAddress> list = parseMailboxes(textOf(input));
    for (const _tvEmailAddress& mailbox : list) {
        const std::string& address = mailbox.address();
        require(!mailbox.empty() && address.find_first_of({"\r\n\0", 3}) == std::string::npos);
        require(firstAddress(address) == address);  // the envelope reads it again
    }
    for (const uint32_t codePage : {0u, 65001u, 28592u, 932u}) {
        const std::string field = formatAddressList(list, codePage);
        const std::string utf8 = formatAddressList(list, codePage, {.utf8 = true});
        require(isAscii(field));
        requireSound(field);
        requireSound(utf8);
        // What a receiver reads in the header is what the envelope names.
        require(std::ranges::equal(list, parseMailboxes(replaceAll(utf8, "\r\n", "")), {},
                                   &_tvEmailAddress::address, &_tvEmailAddress::address));
    }
}
