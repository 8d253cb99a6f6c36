#include "base/Random.h"

#include "platform/SysRandom.h"

namespace tv {

bool randomBytes(std::span<uint8_t> out) {
    return plat::sysRandom().fill(out.data(), out.size()) == out.size();
}

}  // namespace tv
