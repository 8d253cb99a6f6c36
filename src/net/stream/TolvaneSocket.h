// One TCP socket: created, connected, waited for in slices, read, written and closed. Between
// slices the caller's progress monitor is asked whether to go on.
//
// One thread uses a socket at a time. A second one that receives too, or that comes while it is
// being closed, is refused; a close while another thread waits takes effect at its next slice.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "base/Failure.h"
#include "log/LogBase.h"
#include "net/stream/CallContext.h"
#include "net/stream/Deadline.h"
#include "platform/SysSocket.h"

namespace tv {

enum class CloseForm {
    AtOnce,    // the system delivers what is unsent, then ends the connection
    Graceful,  // sends a FIN and reads on until the peer's
    Abortive,  // discards what is unsent and resets the connection
};

class TolvaneSocket {
public:
    // What a time-out of 0 stands for.
    static constexpr uint32_t kEndlessReadMs = 201600000;    // 56 hours
    static constexpr uint32_t kEndlessConnectMs = 21600000;  // 6 hours
    // What a limit on one wait for bytes comes down to.
    static constexpr uint64_t longestWaitMs(uint32_t idleTimeoutMs) {
        return idleTimeoutMs == 0 ? kEndlessReadMs : idleTimeoutMs;
    }

    TolvaneSocket();
    ~TolvaneSocket();
    TolvaneSocket(const TolvaneSocket&) = delete;
    TolvaneSocket& operator=(const TolvaneSocket&) = delete;

    // A fresh socket with keep-alive and buffer sizes set; one still held is closed before.
    bool createSocket_ipv4(LogBase& log);
    bool createSocket_ipv6(LogBase& log);

    // Connects the socket just created, within connectTimeoutMs (0: six hours). On failure the
    // socket is closed.
    Failure connect(CallContext& call, const plat::IpAddress& address, uint16_t port,
                    uint32_t connectTimeoutMs);

    // All bytes or failure; sent says how many were taken. Waits only when the socket takes no
    // more, then at most idleTimeoutMs (0: 56 hours) each time, and no longer than call.total.
    Failure sendBytes(CallContext& call, std::span<const uint8_t> bytes, size_t& sent,
                      uint32_t idleTimeoutMs);
    // At least one byte and what else has arrived. At the end of the stream the socket counts as
    // no longer connected.
    Failure receiveBytes(CallContext& call, std::span<uint8_t> into, size_t& received,
                         uint32_t idleTimeoutMs);
    // As receiveBytes without waiting and without a log: false where nothing has arrived, too.
    bool receiveReady(std::span<uint8_t> into, size_t& received);

    // Whatever fails on the way, the socket is closed afterwards. Only a graceful close waits, at
    // most maxWaitMs in all.
    void terminateConnection(CallContext& call, CloseForm form, uint32_t maxWaitMs);

    bool setTcpNoDelay(LogBase& log, bool on);
    void useSystemBufSizes(bool on) { systemBufSizes_ = on; }
    // A local address or port (0: any) that every socket created from now on is bound to; for
    // settings that name one.
    void setClientBind(std::string_view ipAddress, uint16_t port);

    bool isConnected() const { return isConnected_; }
    plat::AddressFamily family() const { return family_; }
    const std::string& remoteIp() const { return remoteIp_; }
    // Of the last connection that was made, where the system told it.
    const std::optional<plat::IpAddress>& localAddress() const { return localAddress_; }
    uint32_t serialNumber() const { return serialNumber_; }

private:
    // An operation under way. If the socket was to be closed meanwhile, the last one out does it.
    class InUse {
    public:
        explicit InUse(TolvaneSocket& socket) : socket_(socket) { ++socket_.users_; }
        ~InUse() {
            if (--socket_.users_ == 0 && socket_.closing_) socket_.finishClose();
        }
        InUse(const InUse&) = delete;
        InUse& operator=(const InUse&) = delete;

    private:
        TolvaneSocket& socket_;
    };

    // A mark that memory does not keep by chance: an operation that outlives its socket ends at
    // its next slice.
    static constexpr uint32_t kAlive = 0x4901FB2A;

    bool isAlive() const { return alive_ == kAlive; }
    bool mustStop() const { return !isAlive() || (closing_ && users_ > 0); }
    Failure whyUnusable(LogBase& log) const;
    bool createSocket(LogBase& log, plat::AddressFamily family);
    plat::NetError openSocket(LogBase& log, plat::AddressFamily family);
    void setBufferSizes(LogBase& log);
    void setSize(LogBase& log, plat::SocketOption option, uint32_t bytes);
    void keepAlive(LogBase& log);
    bool doClientBind(LogBase& log);
    Failure connectFailed(LogBase& log, Cause cause, std::string text = {});
    Failure awaitConnect(CallContext& call, uint32_t timeoutMs);
    void explainConnectError(LogBase& log, const plat::NetError& error, uint64_t waitedMs);
    void connected(LogBase& log);
    Failure wait(CallContext& call, plat::WaitFor what, const Deadline& deadline);
    Failure sendFailed(LogBase& log, size_t sent, size_t unsent, Failure failure);
    void readUntilFin(CallContext& call, uint32_t maxWaitMs);
    void closeHandle(LogBase& log);
    void finishClose();

    std::atomic<uint32_t> alive_{kAlive};
    std::atomic<plat::SocketHandle> handle_{plat::kNoSocket};
    std::atomic<bool> isConnected_{false};
    std::atomic<bool> receiving_{false};
    std::atomic<bool> closing_{false};
    std::atomic<int> users_{0};
    bool systemBufSizes_ = false;
    plat::AddressFamily family_ = plat::AddressFamily::IPv4;
    std::string bindIpAddress_;
    uint16_t bindPort_ = 0;
    std::string remoteIp_;
    std::optional<plat::IpAddress> localAddress_;
    uint32_t serialNumber_;
};

}  // namespace tv
