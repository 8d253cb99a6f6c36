// HKDF-Expand-Label and the stages of TLS 1.3, each with the labels of RFC 8446, 7.1.
#include "net/tls/KeySchedule13.h"

#include "base/ByteWriter.h"
#include "base/crypto/Hkdf.h"

namespace tv::tls {
namespace {

SecureBuffer extract(crypto::HashId hash, std::span<const uint8_t> salt,
                     std::span<const uint8_t> secret) {
    const SecureBuffer zeros(crypto::digestSize(hash));
    const crypto::DigestBytes out =
        crypto::hkdfExtract(hash, salt, secret.empty() ? zeros.bytes() : secret);
    return SecureBuffer(out.bytes());
}

}  // namespace

SecureBuffer expandLabel(crypto::HashId hash, std::span<const uint8_t> secret,
                         std::string_view label, std::span<const uint8_t> context, size_t size) {
    ByteWriter info;
    info.u16(size);
    info.vector(1, [&] {
        info.append("tls13 ");
        info.append(label);
    });
    info.vector8(context);
    SecureBuffer out(size);
    crypto::hkdfExpand(hash, secret, info.bytes(), out.bytes());
    return out;
}

RecordKeys trafficKeys13(const CipherSuite& suite, std::span<const uint8_t> trafficSecret) {
    RecordKeys keys;
    keys.key = expandLabel(suite.hash, trafficSecret, "key", {}, suite.keySize);
    keys.iv = expandLabel(suite.hash, trafficSecret, "iv", {}, suite.fixedIvSize);
    return keys;
}

SecureBuffer nextTrafficSecret(crypto::HashId hash, std::span<const uint8_t> trafficSecret) {
    return expandLabel(hash, trafficSecret, "traffic upd", {}, crypto::digestSize(hash));
}

std::vector<uint8_t> finishedMac13(crypto::HashId hash, std::span<const uint8_t> secret,
                                   std::span<const uint8_t> transcriptHash) {
    const SecureBuffer key = expandLabel(hash, secret, "finished", {}, crypto::digestSize(hash));
    const crypto::DigestBytes mac = crypto::Hmac::of(hash, key.bytes(), transcriptHash);
    return {mac.data(), mac.data() + mac.size()};
}

SecureBuffer ticketKey13(crypto::HashId hash, std::span<const uint8_t> resumptionSecret,
                         std::span<const uint8_t> nonce) {
    return expandLabel(hash, resumptionSecret, "resumption", nonce, crypto::digestSize(hash));
}

SecureBuffer Stage13::derive(std::string_view label,
                             std::span<const uint8_t> transcriptHash) const {
    return expandLabel(hash_, secret_.bytes(), label, transcriptHash, crypto::digestSize(hash_));
}

SecureBuffer Stage13::derive(std::string_view label) const {
    return derive(label, crypto::Hash::of(hash_, {}));
}

SecureBuffer Stage13::next(std::span<const uint8_t> input) const {
    return extract(hash_, derive("derived").bytes(), input);
}

EarlyStage13::EarlyStage13(crypto::HashId hash, std::span<const uint8_t> psk)
    : Stage13(hash, extract(hash, {}, psk)) {}

SecureBuffer EarlyStage13::resumptionBinder() const {
    return derive("res binder");
}

HandshakeStage13 EarlyStage13::handshake(std::span<const uint8_t> shared) const {
    return {hash_, next(shared)};
}

SecureBuffer HandshakeStage13::clientTraffic(std::span<const uint8_t> transcriptHash) const {
    return derive("c hs traffic", transcriptHash);
}

SecureBuffer HandshakeStage13::serverTraffic(std::span<const uint8_t> transcriptHash) const {
    return derive("s hs traffic", transcriptHash);
}

MasterStage13 HandshakeStage13::master() const {
    return {hash_, next({})};
}

SecureBuffer MasterStage13::clientTraffic(std::span<const uint8_t> transcriptHash) const {
    return derive("c ap traffic", transcriptHash);
}

SecureBuffer MasterStage13::serverTraffic(std::span<const uint8_t> transcriptHash) const {
    return derive("s ap traffic", transcriptHash);
}

SecureBuffer MasterStage13::resumption(std::span<const uint8_t> transcriptHash) const {
    return derive("res master", transcriptHash);
}

}  // namespace tv::tls
