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

FileStamp stampOf(const struct stat& info) {
    constexpr uint64_t kTicksPerSecond = 10000000;
    constexpr uint64_t kSecondsFrom1601To1970 = 11644473600;
    FileStamp stamp;
    stamp.size = static_cast<uint64_t>(info.st_size);
    const auto seconds = static_cast<uint64_t>(info.st_mtim.tv_sec) + kSecondsFrom1601To1970;
    stamp.modified = seconds * kTicksPerSecond + static_cast<uint64_t>(info.st_mtim.tv_nsec) / 100;
    // One file system has the settings of a machine: its device shifts what would be alike.
    stamp.identity =
        static_cast<uint64_t>(info.st_ino) ^ (static_cast<uint64_t>(info.st_dev) << 40);
    return stamp;
}

bool isRegular(int fd) {
    struct stat info;
    return fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
}

bool isFifo(int fd) {
    struct stat info;
    return fstat(fd, &info) == 0 && S_ISFIFO(info.st_mode);
}

}  // namespace

bool SysFile::openRead(std::string_view utf8Path) {
    close();
    // O_NONBLOCK: a FIFO without a writer must not hold the host up.
    const int fd = openRetrying(std::string(utf8Path), O_RDONLY | O_NONBLOCK);
    if (fd < 0) return false;
    if (!isRegular(fd)) {
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
    if (isFifo(fd)) {
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
    struct stat info;
    if (!isOpen() || fstat(descriptor(handle_), &info) != 0) return false;
    out = static_cast<uint64_t>(info.st_size);
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
    struct stat info;
    if (!isOpen() || fstat(descriptor(handle_), &info) != 0) return "cannot be read";
    if (info.st_uid != 0 && info.st_uid != geteuid()) return "belongs to another user";
    if ((info.st_mode & S_IWOTH) != 0) return "can be changed by anybody";
    othersRead = (info.st_mode & S_IROTH) != 0;
    return {};
}

bool SysFile::stamp(FileStamp& out) const {
    struct stat info;
    if (!isOpen() || fstat(descriptor(handle_), &info) != 0) return false;
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
    struct stat info;
    return stat(std::string(utf8Path).c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

bool fileStamp(std::string_view utf8Path, FileStamp& out) {
    struct stat info;
    if (stat(std::string(utf8Path).c_str(), &info) != 0) return false;
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
