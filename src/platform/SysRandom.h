// The system's cryptographically secure random source.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tv::plat {

class SysRandom {
public:
    virtual ~SysRandom() = default;
    // Fills size bytes at out and returns how many it could: fewer than size is a failure.
    virtual size_t fill(uint8_t* out, size_t size) = 0;
};

SysRandom& sysRandom();

// For tests: as replaceSysClock.
SysRandom* replaceSysRandom(SysRandom* source);

}  // namespace tv::plat
