// A TLS channel over one TCP socket: the only code that moves bytes between the TLS engine and a
// socket.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "base/Failure.h"
#include "base/SecureBuffer.h"
#include "log/LogBase.h"
#include "net/stream/CallContext.h"
#include "net/stream/TolvaneSocket.h"
#include "net/tls/TlsSession.h"

namespace tv {

struct ServerTrust;
namespace tls {
class TlsProtocol;
}
namespace x509 {
struct ChainVerdict;
}

// Keeps the newest session of a connection object for its next connect, which may be made by
// another socket object.
struct TlsSessionSlot {
    std::optional<tls::TlsSession> session;
};

// How TLS began. The numbers end the texts of a failed handshake.
enum class TlsStart { StartTls = 1, Implicit = 3 };

struct TlsChannelSettings {
    std::string tlsProtocol;  // a version policy; empty: TLS 1.0 to 1.3
    bool requireSslCertVerify = false;
    // The retry after a server that did not answer. Where the certificate is verified, it carries
    // the mark of a fallback: who cuts the first try must not get a lower version.
    bool withoutTls13 = false;
    bool moreCurves = false;         // also offers brainpoolP384r1 and brainpoolP512r1; for tests
    std::string trustAnchorsFile;    // PEM; empty: the system's anchors
    std::string furtherAnchorsFile;  // PEM; counts besides those
    std::vector<std::string> pinnedKeys;       // SHA-256 of SubjectPublicKeyInfo; empty: any key
    bool oldSuites = true;                     // as in tls::TlsOptions
    std::shared_ptr<TlsSessionSlot> sessions;  // may be null
};

class SChannelTolvane {
public:
    // The socket outlives the channel.
    explicit SChannelTolvane(TolvaneSocket& socket);
    ~SChannelTolvane();
    SChannelTolvane(const SChannelTolvane&) = delete;
    SChannelTolvane& operator=(const SChannelTolvane&) = delete;

    // Runs the handshake over the connected socket and, if asked for, verifies the server's
    // certificate. On failure the socket is left to be closed.
    Failure handshake(CallContext& call, std::string_view host, int port,
                      const TlsChannelSettings& settings, TlsStart start, uint32_t idleTimeoutMs);

    Failure sendApplicationData(CallContext& call, std::span<const uint8_t> bytes, size_t& sent,
                                uint32_t idleTimeoutMs);
    // Waits until input holds at least one byte.
    Failure receiveApplicationData(CallContext& call, uint32_t idleTimeoutMs);
    // Looks once, without waiting; false where input is empty all the same.
    bool receiveReady(CallContext& call);
    // Plain text from the peer; whoever reads it removes it. Only after a handshake.
    SecureBuffer& input();

    // Says good-bye and waits a bounded time for the peer to do so.
    void closeNotify(CallContext& call, uint32_t idleTimeoutMs);

    // False once the peer has said good-bye or the channel has failed.
    bool isOpen() const;
    const tls::TlsProtocol* engine() const { return engine_.get(); }

private:
    class Environment;

    Failure exchange(CallContext& call, uint32_t idleTimeoutMs);
    Failure flush(CallContext& call, uint32_t idleTimeoutMs);
    Failure readMore(CallContext& call, uint32_t idleTimeoutMs);
    Failure process(CallContext& call, size_t arrived, uint32_t idleTimeoutMs);
    Failure whyEnded() const;
    Failure takeArrived(CallContext& call);
    Failure checkServerCert(CallContext& call, std::string_view host, const ServerTrust& trust,
                            uint32_t idleTimeoutMs);
    Failure refuseCertificate(CallContext& call, const x509::ChainVerdict& verdict);
    Failure handshakeFailed(LogBase& log, Failure failure, TlsStart start);
    void keepSession();

    TolvaneSocket& socket_;
    std::unique_ptr<Environment> environment_;
    std::unique_ptr<tls::TlsProtocol> engine_;
    std::shared_ptr<TlsSessionSlot> sessions_;
    tls::SessionScope scope_;
    bool isFallback_ = false;
    uint64_t verifiedUntilMs_ = 0;  // as in TlsSession
    bool readFailed_ = false;
};

}  // namespace tv
