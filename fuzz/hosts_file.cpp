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
        for (const auto family : {plat::AddressFamily::IPv4, plat::AddressFamily::IPv6}) {
            std::vector<plat::IpAddress> out;
            require(table.find(word, family, out) == !out.empty());
            for (const auto& address : out) {
                require(address.family == family &&
                        plat::parseIp(plat::toText(address)) == address);
            }
        }
    }
}
