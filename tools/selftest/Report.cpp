// The file has the line ends of Windows, which its oldest editor needs.
#include "selftest/Report.h"

#include <windows.h>

#include "emailsend/Process.h"

namespace selftest {

bool Report::open() {
    constexpr char kName[] = "selftest-report.txt";
    const std::string beside = emailsend::libraryBesideProgram();
    const std::string folders[] = {beside.substr(0, beside.rfind('\\') + 1),
                                   emailsend::environmentVariable("TEMP") + "\\"};
    for (const std::string& folder : folders) {
        path_ = folder + kName;
        tv::plat::removeFile(path_);
        if (file_.openNew(path_)) return true;
    }
    return false;
}

void Report::write(const std::string& text) {
    emailsend::printOut(text);
    std::string lines;
    for (const char c : text)
        lines += c == '\n' ? std::string("\r\n") : std::string(1, c);
    whole_ = file_.isOpen() && file_.write(lines.data(), lines.size()) && whole_;
}

bool Report::close() {
    return file_.close() && whole_;
}

void keepWindow() {
    DWORD processes[2], mode = 0;
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    if (GetConsoleProcessList(processes, 2) != 1 || !GetConsoleMode(input, &mode)) return;
    emailsend::printOut("\nPress Enter to close this window.\n");
    wchar_t line[16];
    DWORD size = 0;
    ReadConsoleW(input, line, 16, &size, nullptr);
}

}  // namespace selftest
