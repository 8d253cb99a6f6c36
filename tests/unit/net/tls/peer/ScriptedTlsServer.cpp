#include "tests/unit/net/tls/peer/ScriptedTlsServer.h"

#include <algorithm>
#include <stdexcept>

#include "base/ByteReader.h"
#include "base/ByteWriter.h"
#include "base/Hex.h"

namespace tv::tls::test {
namespace {

constexpr uint8_t kCcs = 20, kAlert = 21, kHandshake = 22, kData = 23;
constexpr uint16_t kRenegotiationInfo = 0xFF01, kExtendedMaster = 23;

void must(bool ok, const char* what) {
    if (!ok) throw std::runtime_error(std::string("the client sent a wrong ") + what);
}

Bytes bytesIn(View view) {
    return {view.begin(), view.end()};
}

Bytes u16(size_t value) {
    return {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
}

template <size_t kLengthBytes>
Bytes counted(View data) {
    ByteWriter w;
    w.vector(kLengthBytes, [&] { w.append(data); });
    return w.take();
}

Bytes nonceOf(View iv, uint64_t sequence) {
    Bytes nonce = bytesIn(iv);
    for (size_t i = 0; i < 8; ++i) {
        nonce[4 + i] ^= static_cast<uint8_t>(sequence >> (56 - 8 * i));
    }
    return nonce;
}

Item message(uint8_t type, Bytes body) {
    Item item;
    item.type = type;
    item.body = std::move(body);
    return item;
}

Item withExts(uint8_t type, Bytes body, std::vector<Extension> exts) {
    Item item = message(type, std::move(body));
    item.exts = std::move(exts);
    item.hasExts = true;
    return item;
}

std::vector<Extension> readExtensions(View block) {
    std::vector<Extension> exts;
    for (ByteReader r(block); !r.atEnd();) {
        const uint16_t type = r.u16();
        exts.push_back({type, bytesIn(r.vector16())});
        must(r.ok(), "extension");
    }
    return exts;
}

}  // namespace

Bytes Item::content() const {
    ByteWriter w;
    w.append(body);
    if (hasExts) {
        w.vector(2, [&] {
            for (const Extension& e : exts) {
                w.u16(e.type);
                w.vector16(e.body);
            }
        });
    }
    return w.take();
}

Bytes Item::encode() const {
    const Bytes all = content();
    if (record != kHandshake || raw) return all;
    ByteWriter w;
    w.u8(type);
    w.u24(length.value_or(all.size()));
    w.append(all);
    return w.take();
}

Item& Item::flat() {
    body = content();
    hasExts = false;
    return *this;
}

Bytes& Item::ext(uint16_t extension) {
    for (Extension& e : exts) {
        if (e.type == extension) return e.body;
    }
    throw std::runtime_error("no such extension");
}

void Item::drop(uint16_t extension) {
    std::erase_if(exts, [&](const Extension& e) { return e.type == extension; });
}

const Extension* ScriptedTlsServer::Hello::find(uint16_t type) const {
    const auto at =
        std::find_if(exts.begin(), exts.end(), [&](const auto& e) { return e.type == type; });
    return at == exts.end() ? nullptr : &*at;
}

ScriptedTlsServer::ScriptedTlsServer(ServerSetup s) : setup(std::move(s)) {}

bool ScriptedTlsServer::isCbc() const {
    return setup.suite == 0xC009 || setup.suite == 0xC013 || setup.suite == 0x002F ||
           setup.suite == 0x0033;
}

const char* ScriptedTlsServer::hash() const {
    if (setup.version < 0x0303) return "MD5-SHA1";
    return setup.suite == 0x1302 || setup.suite == 0xC030 ? "SHA384" : "SHA256";
}

Bytes ScriptedTlsServer::take() {
    return std::exchange(out_, {});
}

// ---- records

Bytes ScriptedTlsServer::additional(const Keys& keys, uint8_t type, size_t size) const {
    ByteWriter w;
    w.u64(keys.sequence);
    w.u8(type);
    w.u16(setup.version);
    w.u16(size);
    return w.take();
}

Bytes ScriptedTlsServer::seal(uint8_t type, View text) {
    Keys& keys = *write_;
    Bytes body;
    if (is13()) {
        Bytes inner = joined({text, View(&type, 1)});
        inner.resize(inner.size() + setup.padding);
        const Bytes header = joined({Bytes{kData, 3, 3}, u16(inner.size() + 16)});
        body = gcmSeal(keys.key, nonceOf(keys.iv, keys.sequence++), header, inner);
        return joined({header, body});
    }
    if (isCbc()) {
        const Bytes mac =
            hmacOf("SHA1", keys.mac, joined({additional(keys, type, text.size()), text}));
        Bytes padded = joined({text, mac});
        const size_t padding = 16 - padded.size() % 16;
        padded.resize(padded.size() + padding, static_cast<uint8_t>(padding - 1));
        const bool explicitIv = setup.version >= 0x0302;
        const Bytes iv = explicitIv ? randomBytes(16) : keys.iv;
        const Bytes sealed = cbc(true, keys.key, iv, padded);
        keys.iv.assign(sealed.end() - 16, sealed.end());
        body = explicitIv ? joined({iv, sealed}) : sealed;
    } else {
        ByteWriter number;
        number.u64(keys.sequence);
        const Bytes sealed = gcmSeal(keys.key, joined({keys.iv, number.bytes()}),
                                     additional(keys, type, text.size()), text);
        body = joined({number.bytes(), sealed});
    }
    ++keys.sequence;
    return joined({View(&type, 1), u16(setup.version), u16(body.size()), body});
}

bool ScriptedTlsServer::open(uint8_t& type, View body, Bytes& text) {
    Keys& keys = *read_;
    if (is13()) {
        const Bytes header = joined({Bytes{kData, 3, 3}, u16(body.size())});
        if (!gcmOpen(keys.key, nonceOf(keys.iv, keys.sequence++), header, body, text)) return false;
        while (!text.empty() && text.back() == 0) {
            text.pop_back();
        }
        if (text.empty()) return false;
        type = text.back();
        text.pop_back();
        return true;
    }
    if (isCbc()) {
        const bool explicitIv = setup.version >= 0x0302;
        const Bytes iv = explicitIv ? bytesIn(body.first(16)) : keys.iv;
        if (explicitIv) body = body.subspan(16);
        text = cbc(false, keys.key, iv, body);
        keys.iv.assign(body.end() - 16, body.end());
        const size_t drop = text.back() + size_t{21};
        if (text.size() < drop) return false;
        const Bytes mac(text.end() - static_cast<std::ptrdiff_t>(drop),
                        text.end() - static_cast<std::ptrdiff_t>(drop - 20));
        text.resize(text.size() - drop);
        const Bytes wanted =
            hmacOf("SHA1", keys.mac, joined({additional(keys, type, text.size()), text}));
        ++keys.sequence;
        return mac == wanted;
    }
    const bool ok = body.size() >= 24 &&
                    gcmOpen(keys.key, joined({keys.iv, body.first(8)}),
                            additional(keys, type, body.size() - 24), body.subspan(8), text);
    ++keys.sequence;
    return ok;
}

void ScriptedTlsServer::send(uint8_t record, View content, bool plain) {
    const bool sealed = write_ && !plain;
    if (sealed && setup.emptyRecords) wire(seal(record == kHandshake ? kHandshake : kData, {}));
    do {
        const View piece = content.first(std::min(content.size(), setup.recordSize));
        content = content.subspan(piece.size());
        wire(sealed ? seal(record, piece)
                    : joined({Bytes{record}, u16(std::min<uint16_t>(setup.version, 0x0303)),
                              u16(piece.size()), piece}));
    } while (!content.empty());
}

void ScriptedTlsServer::receive(View bytes) {
    in_.insert(in_.end(), bytes.begin(), bytes.end());
    for (;;) {
        ByteReader r(in_);
        const uint8_t type = r.u8();
        r.u16();
        const Bytes body = bytesIn(r.vector16());
        if (!r.ok()) return;
        in_.erase(in_.begin(), in_.begin() + static_cast<std::ptrdiff_t>(r.position()));
        onRecord(type, body);
    }
}

void ScriptedTlsServer::onRecord(uint8_t type, View body) {
    Bytes text = bytesIn(body);
    const bool isPlain = is13() && type != kData;  // an early alert, or the ChangeCipherSpec
    must(!closed, "record behind its close_notify");
    if (read_ && !isPlain) must(open(type, body, text), "record");
    if (type == kCcs) {
        must(text == Bytes{1}, "ChangeCipherSpec");
        if (!is13()) read_ = std::exchange(nextRead_, std::nullopt);
    } else if (type == kAlert) {
        must(text.size() == 2, "alert");
        closed = text[1] == 0;
        if (!closed) alerts.push_back(text[1]);
        clearAlerts += isPlain;
    } else if (type == kData) {
        updated = false;
        received.append(text.begin(), text.end());
        recordSizes.push_back(text.size());
    } else {
        messages_.insert(messages_.end(), text.begin(), text.end());
        for (;;) {
            ByteReader r(messages_);
            const uint8_t messageType = r.u8();
            const Bytes content = bytesIn(r.vector24());
            if (!r.ok()) return;
            const Bytes whole(messages_.begin(),
                              messages_.begin() + static_cast<std::ptrdiff_t>(r.position()));
            messages_.erase(messages_.begin(),
                            messages_.begin() + static_cast<std::ptrdiff_t>(whole.size()));
            onMessage(messageType, content, whole);
        }
    }
}

// ---- what the client says

void ScriptedTlsServer::onMessage(uint8_t type, View body, View whole) {
    if (type == 1) return onHello(body, whole);
    if (type == 20) return onFinished(body, whole);
    if (type == 24) {  // KeyUpdate: one until data follows (RFC 8446, 4.6.3)
        must(!std::exchange(updated, true), "number of key updates");
        read_ = trafficKeys(expandLabel(hash(), read_->secret, "traffic upd", {}, 32));
        return;
    }
    if (type == 11) clientCertificate = bytesIn(body);
    transcript_ = joined({transcript_, whole});
    if (type == 16) onClientKeyExchange(body);
}

void ScriptedTlsServer::onHello(View body, View whole) {
    Hello hello;
    hello.whole = bytesIn(whole);
    hello.body = bytesIn(body);
    ByteReader r(body);
    r.u16();
    hello.random = bytesIn(r.bytes(32));
    hello.sessionId = bytesIn(r.vector8());
    for (ByteReader s(r.vector16()); !s.atEnd();) {
        hello.suites.push_back(s.u16());
    }
    r.vector8();
    hello.exts = readExtensions(r.vector16());
    must(r.complete(), "ClientHello");
    hellos.push_back(hello);
    if (const Extension* psk = hello.find(41); psk && !setup.sessionSecret.empty()) {
        const size_t size = digestOf(hash(), {}).size();
        const Bytes early = hmacOf(hash(), {}, setup.sessionSecret);
        const Bytes key = expandLabel(
            hash(), expandLabel(hash(), early, "res binder", digestOf(hash(), {}), size),
            "finished", {}, size);
        const Bytes truncated = joined({transcript_, whole.first(whole.size() - size - 3)});
        binderRight = hmacOf(hash(), key, digestOf(hash(), truncated)) == bytesIn(whole.last(size));
    }
    if (retried_) {
        transcript_ = joined({transcript_, whole});
    } else {
        ++round;
        transcript_ = bytesIn(whole);
        random_ = randomBytes(32);
        if (setup.retry) {
            retried_ = true;
            const Bytes first = transcriptHash();
            transcript_ = joined({Bytes{254, 0, 0, static_cast<uint8_t>(first.size())}, first});
            return emit(Step::HelloRetry);
        }
    }
    resumed = is13() ? !setup.sessionSecret.empty()
                     : !setup.sessionId.empty() && hello.sessionId == setup.sessionId;
    for (const Step step : setup.flight.empty() ? usualFlight() : setup.flight) {
        emit(step);
    }
}

std::vector<Step> ScriptedTlsServer::usualFlight() const {
    using enum Step;
    if (is13()) {
        if (resumed) return {ServerHello, EncryptedExtensions, Finished};
        return {ServerHello, EncryptedExtensions, Certificate, CertificateVerify, Finished};
    }
    if (resumed) return {ServerHello, ChangeCipherSpec, Finished};
    const bool plainRsa = setup.suite == 0x009C || setup.suite == 0x002F;
    if (plainRsa) return {ServerHello, Certificate, ServerHelloDone};
    return {ServerHello, Certificate, ServerKeyExchange, ServerHelloDone};
}

void ScriptedTlsServer::onClientKeyExchange(View body) {
    ByteReader r(body);
    if (share_) {
        premaster_ = sharedWith(share_.get(), r.vector8());
        share_.reset();
    } else if (!setup.dhPrime.empty()) {
        premaster_ = powerModulo(r.vector16(), dhPrivate_, setup.dhPrime);
    } else {
        premaster_ = rsaDecrypt(keyOf(setup.key), r.vector16());
        must(
            premaster_.size() == 48 && premaster_[0] == 3 && premaster_[1] == hellos.back().body[1],
            "premaster secret");
    }
    must(r.complete(), "ClientKeyExchange");
    const bool extended = setup.extendedMaster && hellos.back().find(kExtendedMaster);
    master_ = prf(hash(), premaster_, extended ? "extended master secret" : "master secret",
                  extended ? transcriptHash() : joined({hellos.back().random, random_}), 48);
    makeKeys12();
}

void ScriptedTlsServer::onFinished(View body, View whole) {
    if (is13()) {
        const Bytes key =
            expandLabel(hash(), read_->secret, "finished", {}, digestOf(hash(), {}).size());
        must(bytesIn(body) == hmacOf(hash(), key, transcriptHash()), "Finished");
        transcript_ = joined({transcript_, whole});
        ++clientFinished;
        if (!nextRead_) return;  // an answer to a request after the handshake
        read_ = std::exchange(nextRead_, std::nullopt);
        if (setup.ticket) emit(Step::NewSessionTicket);
        return;
    }
    clientVerify_ = verifyData(true);
    must(bytesIn(body) == clientVerify_, "Finished");
    transcript_ = joined({transcript_, whole});
    ++clientFinished;
    sessionSecret = master_;
    if (resumed) return;
    using enum Step;
    std::vector<Step> flight = setup.finalFlight;
    if (flight.empty()) flight = {ChangeCipherSpec, Finished};
    if (setup.ticket) flight.insert(flight.begin(), NewSessionTicket);
    for (const Step step : flight) {
        emit(step);
    }
}

// ---- what the server says

void ScriptedTlsServer::runEdits(Step step, Items& items) {
    if (round != setup.editRound && step != Step::HelloRequest) return;
    const auto [from, to] = setup.edits.equal_range(step);
    for (auto it = from; it != to && !items.empty(); ++it) {
        it->second(items.front(), items);
    }
}

void ScriptedTlsServer::emit(Step step) {
    const Item original = build(step);
    Items items{original};
    runEdits(step, items);
    const bool afterwards = step == Step::HelloRequest || step == Step::KeyUpdate ||
                            (step == Step::NewSessionTicket && is13());
    const auto hashed = [&](const Item& item) {
        if (item.record == kHandshake && !item.raw && !afterwards) {
            transcript_ = joined({transcript_, item.encode()});
        }
    };
    if (!setup.rehash) hashed(original);
    if (step == Step::ServerHello && setup.rehash && !items.empty()) {
        const Bytes hello = items.front().content();
        if (hello.size() >= 34) random_.assign(hello.begin() + 2, hello.begin() + 34);
    }
    for (const Item& item : items) {
        const Bytes bytes = item.encode();
        if (setup.rehash) hashed(item);
        send(item.record, joined({bytes, item.tail}), item.plain);
    }
    after(step);
}

Item ScriptedTlsServer::build(Step step) {
    switch (step) {
        case Step::HelloRetry:
            return helloRetry();
        case Step::ServerHello:
            return serverHello();
        case Step::EncryptedExtensions:
            return withExts(8, {}, {{28, {0x40, 0x01}}});
        case Step::CertificateRequest:
            if (is13()) return withExts(13, {0}, {{13, {0, 2, 4, 3}}});
            return message(
                13, setup.version < 0x0303 ? Bytes{1, 64, 0, 0} : Bytes{1, 64, 0, 2, 4, 3, 0, 0});
        case Step::Certificate:
            return certificate();
        case Step::CertificateStatus:
            return message(22, {1, 0, 0, 3, 0x30, 0x01, 0});
        case Step::CertificateVerify:
            return certificateVerify();
        case Step::ServerKeyParams:
        case Step::ServerKeyExchange:
            return keyExchange();
        case Step::ServerHelloDone:
            return message(14, {});
        case Step::NewSessionTicket:
            // An hour, age_add 7, nonce 1, ticket "ticket"; before TLS 1.3 no nonce and age_add.
            if (!is13()) return message(4, {0, 0, 14, 16, 0, 6, 't', 'i', 'c', 'k', 'e', 't'});
            return withExts(4, {0, 0, 14, 16, 0, 0, 0, 7, 1, 1, 0, 6, 't', 'i', 'c', 'k', 'e', 't'},
                            {});
        case Step::ChangeCipherSpec: {
            Item item;
            item.record = kCcs;
            item.body = {1};
            item.plain = is13();
            return item;
        }
        case Step::Finished:
            if (!is13()) serverVerify_ = verifyData(false);
            return message(20, verifyData(false));
        case Step::HelloRequest:
            return message(0, {});
        case Step::KeyUpdate:
            break;
    }
    return message(24, {0});
}

Item ScriptedTlsServer::serverHello() {
    const Hello& hello = hellos.back();
    sessionId = is13() ? hello.sessionId : resumed ? setup.sessionId : randomBytes(32);
    const Bytes body = joined({u16(std::min<uint16_t>(setup.version, 0x0303)), random_,
                               counted<1>(sessionId), u16(setup.suite), Bytes{0}});
    std::vector<Extension> exts;
    if (is13()) {
        if (resumed) exts.push_back({41, {0, 0}});
        if (setup.keyShare) {
            share_ = groupKey(setup.group);
            exts.push_back({51, joined({u16(setup.group), counted<2>(publicOf(share_.get()))})});
        }
        exts.push_back({43, {3, 4}});
        return withExts(2, body, exts);
    }
    if (setup.secureRenegotiation) {
        exts.push_back({kRenegotiationInfo, counted<1>(joined({clientVerify_, serverVerify_}))});
    }
    if (setup.extendedMaster && hello.find(kExtendedMaster)) exts.push_back({kExtendedMaster, {}});
    if (setup.ticket && hello.find(35)) exts.push_back({35, {}});
    return withExts(2, body, exts);
}

Item ScriptedTlsServer::helloRetry() {
    static const Bytes kRandom = digestOf(
        "SHA256", joined({View(reinterpret_cast<const uint8_t*>("HelloRetryRequest"), 17)}));
    std::vector<Extension> exts;
    if (setup.retryForGroup) exts.push_back({51, u16(setup.group)});
    if (!setup.cookie.empty()) exts.push_back({44, counted<2>(setup.cookie)});
    exts.push_back({43, {3, 4}});
    return withExts(2,
                    joined({Bytes{3, 3}, kRandom, counted<1>(hellos.back().sessionId),
                            u16(setup.suite), Bytes{0}}),
                    exts);
}

Item ScriptedTlsServer::certificate() {
    const Bytes der =
        setup.certificate.empty() ? certificateOf(keyOf(setup.key)) : setup.certificate;
    if (!is13()) return message(11, counted<3>(counted<3>(der)));
    return message(11, joined({Bytes{0}, counted<3>(joined({counted<3>(der), Bytes{0, 0}}))}));
}

Item ScriptedTlsServer::certificateVerify() {
    const std::string text = std::string(64, ' ') + "TLS 1.3, server CertificateVerify";
    const Bytes data = joined(
        {View(reinterpret_cast<const uint8_t*>(text.c_str()), text.size() + 1), transcriptHash()});
    return message(15, joined({u16(setup.scheme),
                               counted<2>(signatureOf(keyOf(setup.key), setup.scheme, data))}));
}

Item ScriptedTlsServer::keyExchange() {
    Bytes params;
    if (!setup.dhPrime.empty()) {
        dhPrivate_ = randomBytes(32);
        params = joined({counted<2>(setup.dhPrime), counted<2>(setup.dhGenerator),
                         counted<2>(powerModulo(setup.dhGenerator, dhPrivate_, setup.dhPrime))});
    } else {
        share_ = groupKey(setup.group);
        params = joined({Bytes{3}, u16(setup.group), counted<1>(publicOf(share_.get()))});
    }
    Items items{message(12, params)};
    runEdits(Step::ServerKeyParams, items);
    const Bytes data = joined({hellos.back().random, random_, items[0].body});
    const uint16_t scheme = setup.version >= 0x0303 ? setup.scheme : uint16_t{0};
    const Bytes signature = counted<2>(signatureOf(keyOf(setup.key), scheme, data));
    return message(12, joined({items[0].body, scheme ? u16(scheme) : Bytes{}, signature}));
}

Bytes ScriptedTlsServer::verifyData(bool fromClient) const {
    if (is13()) {
        const Bytes secret = write_ ? write_->secret : Bytes(32);
        const size_t size = digestOf(hash(), {}).size();
        return hmacOf(hash(), expandLabel(hash(), secret, "finished", {}, size), transcriptHash());
    }
    return prf(hash(), master_, fromClient ? "client finished" : "server finished",
               transcriptHash(), 12);
}

// ---- keys

void ScriptedTlsServer::after(Step step) {
    const size_t size = digestOf(hash(), {}).size();
    if (step == Step::ServerHello && is13()) makeHandshakeKeys();
    if (step == Step::ServerHello && !is13() && resumed) {
        master_ = setup.sessionSecret;
        makeKeys12();
    }
    if (step == Step::ChangeCipherSpec && !is13() && nextWrite_) {
        write_ = std::exchange(nextWrite_, std::nullopt);
    }
    if (!is13() || !write_) return;
    if (step == Step::Finished) {
        const Bytes done = transcriptHash();
        write_ = trafficKeys(expandLabel(hash(), masterSecret13_, "s ap traffic", done, size));
        nextRead_ = trafficKeys(expandLabel(hash(), masterSecret13_, "c ap traffic", done, size));
    }
    if (step == Step::KeyUpdate) {
        write_ = trafficKeys(expandLabel(hash(), write_->secret, "traffic upd", {}, size));
    }
    if (step == Step::NewSessionTicket) {
        const Bytes resumption =
            expandLabel(hash(), masterSecret13_, "res master", transcriptHash(), size);
        sessionSecret = expandLabel(hash(), resumption, "resumption", Bytes{1}, size);
    }
}

void ScriptedTlsServer::makeHandshakeKeys() {
    const size_t size = digestOf(hash(), {}).size();
    const Bytes zeros(size), nothing = digestOf(hash(), {});
    Bytes shared = zeros;
    if (setup.keyShare) {
        must(hellos.back().find(51), "set of key shares");
        for (ByteReader r(View(hellos.back().find(51)->body).subspan(2)); !r.atEnd();) {
            const uint16_t group = r.u16();
            const View peer = r.vector16();
            if (group == setup.group) shared = sharedWith(share_.get(), peer);
        }
    }
    const Bytes early = hmacOf(hash(), {}, resumed ? setup.sessionSecret : zeros);
    const Bytes secret =
        hmacOf(hash(), expandLabel(hash(), early, "derived", nothing, size), shared);
    masterSecret13_ = hmacOf(hash(), expandLabel(hash(), secret, "derived", nothing, size), zeros);
    write_ = trafficKeys(expandLabel(hash(), secret, "s hs traffic", transcriptHash(), size));
    read_ = trafficKeys(expandLabel(hash(), secret, "c hs traffic", transcriptHash(), size));
}

ScriptedTlsServer::Keys ScriptedTlsServer::trafficKeys(const Bytes& secret) const {
    return {secret,
            expandLabel(hash(), secret, "key", {}, setup.suite == 0x1302 ? 32 : 16),
            expandLabel(hash(), secret, "iv", {}, 12),
            {},
            0};
}

void ScriptedTlsServer::makeKeys12() {
    const size_t mac = isCbc() ? 20 : 0;
    const size_t key = setup.suite == 0xC030 ? 32 : 16;
    const size_t iv = !isCbc() ? 4 : setup.version < 0x0302 ? 16 : 0;
    const Bytes block = prf(hash(), master_, "key expansion",
                            joined({random_, hellos.back().random}), 2 * (mac + key + iv));
    ByteReader r(block);
    Keys client, server;
    client.mac = bytesIn(r.bytes(mac));
    server.mac = bytesIn(r.bytes(mac));
    client.key = bytesIn(r.bytes(key));
    server.key = bytesIn(r.bytes(key));
    client.iv = bytesIn(r.bytes(iv));
    server.iv = bytesIn(r.bytes(iv));
    nextRead_ = client;
    nextWrite_ = server;
}

}  // namespace tv::tls::test
