// The trust anchors that the system keeps, and the system's own opinion of a chain.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/Replaceable.h"

namespace tv::plat {

using DerList = std::vector<std::vector<uint8_t>>;

class SysTrustRoots {
public:
    virtual ~SysTrustRoots() = default;
    // Windows: the certificates of the ROOT store that it gives for server authentication, without
    // conditions that only Windows can weigh. POSIX: none; see anchorFiles.
    virtual DerList anchors() = 0;
    // Windows: those of the store "Disallowed". POSIX: none.
    virtual DerList refused() = 0;
    // PEM files in which distributions keep their anchors, the first existing one counts. Windows:
    // none.
    virtual std::vector<std::string> anchorFiles() = 0;
    // Windows: the path that the system found for the chain and trusts for a TLS server, the
    // server's certificate first and the root last; roots that the system has not met yet are
    // fetched, within timeoutMs. host is empty where its name is not to be looked at. False where
    // the system says no or has no opinion; reason then says why.
    virtual bool findPath(const DerList& chain, const std::string& host, uint32_t timeoutMs,
                          DerList& path, std::string& reason) = 0;
};

SysTrustRoots& sysTrustRoots();

// For tests: as replaceSysClock.
inline SysTrustRoots* replaceSysTrustRoots(SysTrustRoots* source) {
    return Replaceable<SysTrustRoots>::replace(source);
}

}  // namespace tv::plat
