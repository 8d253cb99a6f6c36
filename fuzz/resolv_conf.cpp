// The reader of name-server settings on any text: bounded lists without doubles, suffixes without
// dots around them.
#include "Target.h"
#include "net/resolve/NameServers.h"

void tv::take(Input input) {
    NameServers found;
    parseResolvConf(textOf(input), found);
    require(found.addresses.size() <= kMostNameServers && found.suffixes.size() <= 32);
    for (const auto& address : found.addresses) {
        require(std::ranges::count(found.addresses, address) == 1);
        require(plat::parseIp(plat::toText(address)).has_value());
    }
    for (const std::string& suffix : found.suffixes) {
        require(!suffix.empty() && suffix.front() != '.' && suffix.back() != '.');
        require(found.isInside(suffix) && found.isInside("mail." + suffix + "."));
    }
    found.isInside(textOf(input));
}
