// Reading whole files into memory, and whether several fit there together.
#include "emailsend/Files.h"

#include <new>
#include <stdexcept>

#include "base/CodePage.h"
#include "emailsend/Process.h"
#include "platform/SysError.h"
#include "platform/SysFile.h"

namespace emailsend {
namespace {

// For what the plug-in keeps beside the files while it sends: the body in several forms, blocks on
// their way, the dialogue.
constexpr size_t kHeadRoom = 32 * 1024 * 1024;

bool makeRoom(std::string& text, uint64_t size) {
    try {
        if (size > text.max_size()) return false;
        text.resize(static_cast<size_t>(size));
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

bool readAll(tv::plat::SysFile& file, std::string& out) {
    size_t filled = 0;
    for (size_t got = 1; got > 0 && filled < out.size(); filled += got) {
        if (!file.read(out.data() + filled, out.size() - filled, got)) return false;
    }
    out.resize(filled);
    return true;
}

bool lacksMemory(const std::string& path, std::string& error) {
    error = "there is not enough memory for the file " + path;
    return false;
}

}  // namespace

void dropByteOrderMark(std::string& text) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    if (text.starts_with(kByteOrderMark)) text.erase(0, kByteOrderMark.size());
}

bool readFile(const std::string& path, std::string& out, std::string& error) {
    tv::plat::SysFile file;
    uint64_t size = 0;
    const bool opened = file.openRead(path) && file.size(size);
    if (opened && !makeRoom(out, size)) return lacksMemory(path, error);
    if (opened && readAll(file, out)) return true;
    error = "cannot read the file " + path + (opened ? "" : ": " + tv::plat::lastErrorWords());
    return false;
}

bool readPassword(const std::string& path, std::string& password, std::string& error) {
    if (path.empty()) {
        password = environmentVariable("EMAILSEND_PASSWORD");
        return true;
    }
    if (!readFile(path, password, error)) return false;
    dropByteOrderMark(password);
    if (password.ends_with('\n')) password.pop_back();
    if (password.ends_with('\r')) password.pop_back();
    if (password.find('\0') != std::string::npos || !tv::isValidUtf8(password)) {
        error = "the file is no UTF-8 text: " + path;
    } else if (password.find_first_of("\r\n") != std::string::npos) {
        error = "the file holds more than one line: " + path;
    }
    return error.empty();
}

bool tryFiles(const std::vector<std::string>& paths, uint64_t& total, std::string& error) {
    std::vector<std::string> contents(paths.size());
    std::string spare;
    for (size_t i = 0; i < paths.size(); ++i) {
        if (!readFile(paths[i], contents[i], error)) return false;
        total += contents[i].size();
    }
    return paths.empty() || makeRoom(spare, kHeadRoom) || lacksMemory(paths.back(), error);
}

}  // namespace emailsend
