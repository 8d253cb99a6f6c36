// The two messages of the client, with the keys that the password and the server's salt give, and
// the server's proof, without which a login is none.
#include "mail/sasl/SaslScram.h"

#include <algorithm>
#include <charconv>
#include <vector>

#include "base/Ascii.h"
#include "base/Base64.h"
#include "base/ConstTime.h"
#include "base/Random.h"
#include "base/crypto/Hmac.h"

namespace tv {
namespace {

using crypto::DigestBytes;
using crypto::HashId;
using crypto::Hmac;

constexpr size_t kMaxMessage = 65536;  // as much as a reply line holds
constexpr size_t kMaxSalt = 1024;
constexpr size_t kNonceBytes = 18;  // 24 characters
// RFC 7677 section 4 asks for 4096 at least; more than a million only burns this machine's time.
constexpr uint32_t kLeastIterations = 4096;
constexpr uint32_t kMostIterations = 1000000;

// No channel binding, no other identity (RFC 5802 section 7), and the same in base64.
constexpr std::string_view kGs2Header = "n,,";
constexpr std::string_view kGs2HeaderBase64 = "biws";

Failure unanswerable(LogBase& log, std::string_view why) {
    log.logError(why);
    return Failure(Cause::ChallengeUnanswerable);
}

// Printable ASCII is what SASLprep (RFC 4013) leaves as it is.
bool isPlainAscii(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
}

// "=" and "," in a name (RFC 5802 section 5.1).
std::string escaped(std::string_view name) {
    std::string out;
    for (const char c : name) {
        if (c == '=' || c == ',') {
            out += c == '=' ? "=3D" : "=2C";
        } else {
            out += c;
        }
    }
    return out;
}

// The value of the next attribute "x=...", which ends at a comma; false where another stands there.
bool takeAttribute(std::string_view& message, char name, std::string_view& value) {
    if (message.size() < 2 || message[0] != name || message[1] != '=') return false;
    const size_t end = std::min(message.find(','), message.size());
    value = message.substr(2, end - 2);
    message.remove_prefix(std::min(end + 1, message.size()));
    return true;
}

// Hi() of RFC 5802 section 2.2: PBKDF2 of one block.
SecureBuffer saltedPassword(HashId hash, std::span<const uint8_t> password,
                            std::span<const uint8_t> salt, uint32_t iterations) {
    constexpr uint8_t kFirstBlock[] = {0, 0, 0, 1};
    Hmac mac(hash, password);
    mac.update(salt);
    mac.update(kFirstBlock);
    DigestBytes last = mac.finish();
    SecureBuffer sum;
    sum.append(last);
    for (uint32_t i = 1; i < iterations; ++i) {
        mac.update(last);
        last = mac.finish();
        for (size_t j = 0; j < last.size(); ++j) {
            sum[j] ^= last.bytes()[j];
        }
    }
    return sum;
}

std::span<const uint8_t> spanOf(std::string_view text) {
    return {bytesOf(text), text.size()};
}

SaslMechanism::Names namesOf(HashId hash) {
    if (hash == HashId::kSha256) {
        return {"SCRAM-SHA-256", "scram-sha-256", "auth_scram_sha256", {}};
    }
    return {"SCRAM-SHA-1", "scram-sha-1", "auth_scram_sha1", {}};
}

}  // namespace

SaslScram::SaslScram(HashId hash, std::string user, SecureBuffer password, std::string nonce)
    : SaslMechanism(namesOf(hash)),
      hash_(hash),
      user_(std::move(user)),
      password_(std::move(password)),
      nonce_(std::move(nonce)) {}

Failure SaslScram::begin(LogBase& log, SaslTurn& turn) {
    if (user_.empty() || password_.empty()) return Failure(Cause::NoCredentials);
    if (!isPlainAscii(user_) || !isPlainAscii(saslText(password_))) {
        log.logError("SCRAM works here with user names and passwords of ASCII characters alone.");
        return Failure(Cause::NoCredentials);
    }
    if (nonce_.empty()) {
        uint8_t bytes[kNonceBytes];
        if (!randomBytes(bytes)) return unanswerable(log, "Failed to draw a random nonce.");
        nonce_ = base64Encode(std::span<const uint8_t>(bytes));
    }
    firstBare_ = "n=" + escaped(user_) + ",r=" + nonce_;
    turn.text = base64EncodeSecret(spanOf(std::string(kGs2Header) + firstBare_));
    turn.replyName = names().auth;
    turn.refusal = "The server did not go on with SCRAM.";
    return {};
}

Failure SaslScram::respond(LogBase& log, std::string_view challenge, SaslTurn& turn) {
    const auto bytes = base64Decode(challenge, kMaxMessage, Base64Spaces::Skipped);
    if (!bytes) return unanswerable(log, "The challenge of the server is no base64 text.");
    const std::string message(bytes->begin(), bytes->end());
    turn.replyName = names().auth;
    return proven_ ? checkServer(log, message, turn) : prove(log, message, turn);
}

Failure SaslScram::prove(LogBase& log, std::string_view serverFirst, SaslTurn& turn) {
    std::string_view rest = serverFirst, nonce, salt64, count;
    const bool wellFormed = takeAttribute(rest, 'r', nonce) && takeAttribute(rest, 's', salt64) &&
                            takeAttribute(rest, 'i', count);
    if (!wellFormed) return unanswerable(log, "The server's first message of SCRAM is malformed.");
    // Else it would be an answer to somebody else's login.
    if (!nonce.starts_with(nonce_) || nonce.size() == nonce_.size() || !isPlainAscii(nonce)) {
        return unanswerable(log, "The server's nonce of SCRAM does not go on from ours.");
    }
    const auto salt = base64Decode(salt64, kMaxSalt);
    uint32_t iterations = 0;
    const char* const end = count.data() + count.size();
    const auto number = std::from_chars(count.data(), end, iterations);
    if (!salt || salt->empty() || number.ec != std::errc() || number.ptr != end) {
        return unanswerable(log, "The server's first message of SCRAM is malformed.");
    }
    log.logDataLong("scramIterations", iterations);
    if (iterations < kLeastIterations || iterations > kMostIterations) {
        return unanswerable(log,
                            "The server's number of iterations for SCRAM is below 4096, so that "
                            "the password would not be safe, or above 1000000.");
    }
    const std::string finalBare = "c=" + std::string(kGs2HeaderBase64) + ",r=" + std::string(nonce);
    const std::string signedText = firstBare_ + ',' + std::string(serverFirst) + ',' + finalBare;
    const SecureBuffer salted = saltedPassword(hash_, password_.bytes(), *salt, iterations);
    SecureBuffer proof(Hmac::of(hash_, salted.bytes(), spanOf("Client Key")));
    const DigestBytes storedKey = crypto::Hash::of(hash_, proof.bytes());
    const DigestBytes signature = Hmac::of(hash_, storedKey, spanOf(signedText));
    for (size_t i = 0; i < proof.size(); ++i) {
        proof[i] ^= signature.bytes()[i];
    }
    const DigestBytes serverKey = Hmac::of(hash_, salted.bytes(), spanOf("Server Key"));
    serverSignature_ = Hmac::of(hash_, serverKey, spanOf(signedText));
    const std::string message =
        finalBare + ",p=" + base64Encode(std::span<const uint8_t>(proof.bytes()));
    turn.text = base64EncodeSecret(spanOf(message));
    turn.refusal = "The server refused the proof of the password.";
    proven_ = true;
    return {};
}

// A server that does not know the password cannot sign what was said.
Failure SaslScram::checkServer(LogBase& log, std::string_view serverFinal, SaslTurn& turn) const {
    std::string_view value;
    if (takeAttribute(serverFinal, 'e', value)) {
        log.logData("scramError", value);
        return unanswerable(log, "The server ended SCRAM with an error.");
    }
    const auto signature = takeAttribute(serverFinal, 'v', value)
                               ? base64Decode(value, serverSignature_.size())
                               : std::nullopt;
    if (!signature || !ctEqual(*signature, serverSignature_)) {
        return unanswerable(log, "The server did not prove that it knows the password.");
    }
    turn.secret = false;
    turn.wanted = SaslWanted::Success;
    return {};
}

}  // namespace tv
