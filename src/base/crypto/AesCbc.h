// AES in CBC mode, for the suites of TLS 1.2 and before.
#pragma once

#include "base/crypto/Aes.h"
#include "base/crypto/Cbc.h"

namespace tv::crypto {

using AesCbc = Cbc<Aes>;

}  // namespace tv::crypto
