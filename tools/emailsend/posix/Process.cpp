// The process on POSIX systems: its words, its stderr, its signals.
#include "emailsend/Process.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <tuple>

#include "base/XString.h"

namespace emailsend {
namespace {

// A locale other than UTF-8 gives words in its own charset.
std::string asUtf8(const char* text) {
    return std::string(tv::XString::fromHost(text, true).utf8());
}

// A descriptor that the caller closed would be the next socket's, and what is printed would go to
// the server.
void fillStandardStreams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(stream, F_GETFD) == -1) std::ignore = open("/dev/null", O_RDWR);
    }
}

volatile sig_atomic_t signals = 0;

void noteSignal(int) {
    signals = 1;
}

}  // namespace

std::vector<std::string> commandLine(int argc, char** argv) {
    fillStandardStreams();
    std::vector<std::string> words;
    for (int i = 1; i < argc; ++i)
        words.push_back(asUtf8(argv[i]));
    return words;
}

std::string environmentVariable(const char* name) {
    return asUtf8(getenv(name));
}

void setEnvironmentVariable(const char* name, const std::string& value) {
    if (value.empty()) {
        unsetenv(name);
    } else {
        setenv(name, value.c_str(), 1);
    }
}

std::string fileOfCode(const void* code) {
    Dl_info info;
    char path[PATH_MAX];
    if (dladdr(code, &info) == 0 || !info.dli_fname) return {};
    return realpath(info.dli_fname, path) ? path : std::string();
}

std::string makeTemporaryFolder() {
    const char* const place = getenv("TMPDIR");
    std::string folder = std::string(place && *place == '/' ? place : "/tmp") + "/emailsend-XXXXXX";
    return mkdtemp(folder.data()) ? folder : std::string();
}

void removeTemporaryFolder(const std::string& folder) {
    rmdir(folder.c_str());
}

std::string libraryBesideProgram() {
    char path[4096];  // PATH_MAX of Linux
    const ssize_t size = readlink("/proc/self/exe", path, sizeof path);
    const std::string program(path, size > 0 ? static_cast<size_t>(size) : 0);
    const std::string folder = program.substr(0, program.rfind('/') + 1);
    std::string beside = folder + "libemailsending.so";
    // Installed, program and library have folders of their own under one.
    if (folder.ends_with("/bin/") && access(beside.c_str(), F_OK) != 0) {
        return folder.substr(0, folder.size() - 4) + "lib/libemailsending.so.1";
    }
    return beside;
}

std::string realPath(const std::string& path) {
    char* const found = realpath(path.c_str(), nullptr);
    std::string real = found ? found : path;
    free(found);
    return real;
}

void printOut(std::string_view text) {
    fwrite(text.data(), 1, text.size(), stdout);
}

bool outArrived() {
    return fflush(stdout) == 0 && ferror(stdout) == 0;
}

void printError(std::string_view text) {
    fwrite(text.data(), 1, text.size(), stderr);
}

bool errorsGoToTerminal() {
    return isatty(STDERR_FILENO) == 1;
}

bool errorsHaveColours() {
    const std::string kind = environmentVariable("TERM");
    return errorsGoToTerminal() && environmentVariable("NO_COLOR").empty() && !kind.empty() &&
           kind != "dumb";
}

bool readInput(std::string& out) {
    char block[16384];
    size_t got;
    while ((got = fread(block, 1, sizeof block, stdin)) > 0)
        out.append(block, got);
    return ferror(stdin) == 0;
}

std::string secretLine(std::string_view prompt) {
    termios before{};
    const bool asked = tcgetattr(STDIN_FILENO, &before) == 0;
    if (asked) {
        printError(prompt);
        termios silent = before;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
    }
    std::string line;
    for (int c; (c = getchar()) != EOF && c != '\n';)
        line += static_cast<char>(c);
    if (asked) {
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &before);
        printError("\n");
    }
    return line;
}

void settleIn() {
    // A stream that is closed would be given to the next file that is opened, a pipe's end
    // included.
    for (int lowest; (lowest = open("/dev/null", O_RDWR)) >= 0;) {
        if (lowest > STDERR_FILENO) {
            close(lowest);
            break;
        }
    }
}

// The plug-in writes to stderr: a pipe takes its place.
Overheard::Overheard() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return;
    here_ = ends[0];
    way_ = ends[1];
    before_ = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    listens_ = before_ >= 0 && dup2(ends[1], STDERR_FILENO) >= 0;
}

Overheard::~Overheard() {
    if (listens_) dup2(static_cast<int>(before_), STDERR_FILENO);
    for (const intptr_t descriptor : {before_, here_, way_}) {
        if (descriptor >= 0) close(static_cast<int>(descriptor));
    }
}

std::string Overheard::text() {
    std::string all;
    char block[4096];
    for (ssize_t got; (got = read(static_cast<int>(here_), block, sizeof block)) > 0;)
        all.append(block, static_cast<size_t>(got));
    return all;
}

void watchForInterrupt() {
    struct sigaction action = {};
    action.sa_handler = noteSignal;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    struct sigaction before = {};
    const bool isKnown = sigaction(SIGHUP, nullptr, &before) == 0;
    if (isKnown && before.sa_handler != SIG_IGN) sigaction(SIGHUP, &action, nullptr);
}

bool interrupted() {
    return signals != 0;
}

void endNow(int exitCode) {
    fflush(stdout);
    _exit(exitCode);
}

}  // namespace emailsend
