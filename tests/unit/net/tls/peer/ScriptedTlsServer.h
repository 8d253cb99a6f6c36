// A TLS server that does what a script says: it holds all the keys, lets an edit change each plain
// message before it goes out, and signs, hashes and protects what came of it. Its long-lived keys
// are libcrypto's; schedules and records are ours, which OpenSSL judges (OpenSslPeerTest.cpp).
// Handshakes, renegotiations included, are driven by what the client sends.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <utility>

#include "net/tls/CipherSuites.h"
#include "net/tls/KeySchedule12.h"
#include "net/tls/KeySchedule13.h"
#include "net/tls/KeyShare.h"
#include "tests/unit/net/tls/peer/LibCrypto.h"

namespace tv::tls::test {

enum class Step : uint8_t {
    HelloRetry,
    ServerHello,
    EncryptedExtensions,
    CertificateRequest,
    Certificate,
    CertificateStatus,
    CertificateVerify,
    ServerKeyParams,  // the signed part of the ServerKeyExchange, before it is signed
    ServerKeyExchange,
    ServerHelloDone,
    NewSessionTicket,
    ChangeCipherSpec,
    Finished,
    HelloRequest,
    KeyUpdate,
};

struct Extension {
    uint16_t type;
    Bytes body;
};

// Something about to be sent: a handshake message, or the content of another record.
struct Item {
    uint8_t type = 0;  // of the handshake message
    Bytes body;        // without the extensions at its end
    std::optional<std::vector<Extension>> exts;
    uint8_t record = 22;           // content type
    bool raw = false;              // the body is all there is: no message, nothing to be hashed
    bool plain = false;            // unprotected even where there are keys
    Bytes tail;                    // stands behind the message in its record, part of nothing
    std::optional<size_t> length;  // announced in place of the true one

    Bytes encode() const;
    Item& flat();                    // turns body and extensions into plain bytes
    Bytes& ext(uint16_t extension);  // the body of one that is there
    void drop(uint16_t extension);
};
using Items = std::vector<Item>;
// Gets the item and the list that will be sent, which holds nothing but the item.
using Edit = std::function<void(Item&, Items&)>;

struct ServerSetup {
    uint16_t version = 0x0304;
    uint16_t suite = 0x1301;
    std::string key = "P-256";
    uint16_t scheme = 0x0403;
    uint16_t group = 29;
    bool retry = false;  // a HelloRetryRequest for the group first
    Bytes cookie;        // in the HelloRetryRequest
    bool retryForGroup = true;
    bool keyShare = true;  // false: a pre-shared key alone
    bool extendedMaster = true;
    bool secureRenegotiation = true;
    bool ticket = false;       // NewSessionTicket after or in the handshake
    bool echo = false;         // the session ID of the hello, in TLS 1.2, too
    bool rehash = true;        // false: transcript over the messages before the edit
    int editRound = 1;         // the handshake of the connection that is edited
    std::vector<Step> flight;  // empty: the usual one
    Bytes certificate;         // in place of the key's
    Bytes dhPrime;
    size_t recordSize = 16384;
    size_t padding = 0;         // zeros in TLS 1.3 records
    bool emptyRecords = false;  // one before each protected record
    // What was kept of an earlier connection.
    Bytes sessionId, sessionSecret;
    std::multimap<Step, Edit> edits;
};

class ScriptedTlsServer {
public:
    explicit ScriptedTlsServer(ServerSetup s) : setup(std::move(s)) {}

    void receive(View bytes);                         // from the client; throws where that is wrong
    Bytes take() { return std::exchange(out_, {}); }  // for the client
    // Sends more than the client's messages ask for: one step, a record, bytes as they are.
    void emit(Step step);
    void send(uint8_t record, View content, bool plain = false);
    void wire(View bytes) { out_.insert(out_.end(), bytes.begin(), bytes.end()); }

    struct Hello {
        Bytes random, sessionId;
        std::vector<uint16_t> suites;
        std::vector<Extension> exts;
        const Extension* find(uint16_t type) const;
    };
    std::vector<Hello> hellos;
    std::vector<int> alerts;          // fatal ones and warnings alike, close_notify left out
    int clearAlerts = 0;              // those that were not protected
    std::string received;             // application data
    std::vector<size_t> recordSizes;  // of the application data records
    int clientFinished = 0;           // right ones
    bool resumed = false;
    int round = 0;
    bool binderRight = false;
    Bytes clientCertificate;  // its message
    // For a later connection.
    Bytes sessionId, sessionSecret;
    ServerSetup setup;

private:
    using Cipher = std::unique_ptr<RecordCipher>;
    bool is13() const { return setup.version >= 0x0304; }
    Version version() const { return static_cast<Version>(setup.version); }
    Version headerVersion() const { return std::min(version(), Version::Tls12); }
    const CipherSuite& suite() const { return *findCipherSuite(setup.suite); }
    Bytes transcriptHash() const;
    void seal(uint8_t type, View text);
    void onRecord(uint8_t type, View body);
    void onMessage(uint8_t type, View body, View whole);
    void onHello(View body, View whole);
    void checkBinder(View whole);
    void onFinished(View body, View whole);
    void onClientKeyExchange(View body);
    std::vector<Step> usualFlight() const;

    Item build(Step step);
    Item serverHello();
    Item helloRetry() const;
    Item certificateVerify() const;
    Item keyExchange();
    Bytes verifyData(bool fromClient) const;
    void after(Step step);
    void runEdits(Step step, Items& items);
    Cipher cipherOf(const RecordKeys& keys) const;
    Cipher cipher13(const SecureBuffer& secret) const;
    void makeHandshakeKeys();
    void makeKeys12();

    Bytes in_, out_, messages_, transcript_;
    Cipher read_, write_, nextRead_, nextWrite_;
    SecureBuffer clientSecret_, serverSecret_, nextClientSecret_;  // of the traffic of TLS 1.3
    std::optional<MasterStage13> masterStage_;
    Bytes random_, master_, clientVerify_, serverVerify_, dhPrivate_;
    std::unique_ptr<KeyShare> share_;
    bool retried_ = false;
    bool closed_ = false;   // close_notify came
    bool updated_ = false;  // a KeyUpdate came, and no data since then
};

}  // namespace tv::tls::test
