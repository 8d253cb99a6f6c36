// Files by the wide calls of Windows.
#include "platform/SysFile.h"

#include <windows.h>

#include "platform/win32/WidePath.h"

namespace tv::plat {
namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
// A call takes 32 bits of length; steps of a megabyte are long enough to cost nothing.
constexpr DWORD kLargestStep = 1u << 20;

HANDLE asHandle(intptr_t handle) {
    return reinterpret_cast<HANDLE>(handle);
}

// A byte far behind the end of any file: Windows keeps others from a claimed range by force, and
// they are to read and write all there is.
OVERLAPPED claimedByte() {
    OVERLAPPED place = {};
    place.Offset = 0xFFFFFFFE;
    place.OffsetHigh = 0x7FFFFFFF;
    return place;
}

bool stampOf(HANDLE file, FileStamp& out) {
    BY_HANDLE_FILE_INFORMATION info;
    if (!GetFileInformationByHandle(file, &info)) return false;
    const auto joined = [](DWORD high, DWORD low) { return (uint64_t{high} << 32) | low; };
    out.size = joined(info.nFileSizeHigh, info.nFileSizeLow);
    out.modified = joined(info.ftLastWriteTime.dwHighDateTime, info.ftLastWriteTime.dwLowDateTime);
    out.identity = joined(info.nFileIndexHigh, info.nFileIndexLow) ^ info.dwVolumeSerialNumber;
    return true;
}

// Where an open file really lies, without the mark of paths taken by the letter; empty where the
// system cannot tell (before Windows Vista, and in some network folders).
std::wstring finalPath(HANDLE file) {
    using GetFinalPath = DWORD(WINAPI*)(HANDLE, LPWSTR, DWORD, DWORD);
    const HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
    const auto get = reinterpret_cast<GetFinalPath>(
        reinterpret_cast<void (*)()>(GetProcAddress(kernel, "GetFinalPathNameByHandleW")));
    constexpr DWORD kLongest = 32768;
    std::wstring path(kLongest, L'\0');
    const DWORD size = get ? get(file, path.data(), kLongest, 0) : 0;
    path.resize(size < kLongest ? size : 0);
    return path.starts_with(L"\\\\?\\") ? path.substr(4) : path;
}

// The path in full, with the long form of each short name.
std::wstring fullPath(std::string_view utf8Path) {
    constexpr DWORD kLongest = 32768;
    std::wstring full(kLongest, L'\0');
    DWORD size = GetFullPathNameW(widen(utf8Path).c_str(), kLongest, full.data(), nullptr);
    full.resize(size < kLongest ? size : 0);
    std::wstring path(kLongest, L'\0');
    size = GetLongPathNameW(full.c_str(), path.data(), kLongest);
    path.resize(size < kLongest ? size : 0);
    return path.empty() ? full : path;
}

DWORD stepOf(size_t size) {
    return size > kLargestStep ? kLargestStep : static_cast<DWORD>(size);
}

}  // namespace

bool SysFile::openRead(std::string_view utf8Path) {
    close();
    const HANDLE file = CreateFileW(widePath(utf8Path).c_str(), GENERIC_READ, kShareAll, nullptr,
                                    OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    if (GetFileType(file) != FILE_TYPE_DISK) {
        CloseHandle(file);
        return false;
    }
    handle_ = reinterpret_cast<intptr_t>(file);
    return true;
}

bool SysFile::openAppend(std::string_view utf8Path) {
    close();
    if (utf8Path.empty() || utf8Path.back() == '/' || utf8Path.back() == '\\') return false;
    HANDLE file = INVALID_HANDLE_VALUE;
    // A claim needs the right to read; others may grant no more than appending.
    for (const DWORD access : {DWORD{FILE_APPEND_DATA | FILE_READ_DATA}, DWORD{FILE_APPEND_DATA}}) {
        file = CreateFileW(widePath(utf8Path).c_str(), access, kShareAll, nullptr, OPEN_ALWAYS,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file != INVALID_HANDLE_VALUE) break;
    }
    if (file == INVALID_HANDLE_VALUE) return false;
    handle_ = reinterpret_cast<intptr_t>(file);
    return true;
}

bool SysFile::openNew(std::string_view utf8Path) {
    close();
    // A link is not followed.
    const HANDLE file =
        CreateFileW(widePath(utf8Path).c_str(), GENERIC_WRITE, kShareAll, nullptr, CREATE_NEW,
                    FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (file != INVALID_HANDLE_VALUE) handle_ = reinterpret_cast<intptr_t>(file);
    return isOpen();
}

bool SysFile::size(uint64_t& out) const {
    LARGE_INTEGER size;
    if (!isOpen() || !GetFileSizeEx(asHandle(handle_), &size)) return false;
    out = static_cast<uint64_t>(size.QuadPart);
    return true;
}

bool SysFile::read(void* out, size_t size, size_t& got) {
    DWORD done = 0;
    got = 0;
    if (!isOpen() || !ReadFile(asHandle(handle_), out, stepOf(size), &done, nullptr)) return false;
    got = done;
    return true;
}

std::string SysFile::distrust(std::string_view utf8Path, bool& othersRead) const {
    othersRead = false;
    const std::wstring found = finalPath(asHandle(handle_));
    if (found.empty() || lstrcmpiW(found.c_str(), fullPath(utf8Path).c_str()) == 0) return {};
    return "is in truth another one, " + narrow(found);
}

bool SysFile::stamp(FileStamp& out) const {
    return isOpen() && stampOf(asHandle(handle_), out);
}

bool SysFile::write(const void* data, size_t size) {
    const char* from = static_cast<const char*>(data);
    while (size > 0) {
        DWORD done = 0;
        if (!isOpen() || !WriteFile(asHandle(handle_), from, stepOf(size), &done, nullptr) ||
            done == 0) {
            return false;
        }
        from += done;
        size -= done;
    }
    return true;
}

bool SysFile::tryLock() {
    OVERLAPPED place = claimedByte();
    constexpr DWORD kHow = LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY;
    locked_ = LockFileEx(asHandle(handle_), kHow, 0, 1, 0, &place) != 0;
    return locked_ || GetLastError() != ERROR_LOCK_VIOLATION;
}

bool SysFile::close() {
    if (!isOpen()) return true;
    // Closing the handle would end the claim, too, but only when the system finds the time.
    OVERLAPPED place = claimedByte();
    if (locked_) UnlockFileEx(asHandle(handle_), 0, 1, 0, &place);
    locked_ = false;
    const bool closed = CloseHandle(asHandle(handle_)) != 0;
    handle_ = kNone;
    return closed;
}

bool isRegularFile(std::string_view utf8Path) {
    const DWORD attributes = GetFileAttributesW(widePath(utf8Path).c_str());
    constexpr DWORD kOther = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE;
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & kOther) == 0;
}

bool fileStamp(std::string_view utf8Path, FileStamp& out) {
    // No right to read is asked for: what is known about a file is known to all who see its folder.
    const HANDLE file = CreateFileW(widePath(utf8Path).c_str(), FILE_READ_ATTRIBUTES, kShareAll,
                                    nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    const bool known = stampOf(file, out);
    CloseHandle(file);
    return known;
}

bool renameFile(std::string_view utf8From, std::string_view utf8To) {
    return MoveFileExW(widePath(utf8From).c_str(), widePath(utf8To).c_str(),
                       MOVEFILE_REPLACE_EXISTING) != 0;
}

bool removeFile(std::string_view utf8Path) {
    return DeleteFileW(widePath(utf8Path).c_str()) != 0;
}

std::vector<std::string> namesIn(std::string_view utf8Folder) {
    std::vector<std::string> names;
    WIN32_FIND_DATAW found;
    const HANDLE search = FindFirstFileW(widePath(std::string(utf8Folder) + "\\*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return names;
    do {
        names.push_back(narrow(found.cFileName));
    } while (FindNextFileW(search, &found));
    FindClose(search);
    return names;
}

std::string currentDirectory() {
    const DWORD needed = GetCurrentDirectoryW(0, nullptr);
    std::wstring path(needed, L'\0');
    const DWORD size = needed ? GetCurrentDirectoryW(needed, path.data()) : 0;
    path.resize(size < needed ? size : 0);
    return narrow(path);
}

}  // namespace tv::plat
