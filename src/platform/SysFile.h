// Files by UTF-8 path: read whole attachments, append to logs. No exceptions, no locale.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tv::plat {

// What changes when a file is written anew: its size, the system's time of the last change, and
// which file stands under the name.
struct FileStamp {
    uint64_t size = 0;
    uint64_t modified = 0;  // on the scale of SysClock::fileTimeUtc
    uint64_t identity = 0;
    bool operator==(const FileStamp& other) const = default;
};

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
    // path that ends in a slash or backslash names a directory and is refused on every system; so
    // is a FIFO.
    bool openAppend(std::string_view utf8Path);
    // Makes a file that was not there and opens it for writing (POSIX: for its owner alone).
    // Whatever has the name, even a link that leads nowhere, is left as it is and refused.
    bool openNew(std::string_view utf8Path);
    bool isOpen() const { return handle_ != kNone; }

    // Size in bytes; false where the system cannot tell.
    bool size(uint64_t& out) const;
    // Reads up to size bytes; got = 0 with true is the end of the file.
    bool read(void* out, size_t size, size_t& got);
    // Why an open file that was asked for by this path is not to be believed what it says, as a
    // clause, or nothing. POSIX: another user owns it, or anybody may write to it. Windows: it lies
    // somewhere else (copies that the system makes for programs that know nothing of its rights).
    // othersRead: anybody may read it; known on POSIX alone.
    std::string distrust(std::string_view utf8Path, bool& othersRead) const;
    bool stamp(FileStamp& out) const;
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

// False where there is no such file.
bool fileStamp(std::string_view utf8Path, FileStamp& out);

// Gives a file another name in the same folder; one that has it goes.
bool renameFile(std::string_view utf8From, std::string_view utf8To);
bool removeFile(std::string_view utf8Path);
// The names of all that lies in a folder, UTF-8, without it in front, in no order.
std::vector<std::string> namesIn(std::string_view utf8Folder);

// The first most bytes of a regular file; false where it cannot be read.
bool readFileStart(std::string_view utf8Path, size_t most, std::string& out);

// A file that is believed what it says, as it stood under one handle.
struct TrustedFile {
    std::string bytes;
    FileStamp stamp;
    bool othersRead = false;
};
// Returns why it cannot be read or is not to be believed, as a clause, or nothing; most: its size.
std::string readTrustedFile(std::string_view utf8Path, size_t most, TrustedFile& out);

// The current directory as UTF-8, without a trailing separator unless it is a root.
std::string currentDirectory();

}  // namespace tv::plat
