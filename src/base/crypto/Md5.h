// MD5 (RFC 1321). For CRAM-MD5, NTLM and the old versions of TLS alone.
#pragma once

#include "base/crypto/MdCore.h"

namespace tv::crypto {

struct Md5Core : MdCore {
    static void compress(State& state, const uint8_t* blocks, size_t count);
};

using Md5 = BlockDigest<Md5Core>;

}  // namespace tv::crypto
