// Certificates in PEM text (RFC 7468).
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace tv::x509 {

// The DER of every CERTIFICATE block of the text, at most limit of them. Blocks that are damaged
// are left out, and so is everything between blocks.
std::vector<std::vector<uint8_t>> pemCertificates(std::string_view text, size_t limit);

}  // namespace tv::x509
