// The hosts-file reader on any text: what it finds for a name stands in a line that names it.
#include <algorithm>
#include <cstdlib>
#include <string>

#include "base/Ascii.h"
#include "net/resolve/HostsFile.h"

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const tv::HostsTable table(text);
    require(table.size() <= size);
    const std::string lower = tv::asciiLower(text);
    // Every word of the file, and one that need not be there.
    std::string_view rest = lower;
    for (int words = 0; words < 64 && !rest.empty(); ++words) {
        const size_t end = std::min(rest.find_first_of(" \t\r\n#"), rest.size());
        const std::string_view word = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        std::vector<tv::plat::IpAddress> out;
        require(table.find(word, out) == !out.empty());
        for (const auto& address : out) {
            require(address.isIpv4() && tv::plat::parseIpv4(tv::plat::toText(address)) == address);
        }
    }
    std::vector<tv::plat::IpAddress> out;
    require(!table.find("", out) || lower.find('.') != std::string::npos);
    return 0;
}
