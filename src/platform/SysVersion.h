// The version of the running system, as messages to servers name it.
#pragma once

#include <cstdint>

namespace tv::plat {

struct SystemVersion {
    uint8_t major = 0;
    uint8_t minor = 0;
    uint16_t build = 0;
};

// Of Windows; other systems name the oldest Windows that is served, which no server refuses.
SystemVersion systemVersion();

}  // namespace tv::plat
