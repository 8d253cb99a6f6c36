// The server's side of the handshakes, message by message.
#include "tests/unit/net/tls/peer/ScriptedTlsServer.h"

#include <algorithm>
#include <stdexcept>

#include "base/ByteReader.h"
#include "base/ByteWriter.h"
#include "net/tls/Transcript.h"
#include "tests/fixtures/TestBytes.h"

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

// Takes the first bytes away, so many.
Bytes cut(Bytes& from, size_t size) {
    const auto end = from.begin() + static_cast<std::ptrdiff_t>(size);
    const Bytes front(from.begin(), end);
    from.erase(from.begin(), end);
    return front;
}

bool fillRandom(std::span<uint8_t> out) {
    std::ranges::copy(randomBytes(out.size()), out.begin());
    return true;
}

Item message(uint8_t type, Bytes body, std::optional<std::vector<Extension>> exts = std::nullopt) {
    Item item;
    item.type = type;
    item.body = std::move(body);
    item.exts = std::move(exts);
    return item;
}

}  // namespace

Item& Item::flat() {
    if (!exts) return *this;
    Bytes block;
    for (const Extension& e : *exts) {
        block = joined({block, u16(e.type), counted<2>(e.body)});
    }
    body = joined({body, counted<2>(block)});
    exts.reset();
    return *this;
}

Bytes Item::encode() const {
    const Bytes all = Item(*this).flat().body;
    if (record != kHandshake || raw) return all;
    ByteWriter w;
    w.u8(type);
    w.u24(length.value_or(all.size()));
    w.append(all);
    return w.take();
}

Bytes& Item::ext(uint16_t extension) {
    for (Extension& e : exts.value()) {
        if (e.type == extension) return e.body;
    }
    throw std::runtime_error("no such extension");
}

void Item::drop(uint16_t extension) {
    std::erase_if(exts.value(), [&](const Extension& e) { return e.type == extension; });
}

const Extension* ScriptedTlsServer::Hello::find(uint16_t type) const {
    const auto at = std::ranges::find(exts, type, &Extension::type);
    return at == exts.end() ? nullptr : &*at;
}

Bytes ScriptedTlsServer::transcriptHash() const {
    Transcript transcript;
    transcript.add(transcript_);
    transcript.settle(version(), suite().hash);
    return transcript.hash();
}

// ---- records

void ScriptedTlsServer::seal(uint8_t type, View text) {
    // Zeros behind the type are padding, and the last one passes for the type.
    const bool pads = is13() && setup.padding > 0;
    Bytes padded = joined({text, View(&type, pads ? 1 : 0)});
    if (pads) padded.resize(padded.size() + setup.padding - 1);
    DataBuffer out;
    write_->seal({static_cast<ContentType>(pads ? 0 : type), headerVersion()}, padded, out);
    wire(out.bytes());
}

void ScriptedTlsServer::send(uint8_t record, View content, bool plain) {
    const bool sealed = write_ && !plain;
    if (sealed && setup.emptyRecords) seal(record == kHandshake ? kHandshake : kData, {});
    do {
        const View piece = content.first(std::min(content.size(), setup.recordSize));
        content = content.subspan(piece.size());
        if (sealed) {
            seal(record, piece);
        } else {
            const size_t minor = static_cast<size_t>(headerVersion());
            wire(joined({Bytes{record}, u16(minor), counted<2>(piece)}));
        }
    } while (!content.empty());
}

void ScriptedTlsServer::receive(View bytes) {
    in_.insert(in_.end(), bytes.begin(), bytes.end());
    for (;;) {
        ByteReader r(in_);
        r.skip(3);
        r.vector16();
        if (!r.ok()) return;
        const Bytes record = cut(in_, r.position());
        onRecord(record[0], View(record).subspan(5));
    }
}

void ScriptedTlsServer::onRecord(uint8_t type, View body) {
    Bytes opened = bytesIn(body);
    View text = opened;
    const bool isPlain = is13() && type != kData;  // an early alert, or the ChangeCipherSpec
    must(!closed_, "record behind its close_notify");
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
        messages_.insert(messages_.end(), text.begin(), text.end());
        for (;;) {
            ByteReader r(messages_);
            r.u8();
            r.vector24();
            if (!r.ok()) return;
            const Bytes whole = cut(messages_, r.position());
            onMessage(whole[0], View(whole).subspan(4), whole);
        }
    }
}

// ---- what the client says

void ScriptedTlsServer::onMessage(uint8_t type, View body, View whole) {
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

void ScriptedTlsServer::onHello(View body, View whole) {
    Hello hello;
    ByteReader r(body);
    r.skip(2);
    hello.random = bytesIn(r.bytes(32));
    hello.sessionId = bytesIn(r.vector8());
    for (ByteReader s(r.vector16()); !s.atEnd();) {
        hello.suites.push_back(s.u16());
    }
    r.vector8();
    for (ByteReader e(r.vector16()); !e.atEnd();) {
        const uint16_t type = e.u16();
        hello.exts.push_back({type, bytesIn(e.vector16())});
    }
    must(r.complete(), "ClientHello");
    hellos.push_back(hello);
    if (hello.find(41) && !setup.sessionSecret.empty()) checkBinder(whole);
    if (retried_) {
        transcript_ = joined({transcript_, whole});
    } else {
        ++round;
        transcript_ = bytesIn(whole);
        random_ = randomBytes(32);
        if (setup.retry) {
            retried_ = true;
            transcript_ = joined({Bytes{254, 0, 0}, counted<1>(transcriptHash())});
            return emit(Step::HelloRetry);
        }
    }
    resumed = is13() ? !setup.sessionSecret.empty() && hello.find(41)
                     : !setup.sessionId.empty() && hello.sessionId == setup.sessionId;
    for (const Step step : setup.flight.empty() ? usualFlight() : setup.flight) {
        emit(step);
    }
}

void ScriptedTlsServer::checkBinder(View whole) {
    const size_t size = crypto::Hash::of(suite().hash, {}).size();
    const Bytes truncated = joined({transcript_, whole.first(whole.size() - size - 3)});
    const Bytes wanted = finishedMac13(
        suite().hash, EarlyStage13(suite().hash, setup.sessionSecret).resumptionBinder().bytes(),
        crypto::Hash::of(suite().hash, truncated));
    binderRight = wanted == bytesIn(whole.last(size));
}

std::vector<Step> ScriptedTlsServer::usualFlight() const {
    using enum Step;
    if (is13()) {
        if (resumed) return {ServerHello, EncryptedExtensions, Finished};
        return {ServerHello, EncryptedExtensions, Certificate, CertificateVerify, Finished};
    }
    if (resumed) return {ServerHello, ChangeCipherSpec, Finished};
    if (suite().keyExchange == KeyExchangeKind::Rsa) {
        return {ServerHello, Certificate, ServerHelloDone};
    }
    return {ServerHello, Certificate, ServerKeyExchange, ServerHelloDone};
}

void ScriptedTlsServer::onClientKeyExchange(View body) {
    ByteReader r(body);
    SecureBuffer premaster;
    if (share_) {
        must(share_->derive(r.vector8(), premaster), "share");
        share_.reset();
    } else if (!setup.dhPrime.empty()) {
        premaster = SecureBuffer(powerModulo(r.vector16(), dhPrivate_, setup.dhPrime));
    } else {
        premaster = SecureBuffer(rsaDecrypt(keyOf(setup.key), r.vector16()));
        must(premaster.size() == 48 && bytesIn(premaster.bytes().first(2)) == Bytes{3, 3},
             "premaster secret");
    }
    must(r.complete(), "ClientKeyExchange");
    const bool extended = setup.extendedMaster && hellos.back().find(kExtendedMaster);
    const Bytes seed = extended ? transcriptHash() : joined({hellos.back().random, random_});
    master_ =
        bytesIn(masterSecret12(version(), suite().hash, premaster.bytes(), extended, seed).bytes());
    makeKeys12();
}

void ScriptedTlsServer::onFinished(View body, View whole) {
    const Bytes wanted = verifyData(true);
    must(bytesIn(body) == wanted, "Finished");
    transcript_ = joined({transcript_, whole});
    ++clientFinished;
    if (is13()) {
        if (!nextRead_) return;  // an answer to a request after the handshake
        read_ = std::move(nextRead_);
        clientSecret_ = nextClientSecret_;
        if (setup.ticket) emit(Step::NewSessionTicket);
        return;
    }
    clientVerify_ = wanted;
    sessionSecret = master_;
    if (resumed) return;
    if (setup.ticket) emit(Step::NewSessionTicket);
    emit(Step::ChangeCipherSpec);
    emit(Step::Finished);
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
        Bytes hello = Item(items.front()).flat().body;
        if (hello.size() >= 34) random_.assign(hello.begin() + 2, hello.begin() + 34);
    }
    for (const Item& item : items) {
        if (setup.rehash) hashed(item);
        send(item.record, joined({item.encode(), item.tail}), item.plain);
    }
    after(step);
}

Item ScriptedTlsServer::build(Step step) {
    using enum Step;
    if (step == HelloRetry) return helloRetry();
    if (step == ServerHello) return serverHello();
    if (step == EncryptedExtensions) return message(8, {}, {{{28, {0x40, 0x01}}}});
    if (step == CertificateRequest) {
        if (is13()) return message(13, {0}, {{{13, {0, 2, 4, 3}}}});
        const Bytes schemes = setup.version < 0x0303 ? Bytes() : Bytes{0, 2, 4, 3};
        return message(13, joined({Bytes{1, 64}, schemes, Bytes{0, 0}}));
    }
    if (step == Certificate) {
        const Bytes& own = setup.certificate;
        const Bytes der = counted<3>(own.empty() ? certificateOf(setup.key) : own);
        if (!is13()) return message(11, counted<3>(der));
        return message(11, joined({Bytes{0}, counted<3>(joined({der, Bytes{0, 0}}))}));
    }
    if (step == CertificateStatus) return message(22, {1, 0, 0, 3, 0x30, 0x01, 0});
    if (step == CertificateVerify) return certificateVerify();
    if (step == ServerKeyParams || step == ServerKeyExchange) return keyExchange();
    if (step == ServerHelloDone) return message(14, {});
    if (step == NewSessionTicket) {
        // An hour, age_add 7, nonce 1, ticket "ticket"; before TLS 1.3 no nonce and age_add.
        const Bytes rest = joined({Bytes{0, 6}, tv::test::bytesIn("ticket")});
        if (!is13()) return message(4, joined({Bytes{0, 0, 14, 16}, rest}));
        return message(4, joined({Bytes{0, 0, 14, 16, 0, 0, 0, 7, 1, 1}, rest}),
                       std::vector<Extension>());
    }
    if (step == ChangeCipherSpec) {
        Item item = message(0, {1});
        item.record = kCcs;
        item.plain = is13();
        return item;
    }
    if (step == Finished) {
        if (!is13()) serverVerify_ = verifyData(false);
        return message(20, verifyData(false));
    }
    return step == HelloRequest ? message(0, {}) : message(24, {0});
}

Item ScriptedTlsServer::serverHello() {
    const Hello& hello = hellos.back();
    sessionId = is13() || setup.echo ? hello.sessionId
                : resumed            ? setup.sessionId
                                     : randomBytes(32);
    const Bytes body = joined({u16(static_cast<size_t>(headerVersion())), random_,
                               counted<1>(sessionId), u16(setup.suite), Bytes{0}});
    std::vector<Extension> exts;
    if (is13()) {
        if (resumed) exts.push_back({41, {0, 0}});
        if (setup.keyShare) {
            share_ = makeKeyShare(static_cast<Group>(setup.group), fillRandom);
            exts.push_back({51, joined({u16(setup.group), counted<2>(share_->publicKey())})});
        }
        exts.push_back({43, {3, 4}});
        return message(2, body, exts);
    }
    if (setup.secureRenegotiation) {
        exts.push_back({kRenegotiationInfo, counted<1>(joined({clientVerify_, serverVerify_}))});
    }
    if (setup.extendedMaster && hello.find(kExtendedMaster)) exts.push_back({kExtendedMaster, {}});
    if (setup.ticket && hello.find(35)) exts.push_back({35, {}});
    return message(2, body, exts);
}

Item ScriptedTlsServer::helloRetry() const {
    const crypto::DigestBytes random =
        crypto::Hash::of(crypto::HashId::kSha256, tv::test::bytesIn("HelloRetryRequest"));
    std::vector<Extension> exts;
    if (setup.retryForGroup) exts.push_back({51, u16(setup.group)});
    if (!setup.cookie.empty()) exts.push_back({44, counted<2>(setup.cookie)});
    exts.push_back({43, {3, 4}});
    return message(2,
                   joined({Bytes{3, 3}, random, counted<1>(hellos.back().sessionId),
                           u16(setup.suite), Bytes{0}}),
                   exts);
}

Item ScriptedTlsServer::certificateVerify() const {
    const std::string text = std::string(64, ' ') + "TLS 1.3, server CertificateVerify" + '\0';
    const Bytes data = joined({tv::test::bytesIn(text), transcriptHash()});
    return message(15, joined({u16(setup.scheme),
                               counted<2>(signatureOf(keyOf(setup.key), setup.scheme, data))}));
}

Item ScriptedTlsServer::keyExchange() {
    Bytes params;
    if (!setup.dhPrime.empty()) {
        const Bytes generator = {2};
        dhPrivate_ = randomBytes(32);
        params = joined({counted<2>(setup.dhPrime), counted<2>(generator),
                         counted<2>(powerModulo(generator, dhPrivate_, setup.dhPrime))});
    } else {
        share_ = makeKeyShare(static_cast<Group>(setup.group), fillRandom);
        params = joined({Bytes{3}, u16(setup.group), counted<1>(share_->publicKey())});
    }
    Items items{message(12, params)};
    runEdits(Step::ServerKeyParams, items);
    const Bytes data = joined({hellos.back().random, random_, items[0].body});
    const uint16_t scheme = setup.version >= 0x0303 ? setup.scheme : uint16_t{0};
    const Bytes signature = counted<2>(signatureOf(keyOf(setup.key), scheme, data));
    return message(12, joined({items[0].body, scheme ? u16(scheme) : Bytes{}, signature}));
}

Bytes ScriptedTlsServer::verifyData(bool fromClient) const {
    if (!is13()) {
        return verifyData12(version(), suite().hash, master_, fromClient, transcriptHash());
    }
    const SecureBuffer& secret = fromClient ? clientSecret_ : serverSecret_;
    return finishedMac13(suite().hash, secret.bytes(), transcriptHash());
}

// ---- keys

void ScriptedTlsServer::after(Step step) {
    if (!is13()) {
        if (step == Step::ServerHello && resumed) {
            master_ = setup.sessionSecret;
            makeKeys12();
        }
        if (step == Step::ChangeCipherSpec && nextWrite_) write_ = std::move(nextWrite_);
        return;
    }
    if (step == Step::ServerHello) makeHandshakeKeys();
    if (!write_) return;
    if (step == Step::Finished) {
        serverSecret_ = masterStage_->serverTraffic(transcriptHash());
        nextClientSecret_ = masterStage_->clientTraffic(transcriptHash());
        nextRead_ = cipher13(nextClientSecret_);
    }
    if (step == Step::KeyUpdate) {
        serverSecret_ = nextTrafficSecret(suite().hash, serverSecret_.bytes());
    }
    if (step == Step::Finished || step == Step::KeyUpdate) write_ = cipher13(serverSecret_);
    if (step == Step::NewSessionTicket) {
        const SecureBuffer resumption = masterStage_->resumption(transcriptHash());
        sessionSecret = bytesIn(ticketKey13(suite().hash, resumption.bytes(), Bytes{1}).bytes());
    }
}

void ScriptedTlsServer::makeHandshakeKeys() {
    SecureBuffer shared;
    if (setup.keyShare) {
        must(hellos.back().find(51), "set of key shares");
        for (ByteReader r(View(hellos.back().find(51)->body).subspan(2)); !r.atEnd();) {
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

ScriptedTlsServer::Cipher ScriptedTlsServer::cipherOf(const RecordKeys& keys) const {
    return makeRecordCipher(suite(), version(), keys, fillRandom);
}

ScriptedTlsServer::Cipher ScriptedTlsServer::cipher13(const SecureBuffer& secret) const {
    return cipherOf(trafficKeys13(suite(), secret.bytes()));
}

void ScriptedTlsServer::makeKeys12() {
    const KeyBlock12 block = keyBlock12(version(), suite(), master_, hellos.back().random, random_);
    nextRead_ = cipherOf(block.client);
    nextWrite_ = cipherOf(block.server);
}

}  // namespace tv::tls::test
