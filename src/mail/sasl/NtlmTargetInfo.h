// The target information of an NTLM challenge (MS-NLMP section 2.2.2.1): what it says of the
// server, and what an answer that is bound to a TLS connection makes of it. Pure.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "base/crypto/Md5.h"
#include "mail/sasl/NtlmMessage.h"

namespace tv {

// The names in it, UTF-8.
struct NtlmTargetNames {
    std::string nbComputer;
    std::string nbDomain;
    std::string dnsComputer;
    std::string dnsDomain;
};
// Reads as far as the pairs are whole.
NtlmTargetNames ntlmTargetNames(std::span<const uint8_t> targetInfo);

namespace ntlm {

// MD5 of the gss_channel_bindings_struct (RFC 2744 section 3.11) that holds nothing but the data.
crypto::Md5::Digest channelBindingHash(std::span<const uint8_t> data);

struct BoundTarget {
    Bytes info;
    std::optional<uint64_t> time;  // the server's, which the answer then goes by; 100 ns since 1601
};
// The pairs as far as they are whole, and that a MIC is there and what the answer is bound to, in
// place of whatever the challenge says of the two (section 3.1.5.1.2).
BoundTarget boundTarget(std::span<const uint8_t> targetInfo, std::span<const uint8_t> bindingHash);

}  // namespace ntlm

}  // namespace tv
