// Base64 (RFC 4648 section 4) for mail bodies, logins and certificates. The encoder has a portable
// form and faster ones for the vector units of the CPU; all give the same characters.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/Dispatch.h"
#include "base/SecureBuffer.h"

namespace tv {

// Bytes in one line of a mail body (RFC 2045 section 6.8), its characters, and those with CR LF.
constexpr size_t kBase64LineBytes = 57;
constexpr size_t kBase64LineChars = 76;
constexpr size_t kBase64LineWithBreak = kBase64LineChars + 2;

// Characters for n bytes, padding included. n is at most three quarters of the largest size_t.
constexpr size_t base64Length(size_t n) {
    return (n / 3 + (n % 3 != 0)) * 4;
}

// In one piece, without line breaks, padded with "=".
std::string base64Encode(std::span<const uint8_t> bytes);
std::string base64Encode(std::string_view bytes);
// The same for secrets: no branch and no memory address depends on the bytes; the result is wiped.
SecureBuffer base64EncodeSecret(std::span<const uint8_t> bytes);

// Writes base64Length(bytes.size()) characters to out, which does not overlap the bytes.
void base64EncodeTo(std::span<const uint8_t> bytes, char* out);
// Encodes count lines of 57 bytes to 76 characters and CR LF each.
void base64EncodeLines(const uint8_t* in, size_t count, char* out);

enum class Base64Spaces { Refused, Skipped };

// The bytes of a base64 text, or nothing if it holds a character outside the alphabet, is not
// padded to a multiple of four, has bits set behind its last byte, or has more than limit bytes.
// Skipped spaces are blank, tab, CR and LF anywhere.
std::optional<std::vector<uint8_t>> base64Decode(std::string_view text, size_t limit,
                                                 Base64Spaces spaces = Base64Spaces::Refused);

// One way of encoding: in lines of 57 bytes, and in groups of 3 bytes to 4 characters.
struct Base64Form {
    const char* name;
    bool (*usable)();
    void (*encodeLines)(const uint8_t* in, size_t count, char* out);
    void (*encodeGroups)(const uint8_t* in, size_t groups, char* out);
};

extern const Base64Form kBase64Avx512, kBase64Avx2, kBase64Ssse3;  // on x86 only
extern const Base64Form kBase64Portable;
// What all encoding but that of secrets goes through.
extern Dispatch<Base64Form> base64Forms;

}  // namespace tv
