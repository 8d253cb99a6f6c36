// What all nodes of one message share: the charset decision for its text bodies and header text.
#pragma once

#include <cstdint>
#include <string>

namespace tv {

struct _tvEmailCommon {
    uint32_t codePage = 0;          // of the message; 0 as long as no text has asked for one
    uint32_t detectedCodePage = 0;  // found in an existing MIME header; 0 for none
    uint32_t preferredCodePage = 0;
    std::string defaultCharset;  // takes the place of us-ascii once a text has 8-bit bytes
};

}  // namespace tv
