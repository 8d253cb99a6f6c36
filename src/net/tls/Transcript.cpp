// Messages are kept until the hash is known, from then on only hashed.
#include "net/tls/Transcript.h"

#include "base/ByteWriter.h"

namespace tv::tls {
namespace {

void appendDigest(std::vector<uint8_t>& out, const std::optional<crypto::Hash>& running) {
    if (!running) return;
    crypto::Hash copy = *running;
    const crypto::DigestBytes digest = copy.finish();
    out.insert(out.end(), digest.data(), digest.data() + digest.size());
}

}  // namespace

void Transcript::add(std::span<const uint8_t> message) {
    if (!first_) {
        kept_.insert(kept_.end(), message.begin(), message.end());
        return;
    }
    first_->update(message);
    if (second_) second_->update(message);
}

void Transcript::settle(Version version, crypto::HashId hash) {
    const bool legacy = version < Version::Tls12;
    first_.emplace(legacy ? crypto::HashId::kMd5 : hash);
    if (legacy) second_.emplace(crypto::HashId::kSha1);
    add(kept_);
    kept_ = {};
}

void Transcript::restartForRetry(crypto::HashId hash) {
    // RFC 8446, 4.4.1: a message_hash stands for the first hello.
    const crypto::DigestBytes first = crypto::Hash::of(hash, kept_);
    ByteWriter w;
    w.u8(static_cast<uint8_t>(HandshakeType::MessageHash));
    w.u24(first.size());
    w.append(first.bytes());
    kept_ = w.take();
}

std::vector<uint8_t> Transcript::hash() const {
    std::vector<uint8_t> out;
    appendDigest(out, first_);
    appendDigest(out, second_);
    return out;
}

std::vector<uint8_t> Transcript::hashWith(crypto::HashId hash,
                                          std::span<const uint8_t> more) const {
    std::vector<uint8_t> all = kept_;
    all.insert(all.end(), more.begin(), more.end());
    const crypto::DigestBytes digest = crypto::Hash::of(hash, all);
    return {digest.data(), digest.data() + digest.size()};
}

}  // namespace tv::tls
