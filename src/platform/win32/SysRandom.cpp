// Random bytes by RtlGenRandom, which needs no provider to be opened.
#include "platform/SysRandom.h"

#include <windows.h>

#include "platform/Replaceable.h"

// RtlGenRandom: exported under this name by advapi32 on every Windows this runs on.
extern "C" BOOLEAN NTAPI SystemFunction036(PVOID buffer, ULONG length);

namespace tv::plat {
namespace {

class WindowsRandom final : public SysRandom {
public:
    size_t fill(uint8_t* out, size_t size) override {
        size_t done = 0;
        while (done < size) {
            const size_t left = size - done;
            // The length is 32 bits there; steps keep it so for any size.
            const ULONG step = left > 0x10000 ? 0x10000 : static_cast<ULONG>(left);
            if (!SystemFunction036(out + done, step)) break;
            done += step;
        }
        return done;
    }
};

}  // namespace

SysRandom& sysRandom() {
    return Replaceable<SysRandom>::get<WindowsRandom>();
}

}  // namespace tv::plat
