// What is the same on every system: the start of a file, read with a limit.
#include "platform/SysFile.h"

#include <algorithm>

namespace tv::plat {

bool readFileStart(std::string_view utf8Path, size_t most, std::string& out) {
    constexpr size_t kStep = 65536;  // so that a small file takes little memory
    out.clear();
    SysFile file;
    if (!file.openRead(utf8Path)) return false;
    while (out.size() < most) {
        const size_t have = out.size();
        out.resize(have + std::min(kStep, most - have));
        size_t got = 0;
        if (!file.read(out.data() + have, out.size() - have, got)) return false;
        out.resize(have + got);
        if (got == 0) break;
    }
    return true;
}

}  // namespace tv::plat
