// Distributions keep their anchors in files; there is no system to ask.
#include "platform/SysTrustRoots.h"

#include "platform/Replaceable.h"

namespace tv::plat {
namespace {

class BundleFiles final : public SysTrustRoots {
public:
    DerList anchors() override { return {}; }
    DerList refused() override { return {}; }
    std::vector<std::string> anchorFiles() override {
        return {"/etc/ssl/certs/ca-certificates.crt",                 // Debian and its kin
                "/etc/pki/ca-trust/extracted/pem/tls-ca-bundle.pem",  // Fedora and its kin
                "/etc/ssl/ca-bundle.pem",                             // openSUSE
                "/etc/ssl/cert.pem"};                                 // Alpine and others
    }
    bool findPath(const DerList&, const std::string&, uint32_t, DerList&,
                  std::string& reason) override {
        reason = "The system has no opinion on certificates.";
        return false;
    }
};

}  // namespace

SysTrustRoots& sysTrustRoots() {
    return Replaceable<SysTrustRoots>::get<BundleFiles>();
}

}  // namespace tv::plat
