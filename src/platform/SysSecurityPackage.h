// Login exchanges that the system itself can do, as the user who is logged on or as another.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Replaceable.h"

namespace tv::plat {

struct SecurityIdentity {  // UTF-8
    std::string_view user;
    std::string_view password;
    std::string_view domain;
};

// One exchange; what the system keeps for it is released on destruction.
class SecurityExchange {
public:
    enum class State : uint8_t { Continue, Done, Failed };

    virtual ~SecurityExchange() = default;
    // Takes the server's token (none at first) and makes the next one. Done: it is the last.
    virtual State next(std::span<const uint8_t> in, std::vector<uint8_t>& out,
                       std::string& error) = 0;
};

class SysSecurity {
public:
    virtual ~SysSecurity() = default;
    // Nothing, and the reason in error, where the system does not have the package. Without an
    // identity the exchange is the logged-on user's.
    virtual std::unique_ptr<SecurityExchange> begin(std::string_view package,
                                                    const std::string& target,
                                                    const SecurityIdentity* identity,
                                                    std::string& error) = 0;
};

SysSecurity& sysSecurity();

// For tests: as replaceSysClock.
inline SysSecurity* replaceSysSecurity(SysSecurity* security) {
    return Replaceable<SysSecurity>::replace(security);
}

}  // namespace tv::plat
