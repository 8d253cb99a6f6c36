// Random bytes from the system's source; a short delivery counts as none.
#include "base/Random.h"

#include "platform/SysRandom.h"

namespace tv {

bool randomBytes(std::span<uint8_t> out) {
    return plat::sysRandom().fill(out.data(), out.size()) == out.size();
}

}  // namespace tv
