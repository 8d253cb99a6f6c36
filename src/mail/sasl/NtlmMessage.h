// The three messages of NTLM (MS-NLMP section 2.2.1) as records that encode and decode themselves.
// Pure: no log, no clock, no random source.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "base/SecureBuffer.h"

namespace tv {

namespace ntlm {

constexpr uint32_t kUnicode = 0x00000001;
constexpr uint32_t kOem = 0x00000002;
constexpr uint32_t kRequestTarget = 0x00000004;
constexpr uint32_t kNtlm = 0x00000200;
constexpr uint32_t kNtOnly = 0x00000400;  // the LM response repeats the NT response
constexpr uint32_t kOemDomainSupplied = 0x00001000;
constexpr uint32_t kOemWorkstationSupplied = 0x00002000;
constexpr uint32_t kAlwaysSign = 0x00008000;
constexpr uint32_t kExtendedSessionSecurity = 0x00080000;
constexpr uint32_t kVersion = 0x02000000;
constexpr uint32_t kKeyExchange = 0x40000000;  // a session key of the client's own

constexpr size_t kMicSize = 16;

using Bytes = std::vector<uint8_t>;
using Challenge = std::array<uint8_t, 8>;

}  // namespace ntlm

struct NtlmOsVersion {
    uint8_t major = 0;
    uint8_t minor = 0;
    uint16_t build = 0;
    uint8_t revision = 15;

    bool operator==(const NtlmOsVersion&) const = default;
};

// Why a message cannot be read.
enum class NtlmDefect : uint8_t { None, Signature, Type, TargetName, TargetInfo, Field };

// Type 1. A version is written and read where the flags say so, in all three messages.
struct NtlmNegotiate {
    uint32_t flags = 0;
    ntlm::Bytes domain;  // OEM code page
    ntlm::Bytes workstation;
    NtlmOsVersion version;

    // Nothing if a text is too long for its place.
    std::optional<ntlm::Bytes> encode() const;
    NtlmDefect decode(std::span<const uint8_t> message);
};

// Type 2.
struct NtlmChallenge {
    uint32_t flags = 0;
    ntlm::Challenge challenge{};
    ntlm::Bytes targetName;
    ntlm::Bytes targetInfo;  // attribute-value pairs, as received
    NtlmOsVersion version;

    std::optional<ntlm::Bytes> encode() const;
    // Fields that a short message lacks are zero; a buffer that leaves the message is refused.
    NtlmDefect decode(std::span<const uint8_t> message);
};

// Type 3.
struct NtlmAuthenticate {
    uint32_t flags = 0;
    SecureBuffer lmResponse;
    SecureBuffer ntResponse;
    SecureBuffer domain;  // UTF-16LE or OEM, by the flags
    SecureBuffer userName;
    SecureBuffer workstation;
    std::optional<SecureBuffer> sessionKey;  // absent: its buffer stays zero
    NtlmOsVersion version;
    // Room for a MIC, still zero: it is computed over the whole message. decode does not look for
    // one.
    bool hasMic = false;
    static constexpr size_t kMicOffset = 72;

    std::optional<SecureBuffer> encode() const;
    NtlmDefect decode(std::span<const uint8_t> message);
};

}  // namespace tv
