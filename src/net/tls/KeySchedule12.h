// Keys of TLS 1.0 to 1.2: the pseudo-random function and what is cut from it (RFC 5246,
// 5, 6.3, 8.1; RFC 4346, 5; RFC 7627).
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "base/SecureBuffer.h"
#include "net/tls/RecordCipher.h"

namespace tv::tls {

// RFC 5246, 8.1 and 7.4.9.
constexpr size_t kMasterSecretSize = 48;
constexpr size_t kVerifyDataSize = 12;

// Fills out. hash is the suite's and counts from TLS 1.2 on; before, MD5 and SHA-1 are mixed.
void prf12(Version version, crypto::HashId hash, std::span<const uint8_t> secret,
           std::string_view label, std::span<const uint8_t> seed, std::span<uint8_t> out);

// label "master secret" over both randoms, or "extended master secret" over the session hash.
SecureBuffer masterSecret12(Version version, crypto::HashId hash,
                            std::span<const uint8_t> premaster, bool extended,
                            std::span<const uint8_t> seed);

struct KeyBlock12 {
    RecordKeys client;
    RecordKeys server;
};
KeyBlock12 keyBlock12(Version version, const CipherSuite& suite, std::span<const uint8_t> master,
                      std::span<const uint8_t> clientRandom, std::span<const uint8_t> serverRandom);

std::vector<uint8_t> verifyData12(Version version, crypto::HashId hash,
                                  std::span<const uint8_t> master, bool fromClient,
                                  std::span<const uint8_t> transcriptHash);

}  // namespace tv::tls
