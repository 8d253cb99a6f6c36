// The reader of name-server settings on any text: bounded lists without doubles, suffixes without
// dots around them.
#include <algorithm>
#include <cstdlib>

#include "net/resolve/NameServers.h"

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    tv::NameServers found;
    tv::parseResolvConf(text, found);
    require(found.addresses.size() <= tv::NameServers::kMost && found.suffixes.size() <= 32);
    for (const auto& address : found.addresses) {
        require(std::count(found.addresses.begin(), found.addresses.end(), address) == 1);
        require(tv::plat::parseIp(tv::plat::toText(address)).has_value());
    }
    for (const std::string& suffix : found.suffixes) {
        require(!suffix.empty() && suffix.front() != '.' && suffix.back() != '.');
        require(found.isInside(suffix) && found.isInside("mail." + suffix + "."));
    }
    found.isInside(text);
    return 0;
}
