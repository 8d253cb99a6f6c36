// The switch from a number known at run time to one of the hash types.
#include "base/crypto/Hash.h"

namespace tv::crypto {

namespace {

template <class Digest>
constexpr size_t kSizes[2] = {Digest::kDigestSize, Digest::kBlockSize};

const size_t (&sizesOf(HashId id))[2] {
    switch (id) {
        case HashId::kMd5:
            return kSizes<Md5>;
        case HashId::kSha1:
            return kSizes<Sha1>;
        case HashId::kSha256:
            return kSizes<Sha256>;
        case HashId::kSha384:
            return kSizes<Sha384>;
        case HashId::kSha512:
            break;
    }
    return kSizes<Sha512>;
}

}  // namespace

size_t digestSize(HashId id) {
    return sizesOf(id)[0];
}

size_t hashBlockSize(HashId id) {
    return sizesOf(id)[1];
}

Hash::Hash(HashId id) {
    switch (id) {
        case HashId::kMd5:
            state_.emplace<Md5>();
            break;
        case HashId::kSha1:
            state_.emplace<Sha1>();
            break;
        case HashId::kSha256:
            state_.emplace<Sha256>();
            break;
        case HashId::kSha384:
            state_.emplace<Sha384>();
            break;
        case HashId::kSha512:
            state_.emplace<Sha512>();
            break;
    }
}

DigestBytes Hash::of(HashId id, std::span<const uint8_t> message) {
    Hash hash(id);
    hash.update(message);
    return hash.finish();
}

void Hash::update(std::span<const uint8_t> data) {
    std::visit([data](auto& digest) { digest.update(data); }, state_);
}

DigestBytes Hash::finish() {
    return std::visit(
        [](auto& digest) {
            auto bytes = digest.finish();
            DigestBytes out(bytes);
            plat::wipe(bytes.data(), bytes.size());
            return out;
        },
        state_);
}

}  // namespace tv::crypto
