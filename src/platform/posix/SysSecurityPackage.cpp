// There are no packages: every exchange is refused with its reason.
#include "platform/SysSecurityPackage.h"

#include "platform/Replaceable.h"

namespace tv::plat {
namespace {

class NoSecurity final : public SysSecurity {
public:
    std::unique_ptr<SecurityExchange> begin(std::string_view, const std::string&,
                                            const SecurityIdentity*, std::string& error) override {
        error = "This system has no security packages.";
        return nullptr;
    }
};

}  // namespace

SysSecurity& sysSecurity() {
    return Replaceable<SysSecurity>::get<NoSecurity>();
}

}  // namespace tv::plat
