// SCRAM-SHA-256 and SCRAM-SHA-1 (RFC 5802, RFC 7677): both sides prove the password without showing
// it.
#pragma once

#include <string>
#include <string_view>

#include "base/crypto/Hash.h"
#include "mail/sasl/Sasl.h"

namespace tv {

class SaslScram final : public SaslMechanism {
public:
    // hash: kSha256 or kSha1. nonce: printable, fresh for each login; empty: drawn at random.
    SaslScram(crypto::HashId hash, std::string user, SecureBuffer password, std::string nonce = {});

    Failure begin(LogBase& log, SaslTurn& turn) override;
    Failure respond(LogBase& log, std::string_view challenge, SaslTurn& turn) override;

private:
    Failure prove(LogBase& log, std::string_view serverFirst, SaslTurn& turn);
    Failure checkServer(LogBase& log, std::string_view serverFinal, SaslTurn& turn) const;

    const crypto::HashId hash_;
    const std::string user_;
    SecureBuffer password_;
    std::string nonce_;
    std::string firstBare_;  // client-first-message-bare
    crypto::DigestBytes serverSignature_;
    bool proven_ = false;
};

}  // namespace tv
