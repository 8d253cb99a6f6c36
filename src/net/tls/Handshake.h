// What the hello phase and the two flows of a handshake share, and the interface of a flow.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/Cause.h"
#include "log/LogBase.h"
#include "log/LogContextExitor.h"
#include "net/tls/ClientHello.h"
#include "net/tls/HandshakeMessages.h"
#include "net/tls/HandshakeReader.h"
#include "net/tls/KeyShare.h"
#include "net/tls/RecordLayer.h"
#include "net/tls/ServerHello.h"
#include "net/tls/TlsPolicy.h"
#include "net/tls/TlsSession.h"
#include "net/tls/Transcript.h"

namespace tv::tls {

// What the engine is handed from outside: it knows no clock and no random source itself.
class TlsEnvironment {
public:
    virtual ~TlsEnvironment() = default;
    // Secret-grade bytes; false where the system has none.
    virtual bool random(std::span<uint8_t> out) = 0;
    // A number below the limit, for orders that need to differ and not to be secret.
    virtual uint32_t draw(uint32_t below) = 0;
    virtual uint64_t wallClockMs() = 0;
};

struct TlsSettings {
    VersionRange versions;
    TlsOptions options;
    std::string serverName;
    bool moreCurves = false;            // see HelloParameters
    std::optional<TlsSession> session;  // offered once, if it is usable
    // A repetition with less than we can: the hello says so (RFC 7507), and a server that marks its
    // random as able to do better is not believed.
    bool fallback = false;
    // The server's certificate is verified, and whoever does that refuses it where its key usage
    // does not fit the cipher suite.
    bool verifiesServer = false;
};

// What both Finished messages said, for a later renegotiation (RFC 5746, 3.1).
struct RenegotiationState {
    bool isSecure = false;  // the server answered renegotiation_info
    std::vector<uint8_t> clientVerify;
    std::vector<uint8_t> serverVerify;
};

// The facts of an established connection.
struct Negotiated {
    Version version = Version::None;
    const CipherSuite* suite = nullptr;
    Group group = Group::None;
    bool resumed = false;
    bool extendedMasterSecret = false;
    bool clientCertificateAsked = false;      // there is none to show
    std::vector<std::vector<uint8_t>> chain;  // DER, the server's own certificate first
    std::vector<uint8_t> leaf;                // that certificate; of a resumed session, too
    RenegotiationState renegotiation;
};

// The messages allowed next. Each message empties the set, so a state that forgets to say what may
// follow lets nothing follow.
class NextMessages {
public:
    NextMessages() = default;
    NextMessages(std::initializer_list<HandshakeType> types) {
        for (const HandshakeType type : types) {
            bits_ |= bit(type);
        }
    }
    static NextMessages changeCipherSpec() {
        NextMessages next;
        next.ccs_ = true;
        return next;
    }
    NextMessages orChangeCipherSpec() const {
        NextMessages next = *this;
        next.ccs_ = true;
        return next;
    }

    bool allows(HandshakeType type) const { return (bits_ & bit(type)) != 0; }
    bool allowsChangeCipherSpec() const { return ccs_; }

private:
    static uint32_t bit(HandshakeType type) {
        const unsigned number = static_cast<uint8_t>(type);
        return number < 32 ? uint32_t{1} << number : 0;
    }

    uint32_t bits_ = 0;
    bool ccs_ = false;
};

struct Handshake {
    const TlsSettings& settings;
    TlsEnvironment& environment;
    RecordLayer& records;

    Transcript transcript;
    ClientHello hello;
    std::vector<std::unique_ptr<KeyShare>> shares;
    bool sessionOffered = false;
    bool sentCcs = false;

    std::vector<uint8_t> serverRandom;
    Negotiated result;
    std::optional<TlsSession> newSession;  // TLS 1.2 and before: made by the handshake itself

    // Adds to the transcript and sends.
    bool send(std::span<const uint8_t> message);
    // The single ChangeCipherSpec record of TLS 1.3's compatibility mode (RFC 8446, D.4), once.
    bool sendCompatibilityCcs();
    // Good for as long as the environment.
    crypto::RandomSource randomSource() const {
        return [source = &environment](std::span<uint8_t> out) { return source->random(out); };
    }
};

// The part of a handshake after the ServerHello: one class for TLS 1.3, one for all before.
class HandshakeFlow {
public:
    virtual ~HandshakeFlow() = default;
    virtual const NextMessages& next() const = 0;
    // A message that next() allows. atBoundary: nothing of another message has arrived behind it.
    virtual Cause onMessage(LogBase& log, const HandshakeMessage& message, bool atBoundary) = 0;
    // A ChangeCipherSpec that next() allows; between messages only.
    virtual Cause onChangeCipherSpec() = 0;
    virtual bool done() const = 0;
};

// record_size_limit of the peer (RFC 8449, 4): too small is refused; the record layer caps a large
// one.
Cause applyRecordSizeLimit(RecordLayer& records, uint16_t limit);

}  // namespace tv::tls
