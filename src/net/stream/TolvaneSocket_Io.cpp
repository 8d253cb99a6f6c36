// Waiting in slices, sending and receiving. Every wait has two limits: its own, which starts anew
// with each byte that moves, and that of the operation as a whole.
#include <algorithm>

#include "net/stream/SocketError.h"
#include "net/stream/TolvaneSocket.h"

namespace tv {
namespace {

using plat::NetCode;

constexpr size_t kMaxTransfer = 1048576;  // of one system call

Deadline idleDeadline(uint32_t maxIdleMs) {
    return Deadline(TolvaneSocket::longestWaitMs(maxIdleMs));
}

class FlagWhile {
public:
    explicit FlagWhile(std::atomic<bool>& flag) : flag_(flag) {}
    ~FlagWhile() { flag_ = false; }
    FlagWhile(const FlagWhile&) = delete;
    FlagWhile& operator=(const FlagWhile&) = delete;

private:
    std::atomic<bool>& flag_;
};

// A socket that says ready and then is not, over and over, must not keep a processor busy.
void yieldIfRepeated(int& fruitless) {
    if (++fruitless > 1) plat::sysClock().sleepMs(1);
}

}  // namespace

bool TolvaneSocket::isUsable(LogBase& log) const {
    if (closing_) {
        log.logError("Another thread is closing this socket.");
        return false;
    }
    if (!isAlive() || handle_ == plat::kNoSocket) {
        log.logError("This socket is not connected");
        return false;
    }
    return true;
}

TolvaneSocket::Waited TolvaneSocket::wait(CallContext& call, plat::WaitFor what,
                                          const Deadline& deadline) {
    if (handle_ == plat::kNoSocket) {
        call.log.logError("Cannot wait for socket data: not connected (invalid socket)");
        return Waited::Failed;
    }
    for (;;) {
        if (call.checkAbort()) return Waited::Aborted;
        const uint64_t idle = deadline.leftMs();
        const uint64_t left = call.whole ? std::min(idle, call.whole->leftMs()) : idle;
        if (left == 0) {
            call.timedOut = true;
            call.overranMs = idle == 0 ? 0 : call.whole->limitMs();
            return Waited::TimedOut;
        }
        bool ready = false;
        const uint32_t sliceMs = static_cast<uint32_t>(std::min<uint64_t>(left, call.sliceMs()));
        const plat::NetError error = plat::sysNet().wait(handle_, what, sliceMs, ready);
        if (mustStop()) {
            call.log.logError("Another thread is closing this socket.");
            return Waited::Failed;
        }
        if (!error.ok()) {
            logSocketError(call.log, error);
            return Waited::Failed;
        }
        if (ready) return Waited::Ready;
    }
}

bool TolvaneSocket::waitReadableSocket(CallContext& call, uint32_t maxIdleMs) {
    const InUse use(*this);
    const Waited waited = wait(call, plat::WaitFor::Readable, idleDeadline(maxIdleMs));
    if (waited == Waited::Aborted) call.log.logError("Wait for data on socket aborted by app");
    return waited == Waited::Ready;
}

bool TolvaneSocket::waitWriteableSocket(CallContext& call, uint32_t maxIdleMs) {
    const InUse use(*this);
    const Waited waited = wait(call, plat::WaitFor::Writable, idleDeadline(maxIdleMs));
    if (waited == Waited::Aborted) call.log.logError("socket operation aborted by application");
    return waited == Waited::Ready;
}

bool TolvaneSocket::sendBytes(CallContext& call, std::span<const uint8_t> bytes, size_t& sent,
                              uint32_t maxIdleMs) {
    sent = 0;
    const InUse use(*this);
    if (!isUsable(call.log)) return false;
    Deadline idle = idleDeadline(maxIdleMs);
    int fruitless = 0;
    while (sent < bytes.size()) {
        const size_t size = std::min(bytes.size() - sent, kMaxTransfer);
        size_t taken = 0;
        const plat::NetError error = plat::sysNet().send(handle_, bytes.subspan(sent, size), taken);
        if (taken > 0) {
            sent += taken;
            fruitless = 0;
            idle = idleDeadline(maxIdleMs);
            if (sent < bytes.size() && call.checkAbort()) {
                return sendFailed(call.log, sent, bytes.size() - sent, Waited::Aborted);
            }
            continue;
        }
        if (!error.ok() && !error.is(NetCode::WouldBlock)) {
            logSocketError(call.log, error);
            isConnected_ = false;
            return false;
        }
        const Waited waited = wait(call, plat::WaitFor::Writable, idle);
        if (waited != Waited::Ready) return sendFailed(call.log, sent, bytes.size() - sent, waited);
        yieldIfRepeated(fruitless);
    }
    return true;
}

bool TolvaneSocket::sendFailed(LogBase& log, size_t sent, size_t unsent, Waited how) {
    if (how == Waited::Aborted) {
        log.logError("socket operation aborted by application");
    } else if (how == Waited::TimedOut && sent > 0) {
        log.logError("Timeout after partial send.");
        log.logDataLong("numBytesSent", static_cast<int64_t>(sent));
        log.logDataLong("numBytesUnsent", static_cast<int64_t>(unsent));
    } else if (how == Waited::TimedOut) {
        log.logError("Timeout: the remote host accepted no data.");
    }
    return false;
}

bool TolvaneSocket::receiveBytes(CallContext& call, std::span<uint8_t> into, size_t& received,
                                 uint32_t maxIdleMs) {
    received = 0;
    const InUse use(*this);
    if (!isUsable(call.log)) return false;
    if (receiving_.exchange(true)) {
        call.log.logError("Another thread is already receiving on this socket.");
        return false;
    }
    const FlagWhile flag(receiving_);
    const Deadline idle = idleDeadline(maxIdleMs);
    for (int fruitless = 0;;) {
        const Waited waited = wait(call, plat::WaitFor::Readable, idle);
        if (waited == Waited::Aborted) call.log.logError("socket operation aborted by application");
        if (waited == Waited::TimedOut) call.log.logError("Timeout: the remote host sent no data.");
        if (waited != Waited::Ready) return false;
        const plat::NetError error = plat::sysNet().receive(
            handle_, into.first(std::min(into.size(), kMaxTransfer)), received);
        if (error.is(NetCode::WouldBlock)) {
            yieldIfRepeated(fruitless);
            continue;
        }
        if (!error.ok()) {
            call.log.logError("Failed to receive data on the TCP socket");
            logSocketError(call.log, error);
            isConnected_ = false;
            return false;
        }
        if (received == 0) {
            call.log.logError("Connection closed by peer.");
            call.log.logDataLong("maxToReceive", static_cast<int64_t>(into.size()));
            isConnected_ = false;
            return false;
        }
        return true;
    }
}

bool TolvaneSocket::receiveReady(std::span<uint8_t> into, size_t& received) {
    received = 0;
    const InUse use(*this);
    if (!isAlive() || closing_ || handle_ == plat::kNoSocket || receiving_.exchange(true)) {
        return false;
    }
    const FlagWhile flag(receiving_);
    const plat::NetError error = plat::sysNet().receive(handle_, into, received);
    if (error.ok() ? received == 0 : !error.is(NetCode::WouldBlock)) isConnected_ = false;
    return received > 0;
}

}  // namespace tv
