#include "mail/smtp/DotStuffer.h"

#include <cstring>

#include "base/CpuFeatures.h"
#include "mail/smtp/DotStufferScan.h"

namespace tv {

const uint8_t* findLineDotPortable(const uint8_t* in, const uint8_t* end) {
    while (end - in >= 2) {
        // The last byte is left out: what follows it is not known yet.
        const void* found = std::memchr(in, '\n', static_cast<size_t>(end - in) - 1);
        if (!found) return nullptr;
        const uint8_t* lineFeed = static_cast<const uint8_t*>(found);
        if (lineFeed[1] == '.') return lineFeed + 1;
        in = lineFeed + 1;
    }
    return nullptr;
}

const uint8_t* findLineDot(const uint8_t* in, const uint8_t* end) {
    return cpuFeatures().sse2 ? findLineDotSse2(in, end) : findLineDotPortable(in, end);
}

bool DotStuffer::write(std::span<const uint8_t> bytes) {
    if (bytes.empty()) return true;
    const uint8_t* from = bytes.data();
    const uint8_t* const end = from + bytes.size();
    if (afterLineFeed_ && *from == '.' && !out_.write(std::string_view("."))) return false;
    afterLineFeed_ = end[-1] == '\n';
    // Each piece ends with the dot of a line, and the next begins with the same dot again.
    for (const uint8_t* at = from; (at = findLineDot(at, end)) != nullptr; from = at) {
        if (!out_.write({from, at + 1})) return false;
    }
    return out_.write({from, end});
}

}  // namespace tv
