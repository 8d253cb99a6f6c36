// Files by their POSIX descriptors.
#include "platform/SysFile.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tv::plat {
namespace {

int descriptor(intptr_t handle) {
    return static_cast<int>(handle);
}

int openRetrying(const std::string& path, int flags) {
    int fd;
    do {
        // What is written here are messages and dialogues: nobody else's business.
        fd = ::open(path.c_str(), flags | O_CLOEXEC, S_IRUSR | S_IWUSR);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

// statx: what glibc has under the names stat and fstat is of version 2.33.
bool look(int fd, struct statx& out) {
    return statx(fd, "", AT_EMPTY_PATH, STATX_BASIC_STATS, &out) == 0;
}

bool lookAt(std::string_view utf8Path, struct statx& out) {
    return statx(AT_FDCWD, std::string(utf8Path).c_str(), 0, STATX_BASIC_STATS, &out) == 0;
}

bool isKind(const struct statx& info, unsigned kind) {
    return (info.stx_mode & S_IFMT) == kind;
}

FileStamp stampOf(const struct statx& info) {
    constexpr uint64_t kTicksPerSecond = 10000000;
    constexpr uint64_t kSecondsFrom1601To1970 = 11644473600;
    FileStamp stamp;
    stamp.size = info.stx_size;
    const auto seconds = static_cast<uint64_t>(info.stx_mtime.tv_sec) + kSecondsFrom1601To1970;
    stamp.modified = seconds * kTicksPerSecond + info.stx_mtime.tv_nsec / 100;
    // One file system has the settings of a machine: its device shifts what would be alike.
    stamp.identity =
        info.stx_ino ^ (uint64_t{info.stx_dev_major} << 52) ^ (uint64_t{info.stx_dev_minor} << 40);
    return stamp;
}

bool isOfKind(int fd, unsigned kind) {
    struct statx info;
    return look(fd, info) && isKind(info, kind);
}

}  // namespace

bool SysFile::openRead(std::string_view utf8Path) {
    close();
    // O_NONBLOCK: a FIFO without a writer must not hold the host up.
    const int fd = openRetrying(std::string(utf8Path), O_RDONLY | O_NONBLOCK);
    if (fd < 0) return false;
    if (!isOfKind(fd, S_IFREG)) {
        ::close(fd);
        return false;
    }
    handle_ = fd;
    return true;
}

bool SysFile::openAppend(std::string_view utf8Path) {
    close();
    if (utf8Path.empty() || utf8Path.back() == '/' || utf8Path.back() == '\\') return false;
    const int fd = openRetrying(std::string(utf8Path), O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK);
    if (fd < 0) return false;
    // A reader that goes away would end the host, by SIGPIPE.
    if (isOfKind(fd, S_IFIFO)) {
        ::close(fd);
        return false;
    }
    handle_ = fd;
    return true;
}

bool SysFile::openNew(std::string_view utf8Path) {
    close();
    const int fd = openRetrying(std::string(utf8Path), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW);
    if (fd >= 0) handle_ = fd;
    return isOpen();
}

bool SysFile::size(uint64_t& out) const {
    struct statx info;
    if (!isOpen() || !look(descriptor(handle_), info)) return false;
    out = info.stx_size;
    return true;
}

bool SysFile::read(void* out, size_t size, size_t& got) {
    got = 0;
    ssize_t done;
    do {
        done = ::read(descriptor(handle_), out, size < SSIZE_MAX ? size : SSIZE_MAX);
    } while (done < 0 && errno == EINTR);
    if (done < 0) return false;
    got = static_cast<size_t>(done);
    return true;
}

std::string SysFile::distrust(std::string_view, bool& othersRead) const {
    struct statx info;
    if (!isOpen() || !look(descriptor(handle_), info)) return "cannot be read";
    if (info.stx_uid != 0 && info.stx_uid != geteuid()) return "belongs to another user";
    if ((info.stx_mode & S_IWOTH) != 0) return "can be changed by anybody";
    othersRead = (info.stx_mode & S_IROTH) != 0;
    return {};
}

bool SysFile::stamp(FileStamp& out) const {
    struct statx info;
    if (!isOpen() || !look(descriptor(handle_), info)) return false;
    out = stampOf(info);
    return true;
}

bool SysFile::write(const void* data, size_t size) {
    const char* from = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t done = ::write(descriptor(handle_), from, size);
        if (done < 0 && errno == EINTR) continue;
        if (done <= 0) return false;
        from += done;
        size -= static_cast<size_t>(done);
    }
    return true;
}

bool SysFile::tryLock() {
    int result;
    do {
        result = flock(descriptor(handle_), LOCK_EX | LOCK_NB);
    } while (result != 0 && errno == EINTR);
    locked_ = result == 0;
    return locked_ || errno != EWOULDBLOCK;
}

bool SysFile::close() {
    if (!isOpen()) return true;
    locked_ = false;  // the descriptor's end is the claim's
    const bool closed = ::close(descriptor(handle_)) == 0;
    handle_ = kNone;
    return closed;
}

bool isRegularFile(std::string_view utf8Path) {
    struct statx info;
    return lookAt(utf8Path, info) && isKind(info, S_IFREG);
}

bool fileStamp(std::string_view utf8Path, FileStamp& out) {
    struct statx info;
    if (!lookAt(utf8Path, info)) return false;
    out = stampOf(info);
    return true;
}

bool renameFile(std::string_view utf8From, std::string_view utf8To) {
    return rename(std::string(utf8From).c_str(), std::string(utf8To).c_str()) == 0;
}

bool removeFile(std::string_view utf8Path) {
    return unlink(std::string(utf8Path).c_str()) == 0;
}

std::vector<std::string> namesIn(std::string_view utf8Folder) {
    std::vector<std::string> names;
    DIR* const folder = opendir(std::string(utf8Folder).c_str());
    if (!folder) return names;
    while (const dirent* entry = readdir(folder)) {
        names.emplace_back(entry->d_name);
    }
    closedir(folder);
    return names;
}

std::string currentDirectory() {
    char path[PATH_MAX];
    return getcwd(path, sizeof path) ? path : "";
}

}  // namespace tv::plat
