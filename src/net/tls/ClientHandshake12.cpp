// The flow of TLS 1.0 to 1.2, message by message (RFC 5246).
#include "net/tls/ClientHandshake12.h"

#include <algorithm>

#include "base/ByteWriter.h"
#include "base/ConstTime.h"
#include "base/crypto/Dhe.h"
#include "base/crypto/Rsa.h"
#include "net/tls/KeyUsage.h"
#include "net/tls/TlsSignature.h"

namespace tv::tls {
namespace {

bool same(std::span<const uint8_t> a, std::span<const uint8_t> b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

}  // namespace

Cause ClientHandshake12::begin(LogBase& log, const ServerHello& reply) {
    const ServerExtensions& answer = reply.extensions;
    shared_.shares.clear();
    Cause failure = judgeRenegotiation(answer);
    if (failure == Cause::None) failure = judgeSession(reply);
    if (failure != Cause::None) return failure;
    // One connection, one way of making its master secrets: else a renegotiation would take away
    // what the first handshake was protected by.
    if (established_ && established_->extendedMasterSecret != answer.extendedMasterSecret) {
        return Cause::TlsMasterSecretMismatch;
    }
    shared_.result.extendedMasterSecret = answer.extendedMasterSecret;
    statusAnnounced_ = answer.statusRequest;
    ticketAnnounced_ = answer.sessionTicket;
    sessionId_.assign(reply.sessionId.begin(), reply.sessionId.end());
    shared_.records.setPeerLimit(0);
    if (answer.recordSizeLimit) {
        failure = applyRecordSizeLimit(shared_.records, *answer.recordSizeLimit);
        if (failure != Cause::None) return failure;
    }
    if (shared_.result.resumed) return beginResumed(log);
    next_ = {HandshakeType::Certificate};
    return Cause::None;
}

// RFC 5746, 3.4 and 3.5.
Cause ClientHandshake12::judgeRenegotiation(const ServerExtensions& answer) {
    RenegotiationState& state = shared_.result.renegotiation;
    state.isSecure = answer.renegotiationInfo.has_value();
    if (!established_) {
        const bool empty = !answer.renegotiationInfo || answer.renegotiationInfo->empty();
        return empty ? Cause::None : Cause::TlsBadRenegotiation;
    }
    std::vector<uint8_t> expected = established_->renegotiation.clientVerify;
    expected.insert(expected.end(), established_->renegotiation.serverVerify.begin(),
                    established_->renegotiation.serverVerify.end());
    const bool right = state.isSecure && ctEqual(*answer.renegotiationInfo, expected);
    return right ? Cause::None : Cause::TlsBadRenegotiation;
}

Cause ClientHandshake12::judgeSession(const ServerHello& reply) {
    const bool echoed = !reply.sessionId.empty() && same(reply.sessionId, shared_.hello.sessionId);
    if (!echoed) return Cause::None;
    // A session ID that was only made up for compatibility stands for nothing to resume.
    if (!shared_.sessionOffered || shared_.settings.session->isTls13()) {
        return Cause::TlsResumptionMismatch;
    }
    const TlsSession& session = *shared_.settings.session;
    if (session.version != reply.version || session.suite != reply.suite) {
        return Cause::TlsResumptionMismatch;
    }
    if (session.extendedMasterSecret != reply.extensions.extendedMasterSecret) {
        return Cause::TlsMasterSecretMismatch;  // RFC 7627, 5.3
    }
    shared_.result.resumed = true;
    return Cause::None;
}

Cause ClientHandshake12::beginResumed(LogBase& log) {
    log.logVerbose("The server resumes the session.");
    master_ = shared_.settings.session->secret;
    shared_.result.leaf = shared_.settings.session->leaf;
    if (!makeCiphers()) return Cause::TlsInternal;
    next_ = beforeServerFinished();
    return Cause::None;
}

NextMessages ClientHandshake12::beforeServerFinished() const {
    if (ticketAnnounced_) {
        return NextMessages{HandshakeType::NewSessionTicket}.orChangeCipherSpec();
    }
    return NextMessages::changeCipherSpec();
}

Cause ClientHandshake12::onMessage(LogBase& log, const HandshakeMessage& message, bool atBoundary) {
    next_ = {};
    Cause failure = Cause::TlsUnexpectedMessage;
    switch (message.type) {
        case HandshakeType::Certificate:
            failure = onCertificate(log, message.body);
            break;
        case HandshakeType::CertificateStatus:
            statusAnnounced_ = false;  // read and not used: no revocation is checked
            next_ = afterCertificate();
            failure = parseCertificateStatus12(message.body) ? Cause::None : Cause::TlsDecodeError;
            break;
        case HandshakeType::ServerKeyExchange:
            failure = onServerKeyExchange(log, message.body);
            break;
        case HandshakeType::CertificateRequest:
            shared_.result.clientCertificateAsked = true;
            next_ = {HandshakeType::ServerHelloDone};
            failure = parseCertificateRequest12(message.body, shared_.result.version)
                          ? Cause::None
                          : Cause::TlsDecodeError;
            break;
        case HandshakeType::ServerHelloDone:
            shared_.transcript.add(message.whole);
            return onServerHelloDone(log, message.body);
        case HandshakeType::NewSessionTicket:
            log.logVerbose("Ignoring because this is not TLS 1.3.");
            next_ = NextMessages::changeCipherSpec();
            failure = parseNewSessionTicket12(message.body) ? Cause::None : Cause::TlsDecodeError;
            break;
        case HandshakeType::Finished:
            return onFinished(log, message, atBoundary);
        default:
            break;
    }
    if (failure == Cause::None) shared_.transcript.add(message.whole);
    return failure;
}

NextMessages ClientHandshake12::afterCertificate() const {
    const bool signedExchange = shared_.result.suite->keyExchange != KeyExchangeKind::Rsa;
    if (signedExchange) {
        if (!statusAnnounced_) return {HandshakeType::ServerKeyExchange};
        return {HandshakeType::CertificateStatus, HandshakeType::ServerKeyExchange};
    }
    if (!statusAnnounced_) {
        return {HandshakeType::CertificateRequest, HandshakeType::ServerHelloDone};
    }
    return {HandshakeType::CertificateStatus, HandshakeType::CertificateRequest,
            HandshakeType::ServerHelloDone};
}

Cause ClientHandshake12::onCertificate(LogBase& log, std::span<const uint8_t> body) {
    CertificateList list;
    if (!parseCertificate12(body, list)) return Cause::TlsDecodeError;
    if (list.empty()) return Cause::TlsCertificateMissing;
    if (established_ && !same(list.front(), established_->leaf)) {
        return Cause::TlsCertificateChanged;
    }
    shared_.result.leaf.assign(list.front().begin(), list.front().end());
    for (const auto& certificate : list) {
        shared_.result.chain.emplace_back(certificate.begin(), certificate.end());
    }
    if (!x509::findPublicKey(shared_.result.chain.front(), serverKey_)) {
        return Cause::TlsCertificateUnreadable;
    }
    const bool wantsEc = shared_.result.suite->keyExchange == KeyExchangeKind::EcdheEcdsa;
    const bool fits = wantsEc ? serverKey_.kind == x509::KeyKind::Ec &&
                                    offersGroup(groupOf(serverKey_.curve))  // RFC 8422, 5.3
                              : serverKey_.kind == x509::KeyKind::Rsa;
    if (!fits) return Cause::TlsBadServerKey;
    next_ = afterCertificate();
    return established_ ? judgeKeyUsage(log) : Cause::None;
}

// The first handshake's certificate is judged when that is over. A renegotiation brings the same
// one, but another suite may come with it.
Cause ClientHandshake12::judgeKeyUsage(LogBase& log) const {
    x509::Certificate leaf;
    if (!x509::parseCertificate(shared_.result.leaf, leaf)) return Cause::None;
    const std::string lacking = lackingKeyUsage(leaf, *shared_.result.suite);
    if (lacking.empty()) return Cause::None;
    if (!shared_.settings.verifiesServer) {
        warnOfKeyUsage(log, lacking);
        return Cause::None;
    }
    log.logData("detail", lacking);
    return Cause::TlsKeyUsageLacking;
}

bool ClientHandshake12::offersGroup(Group group) const {
    HelloParameters offer;
    offer.options = shared_.settings.options;
    offer.moreCurves = shared_.settings.moreCurves;
    const std::vector<Group> groups = offeredGroups(offer);
    return std::find(groups.begin(), groups.end(), group) != groups.end();
}

Cause ClientHandshake12::onServerKeyExchange(LogBase& log, std::span<const uint8_t> body) {
    next_ = {HandshakeType::CertificateRequest, HandshakeType::ServerHelloDone};
    return shared_.result.suite->isEcdhe() ? onEcdhe(log, body) : onDhe(log, body);
}

Cause ClientHandshake12::onEcdhe(LogBase& log, std::span<const uint8_t> body) {
    EcdheParameters p;
    if (!parseServerKeyExchange(body, shared_.result.version, p)) return Cause::TlsDecodeError;
    if (!offersGroup(p.group)) {
        log.logError("Unsupported named curve.");
        return Cause::TlsGroupNotOffered;
    }
    const Cause failure = judgeSignature(p.parameters, p.signature);
    if (failure != Cause::None) return failure;
    log.logVerbose("Verified server key exchange.");
    const std::unique_ptr<KeyShare> share = makeKeyShare(p.group, shared_.randomSource());
    if (!share) return Cause::TlsRandomFailed;
    if (!share->derive(p.publicKey, premaster_)) return Cause::TlsBadKeyShare;
    shared_.result.group = p.group;
    ByteWriter w;
    w.vector8(share->publicKey());
    exchangeBody_ = w.take();
    return Cause::None;
}

Cause ClientHandshake12::onDhe(LogBase& log, std::span<const uint8_t> body) {
    DheParameters p;
    if (!parseServerKeyExchange(body, shared_.result.version, p)) return Cause::TlsDecodeError;
    crypto::Dhe dhe;
    switch (dhe.setServerParams(p.p, p.g, p.publicKey)) {
        case crypto::Dhe::Check::Ok:
            break;
        case crypto::Dhe::Check::GroupTooSmall:
            return Cause::TlsWeakDhGroup;
        case crypto::Dhe::Check::GroupTooLarge:
        case crypto::Dhe::Check::BadGroup:
        case crypto::Dhe::Check::BadPeerKey:
            return Cause::TlsBadKeyShare;
    }
    const Cause failure = judgeSignature(p.parameters, p.signature);
    if (failure != Cause::None) return failure;
    log.logVerbose("Verified server key exchange.");
    if (dhe.bits() < crypto::Dhe::kSafeBits) {
        log.logInfo("Warning: the server's Diffie-Hellman group has only " +
                    std::to_string(dhe.bits()) + " bits.");
    }
    if (!dhe.generate(shared_.randomSource())) return Cause::TlsRandomFailed;
    if (!dhe.deriveStripped(premaster_)) return Cause::TlsBadKeyShare;
    ByteWriter w;
    w.vector16(dhe.publicValue());
    exchangeBody_ = w.take();
    return Cause::None;
}

Cause ClientHandshake12::judgeSignature(std::span<const uint8_t> parameters,
                                        const Signature& signature) const {
    if (shared_.result.version >= Version::Tls12 && !schemeFits12(signature.scheme, serverKey_)) {
        return Cause::TlsSchemeNotAllowed;
    }
    ByteWriter data;
    data.append(shared_.hello.random);
    data.append(shared_.serverRandom);
    data.append(parameters);
    const bool right = verifyServerSignature12(shared_.result.version, signature.scheme, serverKey_,
                                               data.bytes(), signature.bytes);
    return right ? Cause::None : Cause::TlsBadSignature;
}

Cause ClientHandshake12::onServerHelloDone(LogBase& log, std::span<const uint8_t> body) {
    if (!body.empty()) return Cause::TlsDecodeError;
    if (shared_.result.suite->keyExchange == KeyExchangeKind::Rsa) {
        const Cause failure = makeRsaPremaster();
        if (failure != Cause::None) return failure;
    }
    const Cause failure = sendKeyExchange();
    if (failure != Cause::None) return failure;
    log.logVerbose("Sending the client's Finished...");
    if (!sendFinished()) return Cause::OutOfMemory;
    next_ = beforeServerFinished();
    return Cause::None;
}

// RFC 5246, 7.4.7.1: the version is the hello's, not the negotiated one.
Cause ClientHandshake12::makeRsaPremaster() {
    crypto::RsaPublicKey key;
    if (!key.set(serverKey_.modulus, serverKey_.exponent)) return Cause::TlsBadServerKey;
    premaster_ = SecureBuffer(kMasterSecretSize);
    const uint16_t version = static_cast<uint16_t>(shared_.hello.legacyVersion);
    premaster_[0] = static_cast<uint8_t>(version >> 8);
    premaster_[1] = static_cast<uint8_t>(version);
    if (!shared_.environment.random(premaster_.bytes().subspan(2))) {
        return Cause::TlsRandomFailed;
    }
    std::vector<uint8_t> encrypted(key.bytes());
    if (!key.encryptPkcs1(premaster_.bytes(), shared_.randomSource(), encrypted)) {
        return Cause::TlsRandomFailed;
    }
    ByteWriter w;
    w.vector16(encrypted);
    exchangeBody_ = w.take();
    return Cause::None;
}

Cause ClientHandshake12::sendKeyExchange() {
    static constexpr uint8_t kNoCertificates[] = {0, 0, 0};
    const bool sent =
        (!shared_.result.clientCertificateAsked ||
         shared_.send(handshakeMessage(HandshakeType::Certificate, kNoCertificates))) &&
        shared_.send(handshakeMessage(HandshakeType::ClientKeyExchange, exchangeBody_));
    if (!sent) return Cause::OutOfMemory;
    deriveMaster(premaster_.bytes());
    premaster_ = {};
    return makeCiphers() ? Cause::None : Cause::TlsInternal;
}

void ClientHandshake12::deriveMaster(std::span<const uint8_t> premaster) {
    const Negotiated& result = shared_.result;
    ByteWriter seed;
    if (result.extendedMasterSecret) {
        seed.append(shared_.transcript.hash());  // through our ClientKeyExchange
    } else {
        seed.append(shared_.hello.random);
        seed.append(shared_.serverRandom);
    }
    master_ = masterSecret12(result.version, result.suite->hash, premaster,
                             result.extendedMasterSecret, seed.bytes());
}

bool ClientHandshake12::makeCiphers() {
    const Negotiated& result = shared_.result;
    const KeyBlock12 keys = keyBlock12(result.version, *result.suite, master_.bytes(),
                                       shared_.hello.random, shared_.serverRandom);
    writeCipher_ =
        makeRecordCipher(*result.suite, result.version, keys.client, shared_.randomSource());
    readCipher_ =
        makeRecordCipher(*result.suite, result.version, keys.server, shared_.randomSource());
    return writeCipher_ && readCipher_;
}

std::vector<uint8_t> ClientHandshake12::verifyData(bool fromClient) const {
    return verifyData12(shared_.result.version, shared_.result.suite->hash, master_.bytes(),
                        fromClient, shared_.transcript.hash());
}

bool ClientHandshake12::sendFinished() {
    static constexpr uint8_t kBody[] = {1};
    if (!shared_.records.send(ContentType::ChangeCipherSpec, kBody)) return false;
    shared_.records.protectWriting(std::move(writeCipher_));
    std::vector<uint8_t> verify = verifyData(true);
    const bool sent = shared_.send(handshakeMessage(HandshakeType::Finished, verify));
    shared_.result.renegotiation.clientVerify = std::move(verify);
    sentFinished_ = true;
    return sent;
}

Cause ClientHandshake12::onChangeCipherSpec() {
    if (!readCipher_) return Cause::TlsUnexpectedCcs;
    shared_.records.protectReading(std::move(readCipher_));
    next_ = {HandshakeType::Finished};
    return Cause::None;
}

Cause ClientHandshake12::onFinished(LogBase& log, const HandshakeMessage& message,
                                    bool atBoundary) {
    std::vector<uint8_t> expected = verifyData(false);
    if (message.body.size() != expected.size()) return Cause::TlsDecodeError;
    if (!ctEqual(message.body, expected)) return Cause::TlsBadFinished;
    if (!atBoundary) return Cause::TlsLeftoverAtKeyChange;
    log.logVerbose("Server's FINISHED verify data is OK.");
    shared_.transcript.add(message.whole);
    shared_.result.renegotiation.serverVerify = std::move(expected);
    if (!sentFinished_ && !sendFinished()) return Cause::OutOfMemory;

    TlsSession session;
    session.version = shared_.result.version;
    session.suite = shared_.result.suite->id;
    session.secret = std::move(master_);
    session.id = std::move(sessionId_);
    session.receivedAtMs = shared_.environment.wallClockMs();
    session.leaf = shared_.result.leaf;
    session.extendedMasterSecret = shared_.result.extendedMasterSecret;
    // A resumed session keeps the age of its first handshake.
    if (shared_.result.resumed) session.receivedAtMs = shared_.settings.session->receivedAtMs;
    if (!session.id.empty()) shared_.newSession = std::move(session);
    done_ = true;
    log.logVerbose("Handshake completed successfully.");
    return Cause::None;
}

}  // namespace tv::tls
