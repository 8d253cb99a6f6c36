// The hosts-file reader on any text: what it finds for a name stands in a line that names it.
#include "Target.h"
#include "base/Ascii.h"
#include "net/resolve/HostsFile.h"

void tv::take(Input input) {
    const HostsTable table(std::string(textOf(input)));
    require(table.size() <= input.size());
    const std::string lower = asciiLower(textOf(input));
    std::string_view rest = lower;
    for (int words = 0; words < 64 && !rest.empty(); ++words) {
        const std::string_view word = rest.substr(0, rest.find_first_of(" \t\r\n#"));
        rest.remove_prefix(std::min(word.size() + 1, rest.size()));
        std::vector<plat::IpAddress> out;
        require(table.find(word, out) == !out.empty());
        for (const auto& address : out) {
            require(address.isIpv4() && plat::parseIpv4(plat::toText(address)) == address);
        }
    }
}
