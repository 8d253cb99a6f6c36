// Keys of TLS 1.3 (RFC 8446, 7). Each stage is a type of its own and is made from the one before,
// so that no secret can be taken too early.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "base/SecureBuffer.h"
#include "net/tls/RecordCipher.h"

namespace tv::tls {

// HKDF-Expand-Label; the label comes without its "tls13 " prefix.
SecureBuffer expandLabel(crypto::HashId hash, std::span<const uint8_t> secret,
                         std::string_view label, std::span<const uint8_t> context, size_t size);

// The keys of one direction from its traffic secret.
RecordKeys trafficKeys13(const CipherSuite& suite, std::span<const uint8_t> trafficSecret);
// The secret after a KeyUpdate.
SecureBuffer nextTrafficSecret(crypto::HashId hash, std::span<const uint8_t> trafficSecret);
// verify_data of a Finished, or a binder, under a traffic or binder secret.
std::vector<uint8_t> finishedMac13(crypto::HashId hash, std::span<const uint8_t> secret,
                                   std::span<const uint8_t> transcriptHash);
// The pre-shared key that a ticket stands for.
SecureBuffer ticketKey13(crypto::HashId hash, std::span<const uint8_t> resumptionSecret,
                         std::span<const uint8_t> nonce);

// A secret of the schedule and what is made of it.
class Stage13 {
protected:
    Stage13(crypto::HashId hash, SecureBuffer secret) : hash_(hash), secret_(std::move(secret)) {}
    // Derive-Secret with the transcript hash already computed.
    SecureBuffer derive(std::string_view label, std::span<const uint8_t> transcriptHash) const;
    // The same for no messages at all.
    SecureBuffer derive(std::string_view label) const;
    // The secret of the next stage; input is empty where nothing new goes in.
    SecureBuffer next(std::span<const uint8_t> input) const;

    crypto::HashId hash_;
    SecureBuffer secret_;
};

class MasterStage13 : Stage13 {
public:
    // transcriptHash: through the server's Finished.
    SecureBuffer clientTraffic(std::span<const uint8_t> transcriptHash) const;
    SecureBuffer serverTraffic(std::span<const uint8_t> transcriptHash) const;
    // transcriptHash: through the client's Finished.
    SecureBuffer resumption(std::span<const uint8_t> transcriptHash) const;

private:
    friend class HandshakeStage13;
    MasterStage13(crypto::HashId hash, SecureBuffer secret) : Stage13(hash, std::move(secret)) {}
};

class HandshakeStage13 : Stage13 {
public:
    // transcriptHash: through the ServerHello.
    SecureBuffer clientTraffic(std::span<const uint8_t> transcriptHash) const;
    SecureBuffer serverTraffic(std::span<const uint8_t> transcriptHash) const;
    MasterStage13 master() const;

private:
    friend class EarlyStage13;
    HandshakeStage13(crypto::HashId hash, SecureBuffer secret) : Stage13(hash, std::move(secret)) {}
};

class EarlyStage13 : Stage13 {
public:
    // psk is empty where none is used.
    EarlyStage13(crypto::HashId hash, std::span<const uint8_t> psk);
    // The secret under which the binder of a resumption ticket is made.
    SecureBuffer resumptionBinder() const;
    // shared is empty where only a pre-shared key is used.
    HandshakeStage13 handshake(std::span<const uint8_t> shared) const;
};

}  // namespace tv::tls
