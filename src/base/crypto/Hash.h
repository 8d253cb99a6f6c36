// A hash whose algorithm is known at run time only: by the cipher suite, a signature or a login.
#pragma once

#include <variant>

#include "base/crypto/Md5.h"
#include "base/crypto/Sha1.h"
#include "base/crypto/Sha2.h"

namespace tv::crypto {

// In the order of HashState's alternatives.
enum class HashId : uint8_t { kMd5, kSha1, kSha256, kSha384, kSha512 };

constexpr size_t kMaxDigestSize = 64;
constexpr size_t kMaxHashBlockSize = 128;

size_t digestSize(HashId id);
size_t hashBlockSize(HashId id);

// The result of a hash or MAC: as many bytes as the algorithm gives, wiped when it dies.
class DigestBytes {
public:
    DigestBytes() = default;
    explicit DigestBytes(std::span<const uint8_t> bytes) : size_(bytes.size()) {
        std::copy(bytes.begin(), bytes.end(), bytes_.begin());
    }
    DigestBytes(const DigestBytes&) = default;
    DigestBytes& operator=(const DigestBytes&) = default;
    ~DigestBytes() { plat::wipe(bytes_.data(), bytes_.size()); }

    size_t size() const { return size_; }
    const uint8_t* data() const { return bytes_.data(); }
    std::span<const uint8_t> bytes() const { return {bytes_.data(), size_}; }
    operator std::span<const uint8_t>() const { return bytes(); }

private:
    std::array<uint8_t, kMaxDigestSize> bytes_{};
    size_t size_ = 0;
};

// A value like the hashes themselves.
class Hash {
public:
    explicit Hash(HashId id);

    static DigestBytes of(HashId id, std::span<const uint8_t> message);

    HashId id() const { return static_cast<HashId>(state_.index()); }
    void update(std::span<const uint8_t> data);
    // Ends the message. The object is then as new.
    DigestBytes finish();

private:
    using HashState = std::variant<Md5, Sha1, Sha256, Sha384, Sha512>;
    HashState state_;
};

}  // namespace tv::crypto
