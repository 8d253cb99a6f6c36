// The version that is asked for, and the words where it does not start.
#include "net/stream/SocketLibrary.h"

#include <cstdio>
#include <mutex>

#include "net/stream/SocketError.h"
#include "platform/SysSocket.h"

namespace tv {
namespace {

struct Library {
    std::mutex lock;
    plat::SysNet* startedFor = nullptr;  // a replaced network needs a start of its own
};

// Never destroyed: connections may be in use until the process ends.
Library& library() {
    static Library& own = *new Library;
    return own;
}

bool startLocked(LogBase& log, Library& own) {
    plat::SysNet& net = plat::sysNet();
    plat::NetVersion version;
    const plat::NetError error = net.startUp(version);
    char text[64];
    if (!error.ok()) {
        std::snprintf(text, sizeof text, "WSAStartup error: 0x%x",
                      static_cast<unsigned>(error.native));
        log.logError(text);
        logSocketError(log, error);
        return false;
    }
    own.startedFor = &net;
    if (version.major != 0) {
        std::snprintf(text, sizeof text, "Using ws2_32.dll version %d,%d", version.major,
                      version.minor);
        log.logData("ws2_32_DLL_Version", text);
    }
    return true;
}

}  // namespace

bool ensureSocketLibrary(LogBase& log) {
    Library& own = library();
    const std::lock_guard guard(own.lock);
    return own.startedFor == &plat::sysNet() || startLocked(log, own);
}

bool startupWSA(LogBase& log) {
    Library& own = library();
    const std::lock_guard guard(own.lock);
    return startLocked(log, own);
}

}  // namespace tv
