// Lists of mailboxes: as a host writes several into one text, and as a header field carries them.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "mime/tvEmailAddress.h"

namespace tv {

// The mailboxes of "a@x; Anna <b@y>, \"Doe, John\" <c@z>": split at commas and semicolons outside
// quotes and brackets. Those that come out without an address are left out.
std::vector<_tvEmailAddress> parseMailboxes(std::string_view text);

// The value of a To, Cc, Bcc or From field, folded where a line grows long. Names outside ASCII
// become encoded words of the code page.
std::string formatAddressList(std::span<const _tvEmailAddress> list, uint32_t codePage);

}  // namespace tv
