// The trust anchors that the system keeps, and the system's own opinion of a chain.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tv::plat {

using DerList = std::vector<std::vector<uint8_t>>;

// Windows: the certificates of the ROOT store that do not stand in "Disallowed". POSIX: none; see
// trustAnchorFiles.
DerList systemTrustAnchors();

// PEM files in which distributions keep their anchors, the first existing one counts. Windows:
// none.
std::vector<std::string> trustAnchorFiles();

// Windows: lets the system build and judge the chain, fetching roots it has not met yet, within
// timeoutMs. False where the system says no or has no opinion; reason then says why.
bool systemTrustsChain(const DerList& chain, uint32_t timeoutMs, std::string& reason);

}  // namespace tv::plat
