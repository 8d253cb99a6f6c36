// Files by UTF-8 path: read whole attachments, append to logs. No exceptions, no locale.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tv::plat {

// An open file, closed on destruction and not inherited by child processes. Opened so that others
// may read, write, rename or delete it meanwhile.
class SysFile {
public:
    SysFile() = default;
    ~SysFile() { close(); }
    SysFile(const SysFile&) = delete;
    SysFile& operator=(const SysFile&) = delete;

    // Opens an existing regular file; a directory or a device is refused.
    bool openRead(std::string_view utf8Path);
    // Opens for writing at the end, creating the file if need be (POSIX: for its owner alone). A
    // path that ends in a slash or backslash names a directory and is refused on every system.
    bool openAppend(std::string_view utf8Path);
    bool isOpen() const { return handle_ != kNone; }

    // Size in bytes; false where the system cannot tell.
    bool size(uint64_t& out) const;
    // Reads up to size bytes; got = 0 with true is the end of the file.
    bool read(void* out, size_t size, size_t& got);
    // Writes all of it or fails.
    bool write(const void* data, size_t size);
    // Claims a file opened for appending against others that ask, in this process or another; it
    // hinders no reading or writing. False while somebody else has it; true, too, where the system
    // keeps no such claims. Ends with close.
    bool tryLock();
    // False when the system reports that something written did not reach the file.
    bool close();

private:
    static constexpr intptr_t kNone = -1;
    intptr_t handle_ = kNone;
    bool locked_ = false;
};

// True if the path names an existing regular file.
bool isRegularFile(std::string_view utf8Path);

// What changes when a file is written anew: its size and the system's time of the last change.
struct FileStamp {
    uint64_t size = 0;
    uint64_t modified = 0;
    bool operator==(const FileStamp& other) const = default;
};
// False where there is no such file.
bool fileStamp(std::string_view utf8Path, FileStamp& out);

// The first most bytes of a regular file; false where it cannot be read.
bool readFileStart(std::string_view utf8Path, size_t most, std::string& out);

// The current directory as UTF-8, without a trailing separator unless it is a root.
std::string currentDirectory();

}  // namespace tv::plat
