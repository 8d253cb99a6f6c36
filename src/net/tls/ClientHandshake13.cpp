// The flow of TLS 1.3, message by message (RFC 8446).
#include "net/tls/ClientHandshake13.h"

#include "base/ConstTime.h"
#include "net/tls/TlsSignature.h"

namespace tv::tls {

bool ClientHandshake13::protect(std::span<const uint8_t> trafficSecret, bool reading) {
    const CipherSuite& suite = *shared_.result.suite;
    auto cipher = makeRecordCipher(suite, Version::Tls13, trafficKeys13(suite, trafficSecret),
                                   shared_.randomSource());
    if (!cipher) return false;
    if (reading) {
        shared_.records.protectReading(std::move(cipher));
    } else {
        shared_.records.protectWriting(std::move(cipher));
    }
    return true;
}

Cause ClientHandshake13::begin(LogBase& log, const ServerHello& reply) {
    const CipherSuite& suite = *shared_.result.suite;
    SecureBuffer psk;
    if (reply.extensions.selectedPsk) {
        // Only one ticket was offered, and it fits only its own hash (RFC 8446, 4.2.11).
        if (!shared_.sessionOffered || *reply.extensions.selectedPsk != 0 ||
            findCipherSuite(shared_.settings.session->suite)->hash != suite.hash) {
            return Cause::TlsResumptionMismatch;
        }
        shared_.result.resumed = true;
        psk = shared_.settings.session->secret;
        shared_.result.leaf = shared_.settings.session->leaf;
    }
    SecureBuffer shared;
    const Cause failure = sharedSecret(log, reply, shared);
    if (failure != Cause::None) return failure;
    shared_.shares.clear();

    const std::vector<uint8_t> hash = shared_.transcript.hash();
    stage_ = EarlyStage13(suite.hash, psk.bytes()).handshake(shared.bytes());
    clientHandshake_ = stage_->clientTraffic(hash);
    serverHandshake_ = stage_->serverTraffic(hash);
    // Both directions at once: an alert, too, is protected from here on (RFC 8446, 6).
    if (!protect(serverHandshake_.bytes(), true) || !protect(clientHandshake_.bytes(), false)) {
        return Cause::TlsInternal;
    }
    next_ = {HandshakeType::EncryptedExtensions};
    return Cause::None;
}

Cause ClientHandshake13::sharedSecret(LogBase& log, const ServerHello& reply,
                                      SecureBuffer& shared) {
    const LogContextExitor context(log, "computeTls13SharedSecret");
    const ServerExtensions& answer = reply.extensions;
    // Without a key_share only a ticket protects the connection; psk_ke was offered, so the server
    // may do that.
    if (!answer.hasKeyShare) {
        return shared_.result.resumed ? Cause::None : Cause::TlsMissingExtension;
    }
    for (const auto& share : shared_.shares) {
        if (share->group() != answer.keyShareGroup) continue;
        shared_.result.group = share->group();
        if (share->derive(answer.keyShare, shared)) return Cause::None;
        log.logError("ServerHello " + std::string(groupName(share->group())) +
                     " public key is missing or not the correct size.");
        return Cause::TlsBadKeyShare;
    }
    return Cause::TlsGroupNotOffered;
}

Cause ClientHandshake13::onMessage(LogBase& log, const HandshakeMessage& message, bool atBoundary) {
    next_ = {};
    Cause failure = Cause::TlsUnexpectedMessage;
    switch (message.type) {
        case HandshakeType::EncryptedExtensions:
            failure = onEncryptedExtensions(message.body);
            break;
        case HandshakeType::CertificateRequest:
            failure = onCertificateRequest(message.body);
            break;
        case HandshakeType::Certificate:
            failure = onCertificate(message.body);
            break;
        case HandshakeType::CertificateVerify:
            failure = onCertificateVerify(message.body);
            break;
        case HandshakeType::Finished:
            return onFinished(log, message, atBoundary);
        default:
            break;
    }
    // Signature and Finished cover what came before them, so the message is added after its check.
    if (failure == Cause::None) shared_.transcript.add(message.whole);
    return failure;
}

Cause ClientHandshake13::onEncryptedExtensions(std::span<const uint8_t> body) {
    ServerExtensions answer;
    Cause failure = parseEncryptedExtensions(body, shared_.hello, answer);
    if (failure == Cause::None && answer.recordSizeLimit) {
        failure = applyRecordSizeLimit(shared_.records, *answer.recordSizeLimit);
    }
    if (shared_.result.resumed) {
        next_ = {HandshakeType::Finished};
    } else {
        next_ = {HandshakeType::CertificateRequest, HandshakeType::Certificate};
    }
    return failure;
}

Cause ClientHandshake13::onCertificateRequest(std::span<const uint8_t> body) {
    std::span<const uint8_t> context;
    const Cause failure = parseCertificateRequest13(body, context);
    if (failure != Cause::None) return failure;
    if (!context.empty()) return Cause::TlsIllegalParameter;  // RFC 8446, 4.3.2
    shared_.result.clientCertificateAsked = true;
    next_ = {HandshakeType::Certificate};
    return Cause::None;
}

Cause ClientHandshake13::onCertificate(std::span<const uint8_t> body) {
    CertificateList list;
    const Cause failure = parseCertificate13(body, list);
    if (failure != Cause::None) return failure;
    if (list.empty()) return Cause::TlsCertificateMissing;
    shared_.result.leaf.assign(list.front().begin(), list.front().end());
    for (const auto& certificate : list) {
        shared_.result.chain.emplace_back(certificate.begin(), certificate.end());
    }
    if (!x509::findPublicKey(shared_.result.chain.front(), serverKey_)) {
        return Cause::TlsCertificateUnreadable;
    }
    next_ = {HandshakeType::CertificateVerify};
    return Cause::None;
}

Cause ClientHandshake13::onCertificateVerify(std::span<const uint8_t> body) {
    Signature signature;
    if (!parseCertificateVerify(body, signature)) return Cause::TlsDecodeError;
    if (!schemeFits13(signature.scheme, serverKey_)) return Cause::TlsSchemeNotAllowed;
    if (!verifyServerSignature13(signature.scheme, serverKey_, shared_.transcript.hash(),
                                 signature.bytes)) {
        return Cause::TlsBadSignature;
    }
    next_ = {HandshakeType::Finished};
    return Cause::None;
}

Cause ClientHandshake13::onFinished(LogBase& log, const HandshakeMessage& message,
                                    bool atBoundary) {
    const crypto::HashId hash = shared_.result.suite->hash;
    const std::vector<uint8_t> expected =
        finishedMac13(hash, serverHandshake_.bytes(), shared_.transcript.hash());
    if (message.body.size() != expected.size()) return Cause::TlsDecodeError;
    if (!ctEqual(message.body, expected)) return Cause::TlsBadFinished;
    if (!atBoundary) return Cause::TlsLeftoverAtKeyChange;
    shared_.transcript.add(message.whole);
    return finish(log);
}

// Our second flight, and the keys of the connection.
Cause ClientHandshake13::finish(LogBase& log) {
    const crypto::HashId hash = shared_.result.suite->hash;
    const MasterStage13 master = stage_->master();
    const std::vector<uint8_t> serverDone = shared_.transcript.hash();
    traffic_.client = master.clientTraffic(serverDone);
    traffic_.server = master.serverTraffic(serverDone);

    bool sent = shared_.sendCompatibilityCcs();
    if (sent && shared_.result.clientCertificateAsked) {
        static constexpr uint8_t kNone[] = {0, 0, 0, 0};  // no context, no certificates
        sent = shared_.send(handshakeMessage(HandshakeType::Certificate, kNone));
    }
    log.logVerbose("Sending TLS 1.3 Finished handshake message...");
    const std::vector<uint8_t> verify =
        finishedMac13(hash, clientHandshake_.bytes(), shared_.transcript.hash());
    sent = sent && shared_.send(handshakeMessage(HandshakeType::Finished, verify));
    if (!sent) return Cause::OutOfMemory;

    if (!protect(traffic_.server.bytes(), true) || !protect(traffic_.client.bytes(), false)) {
        return Cause::TlsInternal;
    }
    log.logVerbose("Deriving resumption secret for TLS 1.3");
    traffic_.resumption = master.resumption(shared_.transcript.hash());
    stage_.reset();
    clientHandshake_.clear();
    serverHandshake_.clear();
    done_ = true;
    return Cause::None;
}

}  // namespace tv::tls
