// What the files with AES instructions share.
#pragma once

#include <cstdint>

#include "base/crypto/Load_x86.h"

#define TV_AES_TARGET __attribute__((target("aes,sse2")))
#define TV_AES_INLINE TV_AES_TARGET __attribute__((always_inline)) inline

namespace tv::crypto {

// The S-box on each byte of a word.
uint32_t subWordAesNi(uint32_t word);

}  // namespace tv::crypto
