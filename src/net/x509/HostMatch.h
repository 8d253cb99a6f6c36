// Does a certificate speak for a host (RFC 6125, RFC 9525)?
// Names are taken as bytes; nothing but letters, digits, "-", "_" and "." is a name of a host.
#pragma once

#include <string>
#include <string_view>

#include "net/x509/X509Cert.h"

namespace tv::x509 {

// host is a name in ASCII form or an address in text form. Names in SubjectAltName decide; the
// common name counts only in a certificate without that extension.
bool matchesHost(const Certificate& certificate, std::string_view host);

// "*.example.com" matches exactly one label in the place of the asterisk, which must be the whole
// first label and must have at least two labels behind it. A dot that ends the host does not count.
bool matchesDnsPattern(std::string_view pattern, std::string_view host);

// Bytes of an address in text form (4 or 16); empty for anything else.
std::vector<uint8_t> addressBytes(std::string_view text);

// Such bytes as text, groups of an IPv6 address in full; empty for any other number of them.
std::string addressText(Bytes address);

// Letters, digits, hyphens, underscores and dots, no empty label, no dot at the end.
bool isDnsName(std::string_view name);

std::string_view withoutFinalDot(std::string_view name);

}  // namespace tv::x509
