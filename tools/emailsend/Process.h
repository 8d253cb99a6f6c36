// What the system gives a command-line program, as UTF-8 on every system.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace emailsend {

// Without the program's own name. Windows: from the wide command line, whatever the code page.
std::vector<std::string> commandLine(int argc, char** argv);

// Empty where the variable is not set.
std::string environmentVariable(const char* name);

// An empty value takes the variable away.
void setEnvironmentVariable(const char* name, const std::string& value);

// The plug-in that lies beside this program; POSIX: or in ../lib of a program in bin.
std::string libraryBesideProgram();
// The file that this code was loaded from; empty where the system does not tell.
std::string fileOfCode(const void* code);

// A new folder for us alone; empty where there can be none. It is removed empty.
std::string makeTemporaryFolder();
void removeTemporaryFolder(const std::string& folder);

// Where a file really lies, whatever links or copies lead there; the path itself where that cannot
// be told.
std::string realPath(const std::string& path);

void printOut(std::string_view text);
// False where something printed to stdout did not get there (a full disk); a stream that the caller
// has closed takes everything.
[[nodiscard]] bool outArrived();
void printError(std::string_view text);
bool errorsGoToTerminal();
// On a terminal that knows them, unless NO_COLOR (no-color.org) says otherwise.
bool errorsHaveColours();
// All of stdin, byte for byte; false where it cannot be read.
bool readInput(std::string& out);

// One line of stdin, asked for by the prompt where somebody sits there, and then not shown.
std::string secretLine(std::string_view prompt);

// Windows: from now on no box of the system's own (a drive without a disk, a DLL that is missing).
void settleIn();

// While it lives, what the plug-in has to tell a user is kept here instead of being shown: nobody
// may sit before this program to close a message box, and the plug-in tells nobody else.
class Overheard {
public:
    Overheard();
    ~Overheard();
    Overheard(const Overheard&) = delete;
    Overheard& operator=(const Overheard&) = delete;

    // False where the system does not allow it: what the plug-in says would be shown.
    bool listens() const { return listens_; }
    // All that was said since the last question; empty for nothing.
    std::string text();

private:
    bool listens_ = false;
    // As the system names them: where it went, where it goes meanwhile, what brings it there.
    intptr_t before_ = -1;
    intptr_t here_ = -1;
    intptr_t way_ = -1;
};

// From now on Ctrl-C and the like are only noted: POSIX: SIGINT, SIGTERM, and SIGHUP unless it is
// ignored (nohup); Windows: also that the console closes, for as long as the system waits then.
void watchForInterrupt();
bool interrupted();
// Ends the process as it stands, whatever its other threads are doing.
[[noreturn]] void endNow(int exitCode);

}  // namespace emailsend
