// The system's sockets: one thin function per system call, errors as values of one enumeration on
// every system. No waiting but in wait and lookupHost. Tests replace the whole network.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "platform/IpAddress.h"
#include "platform/Replaceable.h"

namespace tv::plat {

// What went wrong, under the names and numbers of Winsock; the errno values of POSIX are mapped to
// them.
enum class NetCode : uint32_t {
    None = 0,
    Other = 1,  // nothing of the list: NetError::native tells
    Access = 10013,
    Invalid = 10022,
    TooManyFiles = 10024,
    WouldBlock = 10035,
    InProgress = 10036,
    NotSocket = 10038,
    PrototypeMismatch = 10041,
    NoProtocolOption = 10042,
    ProtocolNotSupported = 10043,
    SocketTypeNotSupported = 10044,
    OperationNotSupported = 10045,
    FamilyNotSupported = 10047,
    AddressInUse = 10048,
    AddressNotAvailable = 10049,
    NetDown = 10050,
    NetUnreachable = 10051,
    NetReset = 10052,
    ConnectionAborted = 10053,
    ConnectionReset = 10054,
    NoBuffers = 10055,
    NotConnected = 10057,
    Shutdown = 10058,
    TimedOut = 10060,
    ConnectionRefused = 10061,
    HostDown = 10064,
    HostUnreachable = 10065,
    VersionNotSupported = 10092,
    NotInitialised = 10093,
    ProviderFailedInit = 10106,
    HostNotFound = 11001,
    TryAgain = 11002,
    NoRecovery = 11003,
    NoData = 11004,
};

struct NetError {
    NetCode code = NetCode::None;
    uint32_t native = 0;  // the system's own number

    bool ok() const { return code == NetCode::None; }
    bool is(NetCode wanted) const { return code == wanted; }
};

using SocketHandle = intptr_t;
inline constexpr SocketHandle kNoSocket = -1;

enum class SocketOption { TcpNoDelay, KeepAlive, SendBuffer, ReceiveBuffer, V6Only };
enum class WaitFor { Readable, Writable, Either };

struct NetVersion {
    int major = 0;
    int minor = 0;
};

class SysNet {
public:
    virtual ~SysNet() = default;

    // Makes sockets usable in this process; may be called again. version is what was obtained and
    // stays 0,0 on systems that need no start-up.
    virtual NetError startUp(NetVersion& version) = 0;

    // A stream socket, closed to child processes. Protocol 0, or TCP by name with explicitProtocol.
    virtual NetError openTcp(AddressFamily family, bool explicitProtocol, SocketHandle& socket) = 0;
    // A datagram socket, closed to child processes. Once it is connected the system hands on only
    // what comes from that address and port, and send and receive move whole datagrams; word that
    // nobody listens there is ConnectionReset or ConnectionRefused, by system.
    virtual NetError openUdp(AddressFamily family, SocketHandle& socket) = 0;
    virtual NetError setNonBlocking(SocketHandle socket) = 0;
    virtual NetError bind(SocketHandle socket, const Endpoint& local) = 0;
    // WouldBlock: under way; the socket becomes writable when it is decided.
    virtual NetError connect(SocketHandle socket, const Endpoint& remote) = 0;
    // Sleeps until the socket is ready or timeoutMs are over. An error on the socket makes it
    // ready.
    virtual NetError wait(SocketHandle socket, WaitFor what, uint32_t timeoutMs, bool& ready) = 0;
    // Both move what can be moved at once; WouldBlock when that is nothing. A peer that is gone is
    // an error, never a signal. received = 0 without an error is the end of the stream.
    virtual NetError send(SocketHandle socket, std::span<const uint8_t> bytes, size_t& sent) = 0;
    virtual NetError receive(SocketHandle socket, std::span<uint8_t> into, size_t& received) = 0;
    // Reads and clears the error that stands on the socket (SO_ERROR).
    virtual NetError pendingError(SocketHandle socket, NetError& pending) = 0;
    virtual NetError setOption(SocketHandle socket, SocketOption option, uint32_t value) = 0;
    // Idle time before the first probe, and time between probes. Does not switch keep-alive on.
    virtual NetError setKeepAliveTimes(SocketHandle socket, uint32_t idleMs,
                                       uint32_t intervalMs) = 0;
    // A following close discards what is unsent and resets the connection.
    virtual NetError setZeroLinger(SocketHandle socket) = 0;
    virtual NetError localEndpoint(SocketHandle socket, Endpoint& local) = 0;
    virtual NetError shutdownSend(SocketHandle socket) = 0;
    // The handle is gone whatever the result.
    virtual NetError close(SocketHandle socket) = 0;

    // The system's resolver, hosts file and all. Cannot be interrupted and may take many seconds.
    // Success means at least one address; no address is listed twice.
    virtual NetError lookupHost(std::string_view name, AddressFamily family,
                                std::vector<IpAddress>& addresses) = 0;
};

SysNet& sysNet();

// For tests: as replaceSysClock.
inline SysNet* replaceSysNet(SysNet* net) {
    return Replaceable<SysNet>::replace(net);
}

}  // namespace tv::plat
