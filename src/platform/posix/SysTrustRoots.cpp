#include "platform/SysTrustRoots.h"

namespace tv::plat {

DerList systemTrustAnchors() {
    return {};
}

std::vector<std::string> trustAnchorFiles() {
    return {"/etc/ssl/certs/ca-certificates.crt",                 // Debian and its kin
            "/etc/pki/ca-trust/extracted/pem/tls-ca-bundle.pem",  // Fedora and its kin
            "/etc/ssl/ca-bundle.pem",                             // openSUSE
            "/etc/ssl/cert.pem"};                                 // Alpine and others
}

bool systemTrustsChain(const DerList&, uint32_t, std::string& reason) {
    reason = "The system has no opinion on certificates.";
    return false;
}

}  // namespace tv::plat
