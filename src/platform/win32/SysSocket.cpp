// The socket calls of Winsock, whose error numbers are those of NetCode already.
#include "platform/SysSocket.h"

// Each of these needs the one before.
// clang-format off
#include <winsock2.h>
#include <ws2tcpip.h>
#include <mstcpip.h>
// clang-format on

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "platform/Replaceable.h"
#include "platform/win32/WidePath.h"

#ifndef WSA_FLAG_NO_HANDLE_INHERIT
#define WSA_FLAG_NO_HANDLE_INHERIT 0x80  // absent from older headers
#endif

namespace tv::plat {
namespace {

bool isListed(NetCode code) {
    switch (code) {
        case NetCode::Access:
        case NetCode::Invalid:
        case NetCode::TooManyFiles:
        case NetCode::WouldBlock:
        case NetCode::InProgress:
        case NetCode::NotSocket:
        case NetCode::PrototypeMismatch:
        case NetCode::NoProtocolOption:
        case NetCode::ProtocolNotSupported:
        case NetCode::SocketTypeNotSupported:
        case NetCode::OperationNotSupported:
        case NetCode::FamilyNotSupported:
        case NetCode::AddressInUse:
        case NetCode::AddressNotAvailable:
        case NetCode::NetDown:
        case NetCode::NetUnreachable:
        case NetCode::NetReset:
        case NetCode::ConnectionAborted:
        case NetCode::ConnectionReset:
        case NetCode::NoBuffers:
        case NetCode::NotConnected:
        case NetCode::Shutdown:
        case NetCode::TimedOut:
        case NetCode::ConnectionRefused:
        case NetCode::HostDown:
        case NetCode::HostUnreachable:
        case NetCode::VersionNotSupported:
        case NetCode::NotInitialised:
        case NetCode::ProviderFailedInit:
        case NetCode::HostNotFound:
        case NetCode::TryAgain:
        case NetCode::NoRecovery:
        case NetCode::NoData:
            return true;
        default:
            return false;
    }
}

NetError errorOf(int error) {
    const uint32_t native = static_cast<uint32_t>(error);
    if (error == 0) return {};
    const NetCode code = static_cast<NetCode>(native);
    return {isListed(code) ? code : NetCode::Other, native};
}

NetError resultOf(int callResult) {
    return callResult == 0 ? NetError{} : errorOf(WSAGetLastError());
}

// This and the two below stand in the source of each system: a shared one would have to name the
// headers of both.
int systemFamily(AddressFamily family) {
    return family == AddressFamily::IPv4 ? AF_INET : AF_INET6;
}

int toSystem(const Endpoint& endpoint, sockaddr_storage& out) {
    std::memset(&out, 0, sizeof out);
    if (endpoint.address.isIpv4()) {
        auto& in = reinterpret_cast<sockaddr_in&>(out);
        in.sin_family = AF_INET;
        in.sin_port = htons(endpoint.port);
        std::memcpy(&in.sin_addr, endpoint.address.bytes.data(), 4);
        return sizeof in;
    }
    auto& in6 = reinterpret_cast<sockaddr_in6&>(out);
    in6.sin6_family = AF_INET6;
    in6.sin6_port = htons(endpoint.port);
    in6.sin6_scope_id = endpoint.address.scope;
    std::memcpy(&in6.sin6_addr, endpoint.address.bytes.data(), 16);
    return sizeof in6;
}

bool fromSystem(const sockaddr* from, Endpoint& endpoint) {
    if (from->sa_family == AF_INET) {
        sockaddr_in in;
        std::memcpy(&in, from, sizeof in);
        endpoint.address = {};
        std::memcpy(endpoint.address.bytes.data(), &in.sin_addr, 4);
        endpoint.port = ntohs(in.sin_port);
        return true;
    }
    if (from->sa_family == AF_INET6) {
        sockaddr_in6 in6;
        std::memcpy(&in6, from, sizeof in6);
        endpoint.address = {AddressFamily::IPv6, {}, in6.sin6_scope_id};
        std::memcpy(endpoint.address.bytes.data(), &in6.sin6_addr, 16);
        endpoint.port = ntohs(in6.sin6_port);
        return true;
    }
    return false;
}

int clampedSize(size_t size) {
    constexpr size_t kMost = 0x7FFFFFFF;  // Winsock counts in int
    return static_cast<int>(std::min(size, kMost));
}

class WindowsNet final : public SysNet {
public:
    // Asks for the highest version there can be; an old library names the highest it has.
    NetError startUp(NetVersion& version) override {
        WSADATA data = {};
        int error = WSAStartup(0x0909, &data);
        if (error == WSAVERNOTSUPPORTED) error = WSAStartup(data.wHighVersion, &data);
        if (error != 0) return errorOf(error);
        version = {LOBYTE(data.wVersion), HIBYTE(data.wVersion)};
        return {};
    }

    NetError openTcp(AddressFamily family, bool explicitProtocol, SocketHandle& out) override {
        return open(family, SOCK_STREAM, explicitProtocol ? IPPROTO_TCP : 0, out);
    }

    NetError openUdp(AddressFamily family, SocketHandle& out) override {
        return open(family, SOCK_DGRAM, IPPROTO_UDP, out);
    }

    NetError setNonBlocking(SocketHandle s) override {
        u_long on = 1;
        return resultOf(ioctlsocket(handle(s), static_cast<long>(FIONBIO), &on));
    }

    NetError bind(SocketHandle s, const Endpoint& local) override {
        sockaddr_storage address;
        const int size = toSystem(local, address);
        return resultOf(::bind(handle(s), reinterpret_cast<sockaddr*>(&address), size));
    }

    NetError connect(SocketHandle s, const Endpoint& remote) override {
        sockaddr_storage address;
        const int size = toSystem(remote, address);
        return resultOf(::connect(handle(s), reinterpret_cast<sockaddr*>(&address), size));
    }

    // select and not WSAPoll: before Windows 10 2004 the latter never reports a refused connect.
    NetError wait(SocketHandle s, WaitFor what, uint32_t timeoutMs, bool& ready) override {
        fd_set readable = setOf(s), writable = setOf(s), failed = setOf(s);
        timeval limit;
        limit.tv_sec = static_cast<long>(timeoutMs / 1000);
        limit.tv_usec = static_cast<long>(timeoutMs % 1000) * 1000;
        const int count = select(0, what == WaitFor::Writable ? nullptr : &readable,
                                 what == WaitFor::Readable ? nullptr : &writable,
                                 what == WaitFor::Readable ? nullptr : &failed, &limit);
        ready = count > 0;
        return count >= 0 ? NetError{} : errorOf(WSAGetLastError());
    }

    NetError send(SocketHandle s, std::span<const uint8_t> bytes, size_t& sent) override {
        const int count = ::send(handle(s), reinterpret_cast<const char*>(bytes.data()),
                                 clampedSize(bytes.size()), 0);
        sent = count > 0 ? static_cast<size_t>(count) : 0;
        return count >= 0 ? NetError{} : errorOf(WSAGetLastError());
    }

    NetError receive(SocketHandle s, std::span<uint8_t> into, size_t& received) override {
        const int count =
            ::recv(handle(s), reinterpret_cast<char*>(into.data()), clampedSize(into.size()), 0);
        received = count > 0 ? static_cast<size_t>(count) : 0;
        return count >= 0 ? NetError{} : errorOf(WSAGetLastError());
    }

    NetError pendingError(SocketHandle s, NetError& pending) override {
        int error = 0;
        int size = sizeof error;
        if (getsockopt(handle(s), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &size) !=
            0) {
            return errorOf(WSAGetLastError());
        }
        pending = errorOf(error);
        return {};
    }

    NetError setOption(SocketHandle s, SocketOption option, uint32_t value) override {
        switch (option) {
            case SocketOption::TcpNoDelay:
                return set(s, IPPROTO_TCP, TCP_NODELAY, value);
            case SocketOption::KeepAlive:
                return set(s, SOL_SOCKET, SO_KEEPALIVE, value);
            case SocketOption::SendBuffer:
                return set(s, SOL_SOCKET, SO_SNDBUF, value);
            case SocketOption::ReceiveBuffer:
                return set(s, SOL_SOCKET, SO_RCVBUF, value);
            case SocketOption::V6Only:
                return set(s, IPPROTO_IPV6, IPV6_V6ONLY, value);
        }
        return errorOf(WSAEINVAL);
    }

    NetError setKeepAliveTimes(SocketHandle s, uint32_t idleMs, uint32_t intervalMs) override {
        tcp_keepalive values = {};
        values.onoff = 1;
        values.keepalivetime = idleMs;
        values.keepaliveinterval = intervalMs;
        DWORD returned = 0;
        return resultOf(WSAIoctl(handle(s), SIO_KEEPALIVE_VALS, &values, sizeof values, nullptr, 0,
                                 &returned, nullptr, nullptr));
    }

    NetError setZeroLinger(SocketHandle s) override {
        linger value = {};
        value.l_onoff = 1;
        return resultOf(setsockopt(handle(s), SOL_SOCKET, SO_LINGER,
                                   reinterpret_cast<const char*>(&value), sizeof value));
    }

    NetError localEndpoint(SocketHandle s, Endpoint& local) override {
        sockaddr_storage address;
        int size = sizeof address;
        if (getsockname(handle(s), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
            return errorOf(WSAGetLastError());
        }
        if (!fromSystem(reinterpret_cast<sockaddr*>(&address), local)) {
            return errorOf(WSAEAFNOSUPPORT);
        }
        return {};
    }

    NetError shutdownSend(SocketHandle s) override {
        return resultOf(shutdown(handle(s), SD_SEND));
    }

    NetError close(SocketHandle s) override { return resultOf(closesocket(handle(s))); }

    NetError lookupHost(std::string_view name, AddressFamily family,
                        std::vector<IpAddress>& addresses) override {
        ADDRINFOW hints = {};
        hints.ai_family = systemFamily(family);
        hints.ai_socktype = SOCK_STREAM;
        ADDRINFOW* list = nullptr;
        const int error = GetAddrInfoW(widen(name).c_str(), nullptr, &hints, &list);
        if (error != 0) return errorOf(error);
        const std::unique_ptr<ADDRINFOW, void (*)(ADDRINFOW*)> owner(
            list, [](ADDRINFOW* all) { FreeAddrInfoW(all); });
        addresses.clear();
        for (const ADDRINFOW* entry = list; entry; entry = entry->ai_next) {
            Endpoint found;
            if (!fromSystem(entry->ai_addr, found) || found.address.family != family) continue;
            if (std::find(addresses.begin(), addresses.end(), found.address) == addresses.end()) {
                addresses.push_back(found.address);
            }
        }
        return addresses.empty() ? errorOf(WSANO_DATA) : NetError{};
    }

private:
    static NetError open(AddressFamily family, int type, int protocol, SocketHandle& out) {
        SOCKET s = WSASocketW(systemFamily(family), type, protocol, nullptr, 0,
                              WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
        if (s == INVALID_SOCKET && WSAGetLastError() == WSAEINVAL) {
            // Windows 7 without its service pack does not know the flag.
            s = WSASocketW(systemFamily(family), type, protocol, nullptr, 0, WSA_FLAG_OVERLAPPED);
            if (s != INVALID_SOCKET) {
                SetHandleInformation(reinterpret_cast<HANDLE>(s), HANDLE_FLAG_INHERIT, 0);
            }
        }
        out = static_cast<SocketHandle>(s);
        return s != INVALID_SOCKET ? NetError{} : errorOf(WSAGetLastError());
    }

    static SOCKET handle(SocketHandle s) { return static_cast<SOCKET>(s); }

    static fd_set setOf(SocketHandle s) {
        fd_set set = {};
        set.fd_count = 1;
        set.fd_array[0] = handle(s);
        return set;
    }

    static NetError set(SocketHandle s, int level, int option, uint32_t value) {
        const DWORD number = value;
        return resultOf(setsockopt(handle(s), level, option, reinterpret_cast<const char*>(&number),
                                   sizeof number));
    }
};

}  // namespace

SysNet& sysNet() {
    return Replaceable<SysNet>::get<WindowsNet>();
}

}  // namespace tv::plat
