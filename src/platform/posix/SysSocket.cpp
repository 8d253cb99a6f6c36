// The socket calls of POSIX with their errno values under the names of NetCode. A peer that is
// gone is an error and never a signal.
#include "platform/SysSocket.h"

#include <errno.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "platform/Replaceable.h"

namespace tv::plat {
namespace {

constexpr struct {
    int error;
    NetCode code;
} kCodes[] = {
    {EACCES, NetCode::Access},
    {EPERM, NetCode::Access},
    {EINVAL, NetCode::Invalid},
    {EMFILE, NetCode::TooManyFiles},
    {ENFILE, NetCode::TooManyFiles},
    {EAGAIN, NetCode::WouldBlock},
    {EINPROGRESS, NetCode::InProgress},
    {EALREADY, NetCode::InProgress},
    {EBADF, NetCode::NotSocket},
    {ENOTSOCK, NetCode::NotSocket},
    {EPROTOTYPE, NetCode::PrototypeMismatch},
    {ENOPROTOOPT, NetCode::NoProtocolOption},
    {EPROTONOSUPPORT, NetCode::ProtocolNotSupported},
    {ESOCKTNOSUPPORT, NetCode::SocketTypeNotSupported},
    {EOPNOTSUPP, NetCode::OperationNotSupported},
    {EAFNOSUPPORT, NetCode::FamilyNotSupported},
    {EADDRINUSE, NetCode::AddressInUse},
    {EADDRNOTAVAIL, NetCode::AddressNotAvailable},
    {ENETDOWN, NetCode::NetDown},
    {ENETUNREACH, NetCode::NetUnreachable},
    {ENETRESET, NetCode::NetReset},
    {ECONNABORTED, NetCode::ConnectionAborted},
    {ECONNRESET, NetCode::ConnectionReset},
    {EPIPE, NetCode::ConnectionReset},
    {ENOBUFS, NetCode::NoBuffers},
    {ENOMEM, NetCode::NoBuffers},
    {ENOTCONN, NetCode::NotConnected},
    {ESHUTDOWN, NetCode::Shutdown},
    {ETIMEDOUT, NetCode::TimedOut},
    {ECONNREFUSED, NetCode::ConnectionRefused},
    {EHOSTDOWN, NetCode::HostDown},
    {EHOSTUNREACH, NetCode::HostUnreachable},
};

NetCode codeOfErrno(int error) {
    if (error == 0) return NetCode::None;
    for (const auto& row : kCodes) {
        if (row.error == error) return row.code;
    }
    return NetCode::Other;
}

NetError errorOf(int error) {
    return {codeOfErrno(error), static_cast<uint32_t>(error)};
}

NetError resultOf(int callResult) {
    return callResult == 0 ? NetError{} : errorOf(errno);
}

NetError errorOfLookup(int error) {
    const uint32_t native = static_cast<uint32_t>(error);
    switch (error) {
        case 0:
            return {};
        case EAI_NONAME:
            return {NetCode::HostNotFound, native};
        case EAI_NODATA:
        case EAI_ADDRFAMILY:
            return {NetCode::NoData, native};
        case EAI_AGAIN:
            return {NetCode::TryAgain, native};
        case EAI_FAIL:
            return {NetCode::NoRecovery, native};
        case EAI_FAMILY:
            return {NetCode::FamilyNotSupported, native};
        case EAI_MEMORY:
            return {NetCode::NoBuffers, native};
        case EAI_SYSTEM:
            return errorOf(errno);
        default:
            return {NetCode::Other, native};
    }
}

// This and the two below stand in the source of each system: a shared one would have to name the
// headers of both.
int systemFamily(AddressFamily family) {
    return family == AddressFamily::IPv4 ? AF_INET : AF_INET6;
}

socklen_t toSystem(const Endpoint& endpoint, sockaddr_storage& out) {
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

class PosixNet final : public SysNet {
public:
    NetError startUp(NetVersion& version) override {
        version = {};
        return {};
    }

    NetError openTcp(AddressFamily family, bool explicitProtocol, SocketHandle& out) override {
        const int s = ::socket(systemFamily(family), SOCK_STREAM | SOCK_CLOEXEC,
                               explicitProtocol ? IPPROTO_TCP : 0);
        out = s;
        return s >= 0 ? NetError{} : errorOf(errno);
    }

    NetError openUdp(AddressFamily family, SocketHandle& out) override {
        const int s = ::socket(systemFamily(family), SOCK_DGRAM | SOCK_CLOEXEC, 0);
        out = s;
        return s >= 0 ? NetError{} : errorOf(errno);
    }

    NetError setNonBlocking(SocketHandle s) override {
        const int flags = fcntl(fd(s), F_GETFL);
        if (flags < 0) return errorOf(errno);
        return resultOf(fcntl(fd(s), F_SETFL, flags | O_NONBLOCK));
    }

    NetError bind(SocketHandle s, const Endpoint& local) override {
        sockaddr_storage address;
        const socklen_t size = toSystem(local, address);
        return resultOf(::bind(fd(s), reinterpret_cast<sockaddr*>(&address), size));
    }

    NetError connect(SocketHandle s, const Endpoint& remote) override {
        sockaddr_storage address;
        const socklen_t size = toSystem(remote, address);
        if (::connect(fd(s), reinterpret_cast<sockaddr*>(&address), size) == 0) return {};
        // An interrupted connect goes on by itself.
        if (errno == EINPROGRESS || errno == EINTR) {
            return {NetCode::WouldBlock, static_cast<uint32_t>(errno)};
        }
        return errorOf(errno);
    }

    // A signal ends the wait early, as not ready: the caller looks at its clock and comes again.
    NetError wait(SocketHandle s, WaitFor what, uint32_t timeoutMs, bool& ready) override {
        pollfd entry = {};
        entry.fd = fd(s);
        if (what != WaitFor::Writable) entry.events |= POLLIN;
        if (what != WaitFor::Readable) entry.events |= POLLOUT;
        // poll takes an int; the caller comes again for the rest.
        constexpr uint32_t kLongest = 0x7FFFFFFF;
        const int count = poll(&entry, 1, static_cast<int>(std::min(timeoutMs, kLongest)));
        ready = count > 0;
        if (count < 0 && errno != EINTR) return errorOf(errno);
        if (ready && (entry.revents & POLLNVAL)) return errorOf(EBADF);
        return {};
    }

    NetError send(SocketHandle s, std::span<const uint8_t> bytes, size_t& sent) override {
        ssize_t count;
        do {
            count = ::send(fd(s), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        } while (count < 0 && errno == EINTR);
        sent = count > 0 ? static_cast<size_t>(count) : 0;
        return count >= 0 ? NetError{} : errorOf(errno);
    }

    NetError receive(SocketHandle s, std::span<uint8_t> into, size_t& received) override {
        ssize_t count;
        do {
            count = ::recv(fd(s), into.data(), into.size(), 0);
        } while (count < 0 && errno == EINTR);
        received = count > 0 ? static_cast<size_t>(count) : 0;
        return count >= 0 ? NetError{} : errorOf(errno);
    }

    NetError pendingError(SocketHandle s, NetError& pending) override {
        int error = 0;
        socklen_t size = sizeof error;
        if (getsockopt(fd(s), SOL_SOCKET, SO_ERROR, &error, &size) != 0) return errorOf(errno);
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
        return errorOf(EINVAL);
    }

    NetError setKeepAliveTimes(SocketHandle s, uint32_t idleMs, uint32_t intervalMs) override {
        // Whole seconds here, rounded up: 0 would be refused.
        const NetError error = set(s, IPPROTO_TCP, TCP_KEEPIDLE, (idleMs + 999) / 1000);
        return error.ok() ? set(s, IPPROTO_TCP, TCP_KEEPINTVL, (intervalMs + 999) / 1000) : error;
    }

    NetError setZeroLinger(SocketHandle s) override {
        linger value = {};
        value.l_onoff = 1;
        return resultOf(setsockopt(fd(s), SOL_SOCKET, SO_LINGER, &value, sizeof value));
    }

    NetError localEndpoint(SocketHandle s, Endpoint& local) override {
        sockaddr_storage address;
        socklen_t size = sizeof address;
        if (getsockname(fd(s), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
            return errorOf(errno);
        }
        if (!fromSystem(reinterpret_cast<sockaddr*>(&address), local)) return errorOf(EAFNOSUPPORT);
        return {};
    }

    NetError shutdownSend(SocketHandle s) override { return resultOf(shutdown(fd(s), SHUT_WR)); }

    NetError close(SocketHandle s) override {
        // After EINTR the descriptor is closed all the same: a second close could hit another's.
        if (::close(fd(s)) != 0 && errno != EINTR) return errorOf(errno);
        return {};
    }

    NetError lookupHost(std::string_view name, AddressFamily family,
                        std::vector<IpAddress>& addresses) override {
        addrinfo hints = {};
        hints.ai_family = systemFamily(family);
        hints.ai_socktype = SOCK_STREAM;
        addrinfo* list = nullptr;
        const int error = getaddrinfo(std::string(name).c_str(), nullptr, &hints, &list);
        if (error != 0) return errorOfLookup(error);
        addresses.clear();
        const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owner(list, freeaddrinfo);
        for (const addrinfo* entry = list; entry; entry = entry->ai_next) {
            Endpoint found;
            if (!fromSystem(entry->ai_addr, found) || found.address.family != family) continue;
            if (std::find(addresses.begin(), addresses.end(), found.address) == addresses.end()) {
                addresses.push_back(found.address);
            }
        }
        return addresses.empty() ? errorOfLookup(EAI_NODATA) : NetError{};
    }

private:
    static int fd(SocketHandle s) { return static_cast<int>(s); }

    static NetError set(SocketHandle s, int level, int option, uint32_t value) {
        const int number = static_cast<int>(value);
        return resultOf(setsockopt(fd(s), level, option, &number, sizeof number));
    }
};

}  // namespace

SysNet& sysNet() {
    return Replaceable<SysNet>::get<PosixNet>();
}

}  // namespace tv::plat
