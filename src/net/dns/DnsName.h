// Host names as DNS messages carry them (RFC 1035 sections 3.1 and 4.1.4).
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "base/ByteReader.h"

namespace tv::dns {

// A name in wire form (length, label, ..., 0), not compressed, its letters in lower case: equal
// names have equal bytes. As text a dot inside a label could pass for one between two.
using WireName = std::string;

// False for empty or overlong labels and for names that are too long. A dot at the end is allowed.
bool encodeName(std::string_view host, WireName& out);

// Reads a name that may be compressed; in reads message and stands behind the name afterwards. Each
// pointer has to lead further back than the one before, so that none is followed twice. On failure
// in has failed.
bool readName(ByteReader& in, std::span<const uint8_t> message, WireName& out);

}  // namespace tv::dns
