// The process on Windows: its words, its desktop, its console.
#include "emailsend/Process.h"

#include <windows.h>
// windows.h first
#include <shellapi.h>

#include <atomic>

#include "base/CodePage.h"
#include "base/XString.h"

namespace emailsend {
namespace {

std::string narrow(std::wstring_view wide) {
    return tv::utf16ToUtf8(std::u16string(wide.begin(), wide.end()));
}

std::wstring widened(std::string_view utf8) {
    const std::u16string wide = tv::utf8ToUtf16(utf8);
    return std::wstring(wide.begin(), wide.end());
}

// A console wants UTF-16; a pipe or file gets UTF-8.
bool print(DWORD which, std::string_view text) {
    const HANDLE stream = GetStdHandle(which);
    if (!stream || stream == INVALID_HANDLE_VALUE) return true;  // closed by the caller
    DWORD mode = 0;
    DWORD written = 0;
    if (GetConsoleMode(stream, &mode)) {
        const std::u16string wide = tv::utf8ToUtf16(text);
        return WriteConsoleW(stream, wide.data(), static_cast<DWORD>(wide.size()), &written,
                             nullptr) != 0;
    }
    const auto size = static_cast<DWORD>(text.size());
    return WriteFile(stream, text.data(), size, &written, nullptr) && written == size;
}

bool outIsLost = false;

// The text of OutputDebugString travels as an exception that nobody but a debugger takes
// (DBG_PRINTEXCEPTION_C).
constexpr DWORD kDebugOutput = 0x40010006;
constexpr size_t kMostDebugOutput = 65536;
std::string debugOutput;  // of the only thread there is while somebody listens; never grows

LONG CALLBACK noteDebugOutput(EXCEPTION_POINTERS* info) {
    const EXCEPTION_RECORD& record = *info->ExceptionRecord;
    if (record.ExceptionCode != kDebugOutput) return EXCEPTION_CONTINUE_SEARCH;
    const std::string_view text(reinterpret_cast<const char*>(record.ExceptionInformation[1]));
    debugOutput += text.substr(0, debugOutput.capacity() - debugOutput.size());
    return EXCEPTION_CONTINUE_EXECUTION;
}

std::atomic<bool> stopWanted{false};

// Where the console closes or the user logs off, the process ends as soon as this returns.
BOOL WINAPI noteControl(DWORD event) {
    constexpr DWORD kAsLongAsTheSystemWaits = 5000;
    stopWanted = true;
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) Sleep(kAsLongAsTheSystemWaits);
    return TRUE;
}

}  // namespace

std::vector<std::string> commandLine(int, char**) {
    std::vector<std::string> words;
    int count = 0;
    wchar_t** const wide = CommandLineToArgvW(GetCommandLineW(), &count);
    for (int i = 1; wide && i < count; ++i)
        words.push_back(narrow(wide[i]));
    LocalFree(wide);
    return words;
}

std::string environmentVariable(const char* name) {
    const std::wstring wideName(name, name + std::char_traits<char>::length(name));
    wchar_t value[32768];  // the longest there can be
    const DWORD size = GetEnvironmentVariableW(wideName.c_str(), value, 32768);
    const std::string text = narrow(std::wstring_view(value, size < 32768 ? size : 0));
    SecureZeroMemory(value, sizeof value);
    return text;
}

void setEnvironmentVariable(const char* name, const std::string& value) {
    const std::wstring wideName(name, name + std::char_traits<char>::length(name));
    const std::wstring wide = widened(value);
    SetEnvironmentVariableW(wideName.c_str(), value.empty() ? nullptr : wide.c_str());
}

std::string fileOfCode(const void* code) {
    HMODULE module = nullptr;
    constexpr DWORD kHow =
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
    if (!GetModuleHandleExW(kHow, static_cast<LPCWSTR>(code), &module)) return {};
    wchar_t path[32768];  // the longest there can be
    const DWORD size = GetModuleFileNameW(module, path, 32768);
    return narrow(std::wstring_view(path, size < 32768 ? size : 0));
}

// In its long form: the library takes a file by no other name.
std::string makeTemporaryFolder() {
    wchar_t place[MAX_PATH + 1];
    wchar_t path[32768];
    const DWORD size = GetTempPathW(MAX_PATH + 1, place);
    if (size == 0 || size > MAX_PATH) return {};
    const DWORD full = GetLongPathNameW(place, path, 32768);
    if (full == 0 || full >= 32768) return {};
    const std::wstring folder = std::wstring(path, full) + L"emailsend-" +
                                std::to_wstring(GetCurrentProcessId()) + L"-" +
                                std::to_wstring(GetTickCount());
    return CreateDirectoryW(folder.c_str(), nullptr) ? narrow(folder) : std::string();
}

void removeTemporaryFolder(const std::string& folder) {
    RemoveDirectoryW(widened(folder).c_str());
}

std::string libraryBesideProgram() {
    wchar_t path[32768];  // the longest there can be
    const DWORD size = GetModuleFileNameW(nullptr, path, 32768);
    const std::string program = narrow(std::wstring_view(path, size));
    return program.substr(0, program.rfind('\\') + 1) + "emailsending.dll";
}

std::string realPath(const std::string& path) {
    const std::u16string text = tv::utf8ToUtf16(path);
    const HANDLE file = CreateFileW(std::wstring(text.begin(), text.end()).c_str(), 0,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return path;
    wchar_t real[32768];  // the longest there can be
    const DWORD size = GetFinalPathNameByHandleW(file, real, 32768, 0);
    CloseHandle(file);
    if (size == 0 || size >= 32768) return path;
    const std::string found = narrow(std::wstring_view(real, size));
    return found.starts_with("\\\\?\\") ? found.substr(4) : found;
}

void printOut(std::string_view text) {
    outIsLost |= !print(STD_OUTPUT_HANDLE, text);
}

bool outArrived() {
    return !outIsLost;
}

void printError(std::string_view text) {
    print(STD_ERROR_HANDLE, text);
}

bool errorsGoToTerminal() {
    DWORD mode = 0;
    return GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &mode);
}

// Before Windows 10 a console shows the sequences themselves.
bool errorsHaveColours() {
    constexpr DWORD kSequences = 4;  // ENABLE_VIRTUAL_TERMINAL_PROCESSING
    const HANDLE stream = GetStdHandle(STD_ERROR_HANDLE);
    DWORD mode = 0;
    return GetConsoleMode(stream, &mode) && environmentVariable("NO_COLOR").empty() &&
           SetConsoleMode(stream, mode | kSequences);
}

bool readInput(std::string& out) {
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    char block[16384];
    DWORD got = 0;
    while (ReadFile(input, block, sizeof block, &got, nullptr)) {
        if (got == 0) return true;
        out.append(block, got);
    }
    return GetLastError() == ERROR_BROKEN_PIPE;  // the other end is done
}

std::string secretLine(std::string_view prompt) {
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    DWORD before = 0;
    const bool asked = GetConsoleMode(input, &before) != 0;
    std::string line;
    if (asked) {
        printError(prompt);
        SetConsoleMode(input, before & ~DWORD{ENABLE_ECHO_INPUT});
        wchar_t wide[1024];
        DWORD size = 0;
        if (ReadConsoleW(input, wide, 1024, &size, nullptr)) line = narrow({wide, size});
        SecureZeroMemory(wide, sizeof wide);
        SetConsoleMode(input, before);
        printError("\n");
    } else {
        DWORD size = 0;
        for (char c; ReadFile(input, &c, 1, &size, nullptr) && size == 1 && c != '\n';)
            line += c;
    }
    while (line.ends_with('\n') || line.ends_with('\r'))
        line.pop_back();
    return line;
}

void settleIn() {
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);
}

// On a window station that nobody sees the plug-in shows no box but writes to the debugger.
Overheard::Overheard() {
    debugOutput.reserve(kMostDebugOutput);
    const HWINSTA station = CreateWindowStationW(nullptr, 0, WINSTA_ALL_ACCESS, nullptr);
    before_ = reinterpret_cast<intptr_t>(GetProcessWindowStation());
    here_ = reinterpret_cast<intptr_t>(station);
    way_ = reinterpret_cast<intptr_t>(AddVectoredExceptionHandler(1, noteDebugOutput));
    listens_ = way_ != 0 && station && SetProcessWindowStation(station);
}

Overheard::~Overheard() {
    if (listens_) SetProcessWindowStation(reinterpret_cast<HWINSTA>(before_));
    if (here_ != 0) CloseWindowStation(reinterpret_cast<HWINSTA>(here_));
    if (way_ != 0) RemoveVectoredExceptionHandler(reinterpret_cast<void*>(way_));
}

std::string Overheard::text() {
    const tv::XString text = tv::XString::fromAnsi(debugOutput);
    debugOutput.clear();
    return std::string(text.utf8());
}

void watchForInterrupt() {
    SetConsoleCtrlHandler(noteControl, TRUE);
}

bool interrupted() {
    return stopWanted;
}

void endNow(int exitCode) {
    TerminateProcess(GetCurrentProcess(), static_cast<UINT>(exitCode));
    __builtin_unreachable();
}

}  // namespace emailsend
