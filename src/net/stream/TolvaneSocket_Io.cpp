// Waiting in slices, sending and receiving. Every wait has two limits: its own, which starts anew
// with each byte that moves, and that of the operation as a whole.
#include <algorithm>
#include <utility>

#include "net/stream/SocketError.h"
#include "net/stream/TolvaneSocket.h"

namespace tv {
namespace {

using plat::NetCode;

// Of one system call. Winsock may refuse much larger ones for lack of buffers, and whether to stop
// is asked between two.
constexpr size_t kMaxTransfer = 1048576;

Deadline idleDeadline(uint32_t idleTimeoutMs) {
    return Deadline(TolvaneSocket::longestWaitMs(idleTimeoutMs));
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

Failure TolvaneSocket::whyUnusable(LogBase& log) const {
    if (closing_) {
        log.logError("Another thread is closing this socket.");
        return Failure(Cause::ConnectionLost);
    }
    if (!isAlive() || handle_ == plat::kNoSocket) {
        log.logError("This socket is not connected");
        return Failure(Cause::ConnectionLost);
    }
    return {};
}

Failure TolvaneSocket::wait(CallContext& call, plat::WaitFor what, const Deadline& deadline) {
    if (handle_ == plat::kNoSocket) {
        call.log.logError("Cannot wait for socket data: not connected (invalid socket)");
        return Failure(Cause::ConnectionLost);
    }
    for (;;) {
        if (call.mustStop()) return Failure(Cause::Aborted);
        const uint64_t idle = deadline.leftMs();
        const uint64_t left = call.total ? std::min(idle, call.total->leftMs()) : idle;
        if (left == 0) {
            return Failure(Cause::Timeout).withTotal(idle == 0 ? 0 : call.total->limitMs());
        }
        bool ready = false;
        const uint32_t sliceMs = static_cast<uint32_t>(std::min<uint64_t>(left, call.sliceMs()));
        const plat::NetError error = plat::sysNet().wait(handle_, what, sliceMs, ready);
        if (mustStop()) {
            call.log.logError("Another thread is closing this socket.");
            return Failure(Cause::ConnectionLost);
        }
        if (!error.ok()) {
            logSocketError(call.log, error);
            return Failure(Cause::ConnectionLost);
        }
        if (ready) return {};
    }
}

Failure TolvaneSocket::sendBytes(CallContext& call, std::span<const uint8_t> bytes, size_t& sent,
                                 uint32_t idleTimeoutMs) {
    sent = 0;
    const InUse use(*this);
    if (Failure failure = whyUnusable(call.log)) return failure;
    Deadline idle = idleDeadline(idleTimeoutMs);
    int fruitless = 0;
    while (sent < bytes.size()) {
        const size_t size = std::min(bytes.size() - sent, kMaxTransfer);
        size_t taken = 0;
        const plat::NetError error = plat::sysNet().send(handle_, bytes.subspan(sent, size), taken);
        if (taken > 0) {
            sent += taken;
            fruitless = 0;
            idle = idleDeadline(idleTimeoutMs);
            if (sent < bytes.size() && call.mustStop()) {
                return sendFailed(call.log, sent, bytes.size() - sent, Failure(Cause::Aborted));
            }
            continue;
        }
        if (!error.ok() && !error.is(NetCode::WouldBlock)) {
            logSocketError(call.log, error);
            isConnected_ = false;
            return Failure(Cause::ConnectionLost);
        }
        if (Failure failure = wait(call, plat::WaitFor::Writable, idle)) {
            return sendFailed(call.log, sent, bytes.size() - sent, std::move(failure));
        }
        yieldIfRepeated(fruitless);
    }
    return {};
}

Failure TolvaneSocket::sendFailed(LogBase& log, size_t sent, size_t unsent, Failure failure) {
    if (failure.is(Cause::Aborted)) {
        log.logError("socket operation aborted by application");
    } else if (failure.is(Cause::Timeout) && sent > 0) {
        log.logError("Timeout after partial send.");
        log.logDataLong("numBytesSent", static_cast<int64_t>(sent));
        log.logDataLong("numBytesUnsent", static_cast<int64_t>(unsent));
    } else if (failure.is(Cause::Timeout)) {
        log.logError("Timeout: the remote host accepted no data.");
    }
    return failure;
}

Failure TolvaneSocket::receiveBytes(CallContext& call, std::span<uint8_t> into, size_t& received,
                                    uint32_t idleTimeoutMs) {
    received = 0;
    const InUse use(*this);
    if (Failure failure = whyUnusable(call.log)) return failure;
    if (receiving_.exchange(true)) {
        call.log.logError("Another thread is already receiving on this socket.");
        return Failure(Cause::ConnectionLost);
    }
    const FlagWhile flag(receiving_);
    const Deadline idle = idleDeadline(idleTimeoutMs);
    for (int fruitless = 0;;) {
        if (Failure failure = wait(call, plat::WaitFor::Readable, idle)) {
            if (failure.is(Cause::Aborted)) {
                call.log.logError("socket operation aborted by application");
            } else if (failure.is(Cause::Timeout)) {
                call.log.logError("Timeout: the remote host sent no data.");
            }
            return failure;
        }
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
            return Failure(Cause::ConnectionLost);
        }
        if (received == 0) {
            call.log.logError("Connection closed by peer.");
            call.log.logDataLong("maxToReceive", static_cast<int64_t>(into.size()));
            isConnected_ = false;
            return Failure(Cause::ConnectionLost);
        }
        return {};
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
