// What is the same on every system: the start of a file, read with a limit.
#include "platform/SysFile.h"

#include <algorithm>

namespace tv::plat {

namespace {

constexpr size_t kReadStep = 65536;  // so that a small file takes little memory

bool readStart(SysFile& file, size_t most, std::string& out) {
    out.clear();
    while (out.size() < most) {
        const size_t have = out.size();
        out.resize(have + std::min(kReadStep, most - have));
        size_t got = 0;
        if (!file.read(out.data() + have, out.size() - have, got)) return false;
        out.resize(have + got);
        if (got == 0) break;
    }
    return true;
}

}  // namespace

bool readFileStart(std::string_view utf8Path, size_t most, std::string& out) {
    out.clear();
    SysFile file;
    return file.openRead(utf8Path) && readStart(file, most, out);
}

std::string readTrustedFile(std::string_view utf8Path, size_t most, TrustedFile& out) {
    SysFile file;
    if (!file.openRead(utf8Path)) {
        return isRegularFile(utf8Path) ? "cannot be read by this program" : "is no file";
    }
    std::string why = file.distrust(utf8Path, out.othersRead);
    if (!why.empty()) return why;
    if (!file.stamp(out.stamp)) return "cannot be read";
    // It may be a secret, which must not stay behind in memory that was too small.
    out.bytes.reserve(static_cast<size_t>(std::min<uint64_t>(out.stamp.size, most)) + kReadStep);
    if (!readStart(file, most + 1, out.bytes)) return "cannot be read";
    return out.bytes.size() > most ? "is far too large" : "";
}

}  // namespace tv::plat
