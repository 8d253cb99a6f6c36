// A block of extensions: (type, length, body), no type twice (RFC 8446, 4.2).
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>

#include "base/ByteReader.h"
#include "base/Cause.h"
#include "net/tls/TlsTypes.h"

namespace tv::tls {

// Each is held against those before it, and messages have a dozen.
constexpr size_t kMaxExtensions = 64;

// Visits each extension in its order until visit(type, body) answers a failure.
template <class Visit>
Cause walkExtensions(std::span<const uint8_t> block, Visit visit) {
    std::array<uint16_t, kMaxExtensions> seen{};
    size_t count = 0;
    ByteReader r(block);
    while (r.ok() && !r.atEnd()) {
        const uint16_t number = r.u16();
        const std::span<const uint8_t> body = r.vector16();
        if (!r.ok() || count == kMaxExtensions) return Cause::TlsDecodeError;
        if (std::find(seen.begin(), seen.begin() + count, number) != seen.begin() + count) {
            return Cause::TlsIllegalParameter;
        }
        seen[count++] = number;
        const Cause failure = visit(static_cast<ExtensionType>(number), body);
        if (failure != Cause::None) return failure;
    }
    return r.complete() ? Cause::None : Cause::TlsDecodeError;
}

}  // namespace tv::tls
