// What names a message and its parts: boundaries, Message-ID, Content-ID.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace tv {

// A fresh boundary for a multipart node (RFC 2046 section 5.1.1): no line of an encoded body has
// it.
std::string newBoundary();

// "<HEX@computer>" of the bytes; the computer name's letters and digits, "unknown" without any.
std::string messageIdOf(std::span<const uint8_t> bytes);

// "<CID-uuid@computer>" with a random UUID (RFC 9562 version 4) of 16 random bytes.
std::string contentIdOf(std::span<const uint8_t, 16> random);

}  // namespace tv
