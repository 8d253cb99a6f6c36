// What NTLM computes from a password (MS-NLMP section 3.3): the hashes and the responses of both
// versions. Pure. Texts are UTF-8.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "base/SecureBuffer.h"

namespace tv::ntlm {

// 16 bytes each.
SecureBuffer ntHash(std::string_view password);
SecureBuffer lmHash(std::string_view password, uint32_t oemCodePage);
// The key of version 2. The domain counts as it is written.
SecureBuffer ntowfV2(std::string_view user, std::string_view password, std::string_view domain);

// 8 bytes of data under the three DES keys of a 16-byte key: 24 bytes.
SecureBuffer desl(std::span<const uint8_t> key, std::span<const uint8_t> data);

struct Responses {
    SecureBuffer lm;
    SecureBuffer nt;
    SecureBuffer sessionBaseKey;  // of version 2 alone
};

struct Secret {
    std::string_view user;
    std::string_view password;
    std::string_view domain;
    uint32_t oemCodePage = 0;
};

// Both challenges are 8 bytes.
Responses computeNtlmV1Response(const Secret& secret, uint32_t serverFlags,
                                std::span<const uint8_t> serverChallenge,
                                std::span<const uint8_t> clientChallenge);
// time counts 100 ns since 1601.
Responses computeNtlmV2Response(const Secret& secret, std::span<const uint8_t> serverChallenge,
                                std::span<const uint8_t> clientChallenge, uint64_t time,
                                std::span<const uint8_t> targetInfo);

// What shows a change of any of the three messages (section 3.1.5.1.2), the third one with zeros in
// its place.
SecureBuffer mic(std::span<const uint8_t> sessionKey, std::span<const uint8_t> negotiate,
                 std::span<const uint8_t> challenge, std::span<const uint8_t> authenticate);

}  // namespace tv::ntlm
