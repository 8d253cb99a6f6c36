// The version that is asked for, and the words where it does not start.
#include "net/stream/SocketLibrary.h"

#include <mutex>

#include "net/stream/SocketError.h"
#include "platform/HexNumber.h"
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
    if (!error.ok()) {
        log.logError("WSAStartup error: 0x" + plat::hexNumber(error.native));
        logSocketError(log, error);
        return false;
    }
    own.startedFor = &net;
    if (version.major != 0) {
        log.logData("ws2_32_DLL_Version", "Using ws2_32.dll version " +
                                              std::to_string(version.major) + "," +
                                              std::to_string(version.minor));
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
