// Host names to wire form, and names out of a message with the pointers followed.
#include "net/dns/DnsName.h"

#include <algorithm>

#include "base/Ascii.h"

namespace tv::dns {
namespace {

// RFC 1035 section 2.3.4; a length with both upper bits set is a pointer (section 4.1.4).
constexpr size_t kMaxName = 255;
constexpr size_t kMaxLabel = 63;
constexpr uint8_t kPointer = 0xC0;
// A name has no more than 127 labels, and servers compress with one pointer or two.
constexpr int kMaxPointers = 64;

}  // namespace

bool encodeName(std::string_view host, WireName& out) {
    out.clear();
    if (!host.empty() && host.back() == '.') host.remove_suffix(1);
    for (bool more = true; more;) {
        const size_t dot = std::min(host.find('.'), host.size());
        if (dot == 0 || dot > kMaxLabel) return false;
        out += static_cast<char>(dot);
        out += asciiLower(host.substr(0, dot));
        more = dot < host.size();
        host.remove_prefix(dot + (more ? 1 : 0));
    }
    out += '\0';
    return out.size() <= kMaxName;
}

bool readName(ByteReader& in, std::span<const uint8_t> message, WireName& out) {
    out.clear();
    ByteReader labels = in;
    size_t lowest = in.position();
    size_t behind = 0;  // the first pointer, once there was one
    int pointers = 0;
    for (;;) {
        const uint8_t length = labels.u8();
        if (length >= kPointer) {
            const size_t target = static_cast<size_t>((length & ~kPointer) << 8) | labels.u8();
            if (!labels.ok() || target >= lowest || ++pointers > kMaxPointers) break;
            if (behind == 0) behind = labels.position();
            labels = ByteReader(message);
            labels.seek(target);
            lowest = target;
            continue;
        }
        const std::span<const uint8_t> label = labels.bytes(length);
        if (!labels.ok() || length > kMaxLabel || out.size() + 1 + length > kMaxName) break;
        out += static_cast<char>(length);
        for (const uint8_t byte : label) {
            out += asciiLower(static_cast<char>(byte));
        }
        if (length != 0) continue;
        in.seek(behind != 0 ? behind : labels.position());
        return in.ok();
    }
    in.fail();
    return false;
}

}  // namespace tv::dns
