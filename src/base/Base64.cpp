// The portable encoder, the encoder for secrets, the decoder, and the choice among the encoder's
// forms; those for vector units stand in Base64_x86.cpp.
#include "base/Base64.h"

#include "base/Ascii.h"
#include "base/ConstTime.h"

namespace tv {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Two characters at a time: 12 bits select a pair.
struct PairTable {
    char pairs[4096][2];
    constexpr PairTable() : pairs() {
        for (size_t i = 0; i < 4096; ++i) {
            pairs[i][0] = kAlphabet[i >> 6];
            pairs[i][1] = kAlphabet[i & 63];
        }
    }
};
constexpr PairTable kPairs;

void encodeGroupsPortable(const uint8_t* in, size_t groups, char* out) {
    for (; groups != 0; --groups, in += 3, out += 4) {
        const uint32_t bits = static_cast<uint32_t>(in[0] << 16 | in[1] << 8 | in[2]);
        const char* first = kPairs.pairs[bits >> 12];
        const char* second = kPairs.pairs[bits & 0xFFF];
        out[0] = first[0];
        out[1] = first[1];
        out[2] = second[0];
        out[3] = second[1];
    }
}

void encodeLinesPortable(const uint8_t* in, size_t count, char* out) {
    for (; count != 0; --count, in += kBase64LineBytes, out += kBase64LineWithBreak) {
        encodeGroupsPortable(in, kBase64LineBytes / 3, out);
        out[kBase64LineChars] = '\r';
        out[kBase64LineChars + 1] = '\n';
    }
}

// 1 or 2 bytes and their padding; letter gives the character of a 6-bit value.
template <class Letter>
void encodeTail(const uint8_t* in, size_t size, Letter letter, char* out) {
    const uint32_t second = size == 2 ? in[1] : 0u;
    out[0] = letter(in[0] >> 2u);
    out[1] = letter((in[0] & 3u) << 4 | second >> 4);
    out[2] = size == 2 ? letter((second & 15) << 2) : '=';
    out[3] = '=';
}

// The character of a 6-bit value by arithmetic alone: each range above the first adds its step.
char secretLetter(uint32_t value) {
    uint32_t c = value + 'A';
    c += ctIsLess(25u, value) & ('a' - 'A' - 26u);
    c -= ctIsLess(51u, value) & ('a' - '0' + 26u);
    c -= ctIsLess(61u, value) & ('0' + 10u - '+');
    c += ctIsLess(62u, value) & ('/' - '+' - 1u);
    return static_cast<char>(c);
}

constexpr uint8_t kNoDigit = 0xFF;

struct DigitTable {
    uint8_t digits[256];
    constexpr DigitTable() : digits() {
        for (uint8_t& digit : digits) {
            digit = kNoDigit;
        }
        for (uint8_t i = 0; i < 64; ++i) {
            digits[static_cast<uint8_t>(kAlphabet[i])] = i;
        }
    }
};
constexpr DigitTable kDigits;

// The characters that count: all, or all but spaces.
std::string withoutSpaces(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        if (!isBlank(c)) out += c;
    }
    return out;
}

// Appends the 1 to 3 bytes of one group; padding counts the "=" at its end.
bool decodeGroup(std::string_view group, size_t padding, std::vector<uint8_t>& out) {
    uint32_t bits = 0;
    for (size_t i = 0; i < 4; ++i) {
        const uint8_t digit = i < 4 - padding ? kDigits.digits[static_cast<uint8_t>(group[i])] : 0;
        if (digit == kNoDigit) return false;
        bits = bits << 6 | digit;
    }
    // Bits behind the last byte must be zero (RFC 4648 section 3.5): else several texts would stand
    // for the same bytes.
    const uint32_t unused = padding == 2 ? 0xFFFF : padding == 1 ? 0xFF : 0;
    if ((bits & unused) != 0) return false;
    for (size_t i = 0; i < 3 - padding; ++i) {
        out.push_back(static_cast<uint8_t>(bits >> (16 - 8 * i)));
    }
    return true;
}

std::optional<std::vector<uint8_t>> decodeDense(std::string_view text, size_t limit) {
    if (text.size() % 4 != 0) return std::nullopt;
    size_t padding = 0;
    if (text.ends_with('=')) padding = text.ends_with("==") ? 2 : 1;
    const size_t size = text.size() / 4 * 3 - padding;
    if (size > limit) return std::nullopt;
    std::vector<uint8_t> out;
    out.reserve(size);
    for (size_t at = 0; at < text.size(); at += 4) {
        const bool last = at + 4 == text.size();
        if (!decodeGroup(text.substr(at, 4), last ? padding : 0, out)) return std::nullopt;
    }
    return out;
}

// Fastest first.
constexpr const Base64Form* kForms[] = {
#if defined(__x86_64__) || defined(__i386__)
    &kBase64Avx512,
    &kBase64Avx2,
    &kBase64Ssse3,
#endif
    &kBase64Portable,
};

}  // namespace

constinit const Base64Form kBase64Portable = {"portable", alwaysUsable, encodeLinesPortable,
                                              encodeGroupsPortable};

constinit Dispatch<Base64Form> base64Forms{kForms};

void base64EncodeTo(std::span<const uint8_t> bytes, char* out) {
    const size_t groups = bytes.size() / 3;
    const size_t tail = bytes.size() % 3;
    if (groups != 0) base64Forms.get().encodeGroups(bytes.data(), groups, out);
    if (tail != 0) {
        const auto letter = [](uint32_t value) { return kAlphabet[value]; };
        encodeTail(bytes.data() + groups * 3, tail, letter, out + groups * 4);
    }
}

void base64EncodeLines(const uint8_t* in, size_t count, char* out) {
    base64Forms.get().encodeLines(in, count, out);
}

std::string base64Encode(std::span<const uint8_t> bytes) {
    std::string out(base64Length(bytes.size()), '\0');
    base64EncodeTo(bytes, out.data());
    return out;
}

std::string base64Encode(std::string_view bytes) {
    return base64Encode(std::span(bytesOf(bytes), bytes.size()));
}

SecureBuffer base64EncodeSecret(std::span<const uint8_t> bytes) {
    SecureBuffer out(base64Length(bytes.size()));
    char* to = reinterpret_cast<char*>(out.data());
    size_t at = 0;
    for (; at + 3 <= bytes.size(); at += 3, to += 4) {
        const uint32_t bits =
            static_cast<uint32_t>(bytes[at] << 16 | bytes[at + 1] << 8 | bytes[at + 2]);
        for (unsigned i = 0; i < 4; ++i) {
            to[i] = secretLetter(bits >> (18 - 6 * i) & 63);
        }
    }
    if (at < bytes.size()) encodeTail(&bytes[at], bytes.size() - at, secretLetter, to);
    return out;
}

std::optional<std::vector<uint8_t>> base64Decode(std::string_view text, size_t limit,
                                                 Base64Spaces spaces) {
    if (spaces == Base64Spaces::Skipped) return decodeDense(withoutSpaces(text), limit);
    return decodeDense(text, limit);
}

}  // namespace tv
