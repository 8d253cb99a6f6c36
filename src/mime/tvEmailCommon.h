// What all nodes of one message share: the charset decision for its text bodies and header text.
#pragma once

#include <cstdint>

namespace tv {

struct _tvEmailCommon {
    uint32_t codePage = 0;  // of the message; 0 as long as no text has asked for one
};

}  // namespace tv
