// One connection as the SMTP client sees it: plain TCP, or TLS on top of it.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "base/DataBuffer.h"
#include "log/LogBase.h"
#include "net/SocketParams.h"

namespace tv {

class Socket2 {
public:
    Socket2();
    ~Socket2();  // closes abruptly if still open; call close for a clean end
    Socket2(const Socket2&) = delete;
    Socket2& operator=(const Socket2&) = delete;

    // Resolves, connects within connectTimeoutMs in all (0: six hours) and, with ssl, runs the TLS
    // handshake. On failure params.connectFailReason says why and the socket is closed.
    bool connect2(std::string_view hostname, int port, bool ssl, LogBase& log,
                  SocketParams& params);
    // Runs the TLS handshake over the open plain connection. Failure closes the connection.
    bool convertToTls(std::string_view hostname, uint32_t maxIdleMs, LogBase& log,
                      SocketParams& params);
    bool isTls() const;
    bool isConnected() const;
    // The connection stands and nothing unread has arrived; looks once, without waiting.
    bool isQuiet();

    // All bytes or failure; each wait for the socket to accept more is at most maxIdleMs (0: 56 h).
    bool sendBytes(std::span<const uint8_t> bytes, uint32_t maxIdleMs, LogBase& log,
                   SocketParams& params);
    // Appends what is there, waiting up to maxIdleMs for at least one byte.
    bool receiveBytes(DataBuffer& buffer, uint32_t maxIdleMs, LogBase& log, SocketParams& params);
    // Appends to buffer up to and including match; what follows is kept for the next read. Fails
    // when maxSize bytes came without it. Each wait for bytes is at most maxIdleMs.
    bool receiveUntilMatch(DataBuffer& buffer, std::string_view match, size_t maxSize,
                           uint32_t maxIdleMs, LogBase& log, SocketParams& params);
    // True if bytes have been received that no read has taken yet.
    bool hasBufferedInput() const;

    void setTcpNoDelay(bool on, LogBase& log);  // also remembered for the next connect
    void setConnectTimeoutMs(uint32_t ms);
    void setSendBufSize(uint32_t bytes);
    void setRecvBufSize(uint32_t bytes);

    // TLS: sends close_notify and waits a bounded time for the peer's. Then closes the socket.
    void close(bool abrupt, uint32_t maxIdleMs, LogBase& log, SocketParams& params);

    const std::string& remoteIp() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace tv
