// The system's cryptographically secure random source.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/Replaceable.h"

namespace tv::plat {

class SysRandom {
public:
    virtual ~SysRandom() = default;
    // Fills size bytes at out and returns how many it could: fewer than size is a failure.
    virtual size_t fill(uint8_t* out, size_t size) = 0;
};

SysRandom& sysRandom();

// For tests: as replaceSysClock.
inline SysRandom* replaceSysRandom(SysRandom* source) {
    return Replaceable<SysRandom>::replace(source);
}

}  // namespace tv::plat
