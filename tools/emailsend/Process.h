// What the system gives a command-line program, as UTF-8 on every system.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace emailsend {

// Without the program's own name. Windows: from the wide command line, whatever the code page.
std::vector<std::string> commandLine(int argc, char** argv);

// Empty where the variable is not set.
std::string environmentVariable(const char* name);

// The plug-in that lies beside this program.
std::string libraryBesideProgram();

void printOut(std::string_view text);
void printError(std::string_view text);
bool errorsGoToTerminal();

// From now on Ctrl-C and the like (POSIX: SIGINT, SIGTERM) are only noted.
void watchForInterrupt();
bool interrupted();
// Ends the process as it stands, whatever its other threads are doing.
[[noreturn]] void endNow(int exitCode);

}  // namespace emailsend
