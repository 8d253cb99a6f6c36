// One process with its words in a file: nothing that it leaves running holds us up.
#include "selftest/Child.h"

#include <windows.h>

#include "base/Hex.h"
#include "emailsend/Process.h"
#include "platform/SysFile.h"
#include "src/platform/win32/WidePath.h"

namespace selftest {
namespace {

using tv::plat::widen;

class Handle {
public:
    explicit Handle(HANDLE handle) : handle_(handle) {}
    ~Handle() {
        if (ok()) CloseHandle(handle_);
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    bool ok() const { return handle_ && handle_ != INVALID_HANDLE_VALUE; }
    HANDLE get() const { return handle_; }

private:
    HANDLE handle_;
};

// In the form that command lines are split by: backslashes count double before a quotation mark.
std::wstring quoted(const std::string& word) {
    std::wstring out = L"\"";
    size_t backslashes = 0;
    for (const wchar_t c : widen(word)) {
        if (c == L'"') out.append(backslashes + 1, L'\\');
        backslashes = c == L'\\' ? backslashes + 1 : 0;
        out += c;
    }
    return out.append(backslashes, L'\\') + L"\"";
}

// A file that the child writes, inherited by it.
HANDLE openOutput(const std::string& path) {
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    return CreateFileW(widen(path).c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_DELETE,
                       &inherited, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
}

bool start(const std::vector<std::string>& words, const std::string& folder, HANDLE output,
           PROCESS_INFORMATION& started) {
    const std::string program =
        emailsend::fileOfCode(reinterpret_cast<const void*>(&emailsend::fileOfCode));
    std::wstring line = quoted(program);
    for (const std::string& word : words)
        line += L" " + quoted(word);
    STARTUPINFOW how{};
    how.cb = sizeof how;
    how.dwFlags = STARTF_USESTDHANDLES;
    how.hStdOutput = how.hStdError = output;
    return CreateProcessW(widen(program).c_str(), line.data(), nullptr, nullptr, TRUE, 0, nullptr,
                          widen(folder).c_str(), &how, &started) != 0;
}

// Every file and folder in it, and itself; a link to a folder elsewhere goes without what is there.
void removeFolder(const std::string& folder) {
    for (const std::string& name : tv::plat::namesIn(folder)) {
        const std::string path = folder + "\\" + name;
        if (name == "." || name == ".." || tv::plat::removeFile(path)) continue;
        if (!RemoveDirectoryW(widen(path).c_str())) removeFolder(path);
    }
    // What a process had open may be closed a moment after its end.
    for (int tries = 0; tries < 40 && !RemoveDirectoryW(widen(folder).c_str()); ++tries)
        Sleep(50);
}

}  // namespace

ChildEnd runChild(const std::vector<std::string>& words, const TemporaryFolder& folder,
                  uint32_t mostMs) {
    constexpr size_t kMostSaid = 16 * 1024 * 1024;
    ChildEnd end;
    if (folder.path().empty()) {
        end.how = "could not be started: no folder can be made in %TEMP%";
        return end;
    }
    const std::string path = folder.path() + "\\said.txt";
    PROCESS_INFORMATION started{};
    {
        const Handle output(openOutput(path));
        if (!output.ok() || !start(words, folder.path(), output.get(), started)) {
            end.how = "could not be started (error " + std::to_string(GetLastError()) + ")";
            return end;
        }
    }
    const Handle process(started.hProcess), thread(started.hThread);
    DWORD code = 0;
    if (WaitForSingleObject(process.get(), mostMs) != WAIT_OBJECT_0) {
        TerminateProcess(process.get(), 1);
        WaitForSingleObject(process.get(), 10'000);
        end.how = "had not come to its end after " + std::to_string(mostMs / 1000) + " s";
    }
    GetExitCodeProcess(process.get(), &code);
    end.code = code;
    tv::plat::readFileStart(path, kMostSaid, end.said);
    return end;
}

std::string hexOf(uint32_t code) {
    const uint8_t bytes[] = {static_cast<uint8_t>(code >> 24), static_cast<uint8_t>(code >> 16),
                             static_cast<uint8_t>(code >> 8), static_cast<uint8_t>(code)};
    return "0x" + tv::hexUpper(bytes);
}

TemporaryFolder::TemporaryFolder() : path_(emailsend::makeTemporaryFolder()) {}

// Without a name there is nothing to remove: taken for a folder it would be the root of the drive.
TemporaryFolder::~TemporaryFolder() {
    if (!path_.empty()) removeFolder(path_);
}

}  // namespace selftest
