// A TLS server that does what a script says: it holds all the keys, lets an edit change each plain
// message before it goes out, and signs, hashes and protects what came of it. Its long-lived keys
// are those that a program fills in (ServerKeys.h); schedules and records are ours, which OpenSSL
// judges (OpenSslPeerTest.cpp). Handshakes, renegotiations included, are driven by what the client
// sends.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <sstream>
#include <utility>

#include "base/ByteWriter.h"
#include "base/Random.h"
#include "net/tls/CipherSuites.h"
#include "net/tls/KeySchedule12.h"
#include "net/tls/KeySchedule13.h"
#include "net/tls/KeyShare.h"
#include "net/tls/Transcript.h"
#include "tests/fixtures/TestBytes.h"
#include "tests/unit/net/tls/ServerKeys.h"
#include "tests/unit/net/tls/TestEnvironment.h"

namespace tv::tls::test {

using Words = std::vector<std::string>;

// The parts between separators, without blanks around them.
inline Words split(const std::string& text, char separator) {
    Words parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, separator);) {
        const size_t first = part.find_first_not_of(' ');
        if (first == part.npos) part.clear();
        if (first != part.npos) part = part.substr(first, part.find_last_not_of(' ') + 1 - first);
        parts.push_back(part);
    }
    return parts;
}

inline void must(bool ok, const char* what) {
    if (!ok) throw std::runtime_error(std::string("wrong ") + what);
}

inline Bytes joined(std::initializer_list<View> parts) {
    Bytes out;
    for (const View part : parts) {
        out.insert(out.end(), part.begin(), part.end());
    }
    return out;
}

inline Bytes u16(size_t value) {
    return {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
}

// Behind its length, which takes so many bytes.
inline Bytes counted(size_t lengthBytes, View data) {
    ByteWriter w;
    w.vector(lengthBytes, [&] { w.append(data); });
    return w.take();
}

constexpr uint8_t kCcs = 20, kAlert = 21, kHandshake = 22, kData = 23;
constexpr uint16_t kRenegotiationInfo = 0xFF01, kExtendedMaster = 23;

// The messages by their names in scripts. Retry: the HelloRetryRequest; Params: the signed part of
// the ServerKeyExchange, before it is signed; Ccs: the record of that type.
inline const std::map<std::string, uint8_t> kSteps = {
    {"Retry", 2},     {"Hello", 2},   {"Extensions", 8}, {"Request", 13},     {"Certificate", 11},
    {"Status", 22},   {"Verify", 15}, {"Params", 12},    {"Exchange", 12},    {"Done", 14},
    {"Finished", 20}, {"Ticket", 4},  {"Ccs", 0},        {"HelloRequest", 0}, {"Update", 24}};

// Something about to be sent: a handshake message, or the content of another record.
struct Item {
    uint8_t type = 0;  // of the handshake message
    Bytes body = {};   // without the extensions at its end
    std::optional<std::vector<Extension>> exts = {};
    uint8_t record = kHandshake;
    bool raw = false;    // the body is all there is: no message, nothing to be hashed
    bool plain = false;  // unprotected even where there are keys
    Bytes tail = {};     // stands behind the message in its record, part of nothing
    std::optional<size_t> length = {};  // announced in place of the true one

    // Turns body and extensions into plain bytes.
    Bytes& flat() {
        if (!exts) return body;
        Bytes block;
        for (const Extension& e : *exts) {
            block = joined({block, u16(e.type), counted(2, e.body)});
        }
        exts.reset();
        return body = joined({body, counted(2, block)});
    }
    Bytes encode() const {
        const Bytes all = Item(*this).flat();
        if (record != kHandshake || raw) return all;
        ByteWriter w;
        w.u8(type);
        w.u24(length.value_or(all.size()));
        w.append(all);
        return w.take();
    }
};
using Items = std::vector<Item>;
// Gets the item and the list that will be sent, which holds nothing but the item.
using Edit = std::function<void(Item&, Items&)>;

struct ServerSetup {
    Version version = Version::Tls13;
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
    bool ticket = false;  // NewSessionTicket after or in the handshake
    bool echo = false;    // the session ID of the hello, in TLS 1.2, too
    bool rehash = true;   // false: transcript over the messages before the edit
    int editRound = 1;    // the handshake of the connection that is edited
    std::string flight;   // "Hello/Certificate/Done"; empty: the usual one
    Bytes certificate;    // in place of the key's
    Bytes prime;          // of a Diffie-Hellman group with the generator 2
    size_t recordSize = 16384;
    size_t padding = 0;  // zeros in TLS 1.3 records
    // What was kept of an earlier connection.
    Bytes sessionId, sessionSecret;
    std::multimap<std::string, Edit> edits;
};

class ScriptedTlsServer {
public:
    explicit ScriptedTlsServer(ServerSetup s) : setup(std::move(s)) {}

    // From the client; throws where that is wrong.
    void receive(View bytes) {
        in_ = joined({in_, bytes});
        for (Bytes record; !(record = next(in_, 3, 2)).empty();) {
            onRecord(record[0], View(record).subspan(5));
        }
    }
    Bytes take() { return std::exchange(out_, {}); }  // for the client

    // Sends more than the client's messages ask for: one step, a record, bytes as they are.
    void emit(const std::string& step) {
        const Item original = build(step);
        Items items{original};
        runEdits(step, items);
        const bool afterwards =
            step == "HelloRequest" || step == "Update" || (step == "Ticket" && is13());
        const auto hash = [&](const Item& item) {
            if (item.record != kHandshake || item.raw || afterwards) return;
            transcript_ = joined({transcript_, item.encode()});
        };
        if (!setup.rehash) hash(original);
        if (step == "Hello" && setup.rehash && !items.empty()) {
            const Bytes hello = Item(items.front()).flat();
            if (hello.size() >= 34) random_.assign(hello.begin() + 2, hello.begin() + 34);
        }
        for (const Item& item : items) {
            if (setup.rehash) hash(item);
            send(item.record, joined({item.encode(), item.tail}), item.plain);
        }
        changeKeys(step);
    }
    void send(uint8_t record, View content, bool plain = false) {
        const bool sealed = write_ && !plain;
        do {
            const View piece = content.first(std::min(content.size(), setup.recordSize));
            content = content.subspan(piece.size());
            if (sealed) {
                seal(record, piece);
            } else {
                const Bytes minor = u16(static_cast<size_t>(headerVersion()));
                wire(joined({Bytes{record}, minor, counted(2, piece)}));
            }
        } while (!content.empty());
    }
    void wire(View bytes) { out_.insert(out_.end(), bytes.begin(), bytes.end()); }

    std::vector<Hello> hellos;
    std::vector<int> alerts;          // fatal ones and warnings alike, close_notify left out
    int clearAlerts = 0;              // those that were not protected
    std::string received;             // application data
    std::vector<size_t> recordSizes;  // of the application data records
    int clientFinished = 0;           // right ones
    bool resumed = false;
    bool binderRight = false;
    Bytes clientCertificate;  // its message
    // For a later connection.
    Bytes sessionId, sessionSecret;
    ServerSetup setup;

private:
    using Cipher = std::unique_ptr<RecordCipher>;

    bool is13() const { return setup.version >= Version::Tls13; }
    Version headerVersion() const { return std::min(setup.version, Version::Tls12); }
    const CipherSuite& suite() const { return *findCipherSuite(setup.suite); }
    Bytes transcriptHash() const {
        Transcript transcript;
        transcript.add(transcript_);
        transcript.settle(setup.version, suite().hash);
        return transcript.hash();
    }
    // The first record or message, taken away: its length stands behind so many bytes and has so
    // many. Nothing where it is not whole.
    static Bytes next(Bytes& from, size_t before, size_t lengthBytes) {
        ByteReader r(from);
        r.skip(before);
        r.skip(lengthBytes == 2 ? r.u16() : r.u24());
        if (!r.ok()) return {};
        const Bytes whole = bytesIn(View(from).first(r.position()));
        from = bytesIn(r.rest());
        return whole;
    }

    void seal(uint8_t type, View text) {
        // Zeros behind the type are padding, and the last one passes for the type.
        const bool pads = is13() && setup.padding > 0;
        Bytes padded = joined({text, View(&type, pads ? 1 : 0)});
        if (pads) padded.resize(padded.size() + setup.padding - 1);
        DataBuffer out;
        write_->seal({static_cast<ContentType>(pads ? 0 : type), headerVersion()}, padded, out);
        wire(out.bytes());
    }

    void onRecord(uint8_t type, View body) {
        Bytes opened = bytesIn(body);
        View text = opened;
        const bool isPlain = is13() && type != kData;  // an early alert, or the ChangeCipherSpec
        must(!closed_, "record behind close_notify");
        if (read_ && !isPlain) {
            RecordHeader header{static_cast<ContentType>(type), headerVersion()};
            must(read_->open(header, opened, text), "record");
            type = static_cast<uint8_t>(header.type);
        }
        if (type == kCcs) {
            must(bytesIn(text) == Bytes{1}, "ChangeCipherSpec");
            if (!is13()) read_ = std::move(nextRead_);
        } else if (type == kAlert) {
            must(text.size() == 2, "alert");
            closed_ = text[1] == 0;
            if (!closed_) alerts.push_back(text[1]);
            clearAlerts += isPlain;
        } else if (type == kData) {
            updated_ = false;
            received.append(text.begin(), text.end());
            recordSizes.push_back(text.size());
        } else {
            messages_ = joined({messages_, text});
            for (Bytes whole; !(whole = next(messages_, 1, 3)).empty();) {
                onMessage(whole[0], View(whole).subspan(4), whole);
            }
        }
    }

    void onMessage(uint8_t type, View body, View whole) {
        if (type == 1) return onHello(body, whole);
        if (type == 20) return onFinished(body, whole);
        if (type == 24) {  // KeyUpdate: one until data follows (RFC 8446, 4.6.3)
            must(!std::exchange(updated_, true), "number of key updates");
            clientSecret_ = nextTrafficSecret(suite().hash, clientSecret_.bytes());
            read_ = cipher13(clientSecret_);
            return;
        }
        if (type == 11) clientCertificate = bytesIn(body);
        transcript_ = joined({transcript_, whole});
        if (type == 16) onClientKeyExchange(body);
    }

    void onHello(View body, View whole) {
        const Hello hello = helloIn(body);
        hellos.push_back(hello);
        const Bytes* const info = find(hello.exts, kRenegotiationInfo);
        must(info && *info == counted(1, clientVerify_), "renegotiation_info");
        const bool offersKey = find(hello.exts, 41) && !setup.sessionSecret.empty();
        if (offersKey) checkBinder(whole);
        if (retried_) {
            transcript_ = joined({transcript_, whole});
        } else {
            must(++round_ == 1 || hello.sessionId.empty(), "session ID in a renegotiation");
            transcript_ = bytesIn(whole);
            randomBytes(random_ = Bytes(32));
            if (setup.retry) {
                retried_ = true;
                transcript_ = joined({Bytes{254, 0, 0}, counted(1, transcriptHash())});
                return emit("Retry");
            }
        }
        resumed =
            is13() ? offersKey : !setup.sessionId.empty() && hello.sessionId == setup.sessionId;
        for (const std::string& step :
             split(setup.flight.empty() ? usualFlight() : setup.flight, '/')) {
            emit(step);
        }
    }

    const char* usualFlight() const {
        if (is13() && resumed) return "Hello/Extensions/Finished";
        if (is13()) return "Hello/Extensions/Certificate/Verify/Finished";
        if (resumed) return "Hello/Ccs/Finished";
        return suite().keyExchange == KeyExchangeKind::Rsa ? "Hello/Certificate/Done"
                                                           : "Hello/Certificate/Exchange/Done";
    }

    void checkBinder(View whole) {
        const size_t size = crypto::digestSize(suite().hash);
        const Bytes truncated = joined({transcript_, whole.first(whole.size() - size - 3)});
        const EarlyStage13 early(suite().hash, setup.sessionSecret);
        const Bytes wanted = finishedMac13(suite().hash, early.resumptionBinder().bytes(),
                                           crypto::Hash::of(suite().hash, truncated));
        binderRight = wanted == bytesIn(whole.last(size));
    }

    void onClientKeyExchange(View body) {
        ByteReader r(body);
        SecureBuffer premaster;
        // The server of a Diffie-Hellman or RSA exchange has no secret of its own: it shows by
        // ending there that what it sent was taken.
        must(share_ && share_->derive(r.vector8(), premaster), "share");
        share_.reset();
        must(r.complete(), "ClientKeyExchange");
        const bool extended = setup.extendedMaster && find(hellos.back().exts, kExtendedMaster);
        const Bytes seed = extended ? transcriptHash() : joined({hellos.back().random, random_});
        master_ = bytesIn(
            masterSecret12(setup.version, suite().hash, premaster.bytes(), extended, seed).bytes());
        makeKeys12();
    }

    void onFinished(View body, View whole) {
        const Bytes wanted = verifyData(true);
        must(bytesIn(body) == wanted, "Finished");
        transcript_ = joined({transcript_, whole});
        ++clientFinished;
        if (is13()) {
            if (!nextRead_) return;  // an answer to a request after the handshake
            read_ = std::move(nextRead_);
            clientSecret_ = nextClientSecret_;
            if (setup.ticket) emit("Ticket");
            return;
        }
        clientVerify_ = wanted;
        sessionSecret = master_;
        if (resumed) return;
        if (setup.ticket) emit("Ticket");
        emit("Ccs");
        emit("Finished");
    }

    void runEdits(const std::string& step, Items& items) {
        if (round_ != setup.editRound && step != "HelloRequest") return;
        const auto [from, to] = setup.edits.equal_range(step);
        for (auto it = from; it != to && !items.empty(); ++it) {
            it->second(items.front(), items);
        }
    }

    Item build(const std::string& step) {
        Item item{kSteps.at(step), bodyOf(step), extensionsOf(step)};
        if (step != "Ccs") return item;
        item.record = kCcs;
        item.plain = is13();
        return item;
    }

    Bytes bodyOf(const std::string& step) {
        if (step == "Hello") return helloHead(random_);
        if (step == "Retry") {
            const auto name = tv::test::bytesIn("HelloRetryRequest");
            return helloHead(crypto::Hash::of(crypto::HashId::kSha256, name));
        }
        if (step == "Request") {
            if (is13()) return {0};
            const Bytes schemes = setup.version < Version::Tls12 ? Bytes() : Bytes{0, 2, 4, 3};
            return joined({Bytes{1, 64}, schemes, Bytes{0, 0}});
        }
        if (step == "Certificate") {
            const Bytes& own = setup.certificate;
            const Bytes der = counted(3, own.empty() ? serverCertificate(setup.key) : own);
            if (!is13()) return counted(3, der);
            return joined({Bytes{0}, counted(3, joined({der, Bytes{0, 0}}))});
        }
        if (step == "Status") return {1, 0, 0, 3, 0x30, 0x01, 0};
        if (step == "Verify") {
            const std::string text =
                std::string(64, ' ') + "TLS 1.3, server CertificateVerify" + '\0';
            return signedBy(setup.scheme, {}, {tv::test::bytesIn(text), transcriptHash()});
        }
        if (step == "Exchange") {
            Items items{{0, exchangeParams()}};
            runEdits("Params", items);
            const Bytes& params = items[0].body;
            return signedBy(setup.version >= Version::Tls12 ? setup.scheme : uint16_t{0}, params,
                            {hellos.back().random, random_, params});
        }
        if (step == "Ticket") {
            // An hour, age_add 7, nonce 1, ticket "ticket"; before TLS 1.3 no nonce and age_add.
            const Bytes more = is13() ? Bytes{0, 0, 0, 7, 1, 1} : Bytes();
            return joined({Bytes{0, 0, 14, 16}, more, counted(2, tv::test::bytesIn("ticket"))});
        }
        if (step == "Finished") {
            const Bytes data = verifyData(false);
            if (!is13()) serverVerify_ = data;
            return data;
        }
        if (step == "Ccs") return {1};
        return step == "Update" ? Bytes{0} : Bytes{};
    }

    Bytes helloHead(View random) {
        sessionId = hellos.back().sessionId;
        if (!is13() && !setup.echo) randomBytes(sessionId = Bytes(32));
        if (!is13() && resumed) sessionId = setup.sessionId;
        return joined({u16(static_cast<size_t>(headerVersion())), random, counted(1, sessionId),
                       u16(setup.suite), Bytes{0}});
    }

    // Scheme and signature of the parts, behind the bytes in front.
    Bytes signedBy(uint16_t scheme, View front, std::initializer_list<View> parts) const {
        return joined({front, scheme ? u16(scheme) : Bytes{},
                       counted(2, signatureOf(setup.key, scheme, joined(parts)))});
    }

    std::optional<std::vector<Extension>> extensionsOf(const std::string& step) {
        std::vector<Extension> exts;
        const auto add = [&](bool wanted, uint16_t type, Bytes body) {
            if (wanted) exts.push_back({type, std::move(body)});
        };
        add(step == "Extensions", 28, {0x40, 0x01});
        add(step == "Request" && is13(), 13, {0, 2, 4, 3});
        if (step == "Ticket" && is13()) return exts;
        if (step == "Retry") {
            add(setup.retryForGroup, 51, u16(setup.group));
            add(!setup.cookie.empty(), 44, counted(2, setup.cookie));
            add(true, 43, {3, 4});
        }
        if (step == "Hello" && is13()) {
            add(resumed, 41, {0, 0});
            share_ = makeKeyShare(static_cast<Group>(setup.group), randomBytes);
            add(setup.keyShare, 51, joined({u16(setup.group), counted(2, share_->publicKey())}));
            add(true, 43, {3, 4});
        } else if (step == "Hello") {
            const std::vector<Extension>& offered = hellos.back().exts;
            add(setup.secureRenegotiation, kRenegotiationInfo,
                counted(1, joined({clientVerify_, serverVerify_})));
            add(setup.extendedMaster && find(offered, kExtendedMaster), kExtendedMaster, {});
            add(setup.ticket && find(offered, 35), 35, {});
            return exts;
        }
        if (exts.empty()) return std::nullopt;
        return exts;
    }

    Bytes exchangeParams() {
        const Bytes two = counted(2, Bytes{2});
        if (!setup.prime.empty()) return joined({counted(2, setup.prime), two, two});
        share_ = makeKeyShare(static_cast<Group>(setup.group), randomBytes);
        return joined({Bytes{3}, u16(setup.group), counted(1, share_->publicKey())});
    }

    Bytes verifyData(bool fromClient) const {
        if (!is13()) {
            return verifyData12(setup.version, suite().hash, master_, fromClient, transcriptHash());
        }
        const SecureBuffer& secret = fromClient ? clientSecret_ : serverSecret_;
        return finishedMac13(suite().hash, secret.bytes(), transcriptHash());
    }

    // What the message that was sent does to the keys.
    void changeKeys(const std::string& step) {
        if (!is13()) {
            if (step == "Hello" && resumed) {
                master_ = setup.sessionSecret;
                makeKeys12();
            }
            if (step == "Ccs" && nextWrite_) write_ = std::move(nextWrite_);
            return;
        }
        if (step == "Hello") makeHandshakeKeys();
        if (!write_) return;
        if (step == "Finished") {
            serverSecret_ = masterStage_->serverTraffic(transcriptHash());
            nextClientSecret_ = masterStage_->clientTraffic(transcriptHash());
            nextRead_ = cipher13(nextClientSecret_);
        }
        if (step == "Update") {
            serverSecret_ = nextTrafficSecret(suite().hash, serverSecret_.bytes());
        }
        if (step == "Finished" || step == "Update") write_ = cipher13(serverSecret_);
        if (step == "Ticket") {
            const SecureBuffer secret = masterStage_->resumption(transcriptHash());
            sessionSecret = bytesIn(ticketKey13(suite().hash, secret.bytes(), Bytes{1}).bytes());
        }
    }

    void makeHandshakeKeys() {
        SecureBuffer shared;
        if (setup.keyShare) {
            const Bytes* const shares = find(hellos.back().exts, 51);
            must(shares, "set of key shares");
            for (ByteReader r(View(*shares).subspan(2)); !r.atEnd();) {
                const uint16_t group = r.u16();
                const View peer = r.vector16();
                if (group == setup.group) must(share_->derive(peer, shared), "share");
            }
        }
        const EarlyStage13 early(suite().hash, resumed ? View(setup.sessionSecret) : View());
        const HandshakeStage13 stage = early.handshake(shared.bytes());
        masterStage_.emplace(stage.master());
        clientSecret_ = stage.clientTraffic(transcriptHash());
        serverSecret_ = stage.serverTraffic(transcriptHash());
        read_ = cipher13(clientSecret_);
        write_ = cipher13(serverSecret_);
    }

    Cipher cipherOf(const RecordKeys& keys) const {
        return makeRecordCipher(suite(), setup.version, keys, randomBytes);
    }
    Cipher cipher13(const SecureBuffer& secret) const {
        return cipherOf(trafficKeys13(suite(), secret.bytes()));
    }
    void makeKeys12() {
        const KeyBlock12 block =
            keyBlock12(setup.version, suite(), master_, hellos.back().random, random_);
        nextRead_ = cipherOf(block.client);
        nextWrite_ = cipherOf(block.server);
    }

    Bytes in_, out_, messages_, transcript_;
    Cipher read_, write_, nextRead_, nextWrite_;
    SecureBuffer clientSecret_, serverSecret_, nextClientSecret_;  // of the traffic of TLS 1.3
    std::optional<MasterStage13> masterStage_;
    Bytes random_, master_, clientVerify_, serverVerify_;
    std::unique_ptr<KeyShare> share_;
    int round_ = 0;
    bool retried_ = false;
    bool closed_ = false;   // close_notify came
    bool updated_ = false;  // a KeyUpdate came, and no data since then
};

}  // namespace tv::tls::test
