// Lists of mailboxes: as a host writes several into one text, and as a header field carries them.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "mime/tvEmailAddress.h"

namespace tv {

// The mailboxes of a text that a host wrote, for the envelope and for the header alike:
// "a@x; Anna <b@y>, \"Doe, John\" <c@z>". They end at ";", at line breaks and at ">"; at a comma
// only behind an address, so that "Smith, Anna <a@b>" is one. Outside of quotes "mailto:" and
// comments count for nothing, and a group ("Team: a@b, c@d;") is its members. A name without "@"
// is a mailbox where it stands for the whole text, alone or in brackets. What cannot be an address
// is left out; so is a domain that has no ASCII form.
std::vector<_tvEmailAddress> parseMailboxes(std::string_view text);
// leftOut: the pieces of the text that were.
std::vector<_tvEmailAddress> parseMailboxes(std::string_view text,
                                            std::vector<std::string_view>& leftOut);
// The address of the first of them; empty if there is none.
std::string firstAddress(std::string_view text);

// How addresses stand in a header.
struct AddressForm {
    bool utf8 = false;      // that only servers with SMTPUTF8 get (RFC 6532)
    bool brackets = false;  // around an address without a name, too
};

// The value of a To, Cc, Bcc or From field, folded where a line grows long. Names outside ASCII
// become encoded words of the code page. So does, in utf-8, an address that has no other 7-bit
// form, together with its name: as the name of an empty group, which a reader shows and no program
// replies to (RFC 6857 section 3.1.8).
std::string formatAddressList(std::span<const _tvEmailAddress> list, uint32_t codePage,
                              AddressForm form = {});

}  // namespace tv
