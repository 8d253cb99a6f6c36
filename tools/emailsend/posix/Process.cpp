#include "emailsend/Process.h"

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "base/XString.h"

namespace emailsend {
namespace {

// A locale other than UTF-8 gives words in its own charset.
std::string asUtf8(const char* text) {
    return std::string(tv::XString::fromHost(text, true).utf8());
}

volatile sig_atomic_t signals = 0;

void noteSignal(int) {
    signals = 1;
}

}  // namespace

std::vector<std::string> commandLine(int argc, char** argv) {
    std::vector<std::string> words;
    for (int i = 1; i < argc; ++i)
        words.push_back(asUtf8(argv[i]));
    return words;
}

std::string environmentVariable(const char* name) {
    return asUtf8(getenv(name));
}

std::string libraryBesideProgram() {
    char path[4096];
    const ssize_t size = readlink("/proc/self/exe", path, sizeof path);
    const std::string program(path, size > 0 ? static_cast<size_t>(size) : 0);
    return program.substr(0, program.rfind('/') + 1) + "libemailsending.so";
}

void printOut(std::string_view text) {
    fwrite(text.data(), 1, text.size(), stdout);
}

void printError(std::string_view text) {
    fwrite(text.data(), 1, text.size(), stderr);
}

bool errorsGoToTerminal() {
    return isatty(STDERR_FILENO) == 1;
}

void watchForInterrupt() {
    struct sigaction action = {};
    action.sa_handler = noteSignal;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool interrupted() {
    return signals != 0;
}

void endNow(int exitCode) {
    fflush(stdout);
    _exit(exitCode);
}

}  // namespace emailsend
