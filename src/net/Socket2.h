// One connection as the SMTP client sees it: plain TCP, or TLS on top of it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "base/DataBuffer.h"
#include "base/Failure.h"
#include "log/LogBase.h"
#include "net/LoggedSocket2.h"
#include "net/stream/CallContext.h"
#include "platform/IpAddress.h"

namespace tv {

struct TlsChannelSettings;
namespace tls {
struct Negotiated;
}

// One thread uses a connection at a time. A Socket2 that is destroyed by another thread during a
// wait ends that wait with a failure at its next slice.
class Socket2 {
public:
    Socket2();
    ~Socket2();  // closes at once if still open; call close for a clean end
    Socket2(const Socket2&) = delete;
    Socket2& operator=(const Socket2&) = delete;

    // Resolves, connects within the connect time-out in all (0: six hours) and, with ssl, runs the
    // TLS handshake. On failure the socket is closed.
    Failure connect2(CallContext& call, std::string_view hostname, int port, bool ssl);
    // Runs the TLS handshake over the open plain connection. Failure closes the connection.
    Failure convertToTls(CallContext& call, std::string_view hostname, uint32_t idleTimeoutMs);
    bool isTls() const;
    // Turns false when the peer has closed or an operation has failed; the socket stays to be
    // closed.
    bool isConnected() const;
    // The connection stands and nothing unread has arrived; looks once, without waiting.
    bool isQuiet();

    // All bytes or failure; each wait for the socket to accept more is at most idleTimeoutMs (0: 56
    // h).
    Failure sendBytes(CallContext& call, std::span<const uint8_t> bytes, uint32_t idleTimeoutMs);
    // Appends what is there, waiting up to idleTimeoutMs for at least one byte.
    Failure receiveBytes(CallContext& call, DataBuffer& buffer, uint32_t idleTimeoutMs);
    // Appends to buffer up to and including match; what follows is kept for the next read. Fails
    // when match does not end within maxSize bytes; those are then in buffer. After any other
    // failure buffer is as it was. Each wait for bytes is at most idleTimeoutMs.
    Failure receiveUntilMatch(CallContext& call, DataBuffer& buffer, std::string_view match,
                              size_t maxSize, uint32_t idleTimeoutMs);
    // True if bytes have been received that no read has taken yet.
    bool hasBufferedInput() const;

    void setTcpNoDelay(LogBase& log, bool on);  // also remembered for the next connect
    void setConnectTimeoutMs(uint32_t ms);
    void setPreferIpv6(bool on);
    // Addresses of the host that are of no other family; nothing: any.
    void setOnlyFamily(std::optional<plat::AddressFamily> family);
    // What the next connect comes from, a numeric address; empty: the system chooses.
    void setLocalAddress(std::string_view address);
    // What the last handshake agreed on; nullptr while the connection is not TLS.
    const tls::Negotiated* negotiated() const;
    // Versions, verification and sessions of the next handshake.
    TlsChannelSettings& tlsSettings();

    // Copies all traffic from now on, also to a file unless the path is empty. False where the file
    // cannot be opened; memory is used all the same.
    bool startSessionLog(std::string_view utf8Path);
    const LoggedSocket2* sessionLog() const;  // nullptr: none

    // TLS: says good-bye first, unless abrupt, and waits at most idleTimeoutMs for the peer to do
    // so. A plain connection is closed at once.
    void close(CallContext& call, bool abrupt, uint32_t idleTimeoutMs);

    // As last given to connect2, and what was reached.
    const std::string& remoteIp() const;
    const std::optional<plat::IpAddress>& localAddress() const;

private:
    Failure connectTcp(CallContext& call);
    Failure connectTls(CallContext& call);

    struct State;
    // Shared with the operations under way, which outlive the object if another thread destroys it.
    std::shared_ptr<State> state_;
};

}  // namespace tv
