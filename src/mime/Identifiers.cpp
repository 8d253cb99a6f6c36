// Random digits in a boundary, given bytes in the others, and the name of the computer behind them.
#include "mime/Identifiers.h"

#include <algorithm>

#include "base/Ascii.h"
#include "base/Hex.h"
#include "base/ShuffleRandom.h"
#include "platform/SysHost.h"

namespace tv {
namespace {

std::string hostPart() {
    std::string name = plat::sysHost().computerName();
    std::erase_if(name, [](char c) { return !isAsciiAlnum(c); });
    return name.empty() ? "unknown" : name;
}

}  // namespace

// Twelve digits that nobody can foresee, each behind a zero: the form is what receivers know.
std::string newBoundary() {
    std::string boundary(12, '-');
    for (int pair = 0; pair < 12; ++pair) {
        boundary += '0';
        boundary += static_cast<char>('0' + boundaryRandom().digit());
    }
    return boundary;
}

std::string messageIdOf(std::span<const uint8_t> bytes) {
    return '<' + hexUpper(bytes) + '@' + hostPart() + '>';
}

std::string contentIdOf(std::span<const uint8_t, 16> random) {
    uint8_t uuid[16];
    std::copy(random.begin(), random.end(), uuid);
    // RFC 9562 section 5.4: the bits that say version 4. The groups are those of section 4.
    uuid[6] = static_cast<uint8_t>((uuid[6] & 0x0F) | 0x40);
    uuid[8] = static_cast<uint8_t>((uuid[8] & 0x3F) | 0x80);
    std::string text = hexLower(uuid);
    for (const size_t at : {8u, 13u, 18u, 23u}) {
        text.insert(at, 1, '-');
    }
    return "<CID-" + text + '@' + hostPart() + '>';
}

}  // namespace tv
