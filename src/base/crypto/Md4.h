// MD4 (RFC 1320). Broken as a hash; NTLM still derives its keys with it.
#pragma once

#include "base/crypto/MdCore.h"

namespace tv::crypto {

struct Md4Core : MdCore {
    static void compress(State& state, const uint8_t* blocks, size_t count);
};

using Md4 = BlockDigest<Md4Core>;

}  // namespace tv::crypto
