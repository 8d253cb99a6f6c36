// getrandom, which needs no file and waits only until the kernel has been seeded.
#include "platform/SysRandom.h"

#include <errno.h>
#include <sys/random.h>

#include "platform/Replaceable.h"

namespace tv::plat {
namespace {

class PosixRandom final : public SysRandom {
public:
    size_t fill(uint8_t* out, size_t size) override {
        size_t done = 0;
        while (done < size) {
            const ssize_t got = getrandom(out + done, size - done, 0);
            if (got > 0) {
                done += static_cast<size_t>(got);
            } else if (got == 0 || errno != EINTR) {
                break;
            }
        }
        return done;
    }
};

}  // namespace

SysRandom& sysRandom() {
    return Replaceable<SysRandom>::get<PosixRandom>();
}

}  // namespace tv::plat
