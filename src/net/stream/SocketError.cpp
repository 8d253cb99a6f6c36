// The names and sentences of Winsock, which the log uses on every system, and advice for some.
#include "net/stream/SocketError.h"

#include "platform/HexNumber.h"

namespace tv {
namespace {

using plat::NetCode;

struct Row {
    NetCode code;
    const char* text;
};

constexpr Row kTexts[] = {
    {NetCode::NotInitialised,
     "WSANOTINITIALISED A successful WSAStartup must occur before using this function."},
    {NetCode::WouldBlock, "WSAEWOULDBLOCK The socket would block."},
    {NetCode::ConnectionAborted,
     "WSAECONNABORTED An established connection was aborted by the software in your host machine."},
    {NetCode::NetDown,
     "WSAENETDOWN The network subsystem or the associated service provider has failed."},
    {NetCode::FamilyNotSupported, "WSAEAFNOSUPPORT The specified address family is not supported."},
    {NetCode::NotConnected,
     "WSAENOTCONN A request to send or receive data was disallowed because the socket is not "
     "connected."},
    {NetCode::TooManyFiles, "WSAEMFILE No more socket descriptors are available."},
    {NetCode::NoBuffers, "WSAENOBUFS No buffer space is available. The socket cannot be created."},
    {NetCode::ProtocolNotSupported, "WSAEPROTONOSUPPORT The specified protocol is not supported."},
    {NetCode::PrototypeMismatch,
     "WSAEPROTOTYPE The specified protocol is the wrong type for this socket."},
    {NetCode::SocketTypeNotSupported,
     "WSAESOCKTNOSUPPORT The specified socket type is not supported in this address family."},
    {NetCode::NetUnreachable,
     "WSAENETUNREACH A socket operation was attempted to an unreachable network."},
    {NetCode::ConnectionRefused,
     "WSAECONNREFUSED No connection could be made because the target machine actively refused it."},
    {NetCode::ConnectionReset,
     "WSAECONNRESET An existing connection was forcibly closed by the remote host."},
    {NetCode::AddressInUse,
     "WSAEADDRINUSE Only one usage of each socket address (protocol/network address/port) is "
     "normally permitted."},
    {NetCode::Access,
     "WSAEACCES An attempt was made to access a socket in a way forbidden by its access "
     "permissions."},
    {NetCode::Invalid, "WSAEINVAL An invalid argument was supplied."},
    {NetCode::AddressNotAvailable, "WSAEADDRNOTAVAIL Cannot assign requested address."},
    {NetCode::ProviderFailedInit,
     "WSAEPROVIDERFAILEDINIT The requested service provider could not be loaded or initialized."},
    {NetCode::HostNotFound, "WSAHOST_NOT_FOUND No such host is known."},
    {NetCode::NoData,
     "WSANO_DATA The requested name is valid, but no data of the requested type was found."},
    {NetCode::InProgress, "WSAEINPROGRESS A blocking operation is currently executing."},
    {NetCode::TimedOut,
     "WSAETIMEDOUT A connection attempt failed because the connected party did not properly "
     "respond after a period of time, or an established connection failed because the connected "
     "host has failed to respond."},
};

// A second line: where the first names only a number, or where the usual cause lies elsewhere.
constexpr Row kCauses[] = {
    {NetCode::NoData,
     "WSANO_DATA typically indicates a problem with DNS -- possibly a missing CNAME record for the "
     "host."},
    {NetCode::HostUnreachable, "There is no route to the remote host."},
    {NetCode::HostDown, "The remote host is down."},
    {NetCode::NetReset, "The connection was broken because keep-alive found it dead."},
    {NetCode::Shutdown, "The sending side of the connection has already been shut down."},
    {NetCode::TryAgain, "The name server did not answer, or reported a temporary failure."},
    {NetCode::NoRecovery, "The name server reported a failure that cannot be recovered from."},
};

const char* find(const Row* begin, const Row* end, NetCode code) {
    for (const Row* row = begin; row != end; ++row) {
        if (row->code == code) return row->text;
    }
    return nullptr;
}

}  // namespace

std::string socketErrorText(const plat::NetError& error) {
    if (error.ok()) return "No socket error. (errno=0)";
    if (const char* text = find(std::begin(kTexts), std::end(kTexts), error.code)) return text;
    const uint32_t number =
        error.is(NetCode::Other) ? error.native : static_cast<uint32_t>(error.code);
    return "Error 0x" + plat::hexNumber(number);
}

void logSocketError(LogBase& log, const plat::NetError& error) {
    log.logError(socketErrorText(error));
    if (const char* cause = find(std::begin(kCauses), std::end(kCauses), error.code)) {
        log.logInfo(cause);
    }
}

}  // namespace tv
