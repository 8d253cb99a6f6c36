// The groups that are known, by number, curve and name, and a key pair of each kind.
#include "net/tls/KeyShare.h"

#include <optional>

#include "base/crypto/Ecdh.h"
#include "base/crypto/X25519.h"

namespace tv::tls {
namespace {

class X25519Share final : public KeyShare {
public:
    bool generate(const crypto::RandomSource& random) {
        if (!key_.generate(random)) return false;
        public_.assign(key_.publicValue().begin(), key_.publicValue().end());
        return true;
    }
    Group group() const override { return Group::X25519; }
    const std::vector<uint8_t>& publicKey() const override { return public_; }
    bool derive(std::span<const uint8_t> peerKey, SecureBuffer& shared) const override {
        if (peerKey.size() != crypto::kX25519Size) return false;
        shared.resize(crypto::kX25519Size);
        return key_.derive(shared.bytes().first<crypto::kX25519Size>(),
                           peerKey.first<crypto::kX25519Size>());
    }

private:
    crypto::X25519Key key_;
    std::vector<uint8_t> public_;
};

class CurveShare final : public KeyShare {
public:
    CurveShare(Group group, crypto::EcCurveId curve) : group_(group), key_(curve) {}

    bool generate(const crypto::RandomSource& random) {
        if (!key_.generate(random)) return false;
        public_.assign(key_.publicPoint().begin(), key_.publicPoint().end());
        return true;
    }
    Group group() const override { return group_; }
    const std::vector<uint8_t>& publicKey() const override { return public_; }
    bool derive(std::span<const uint8_t> peerKey, SecureBuffer& shared) const override {
        return key_.derive(shared, peerKey);
    }

private:
    Group group_;
    crypto::EcdhKey key_;
    std::vector<uint8_t> public_;
};

struct NamedGroup {
    Group group;
    std::optional<crypto::EcCurveId> curve;  // none: x25519
    std::string_view name;
};

constexpr NamedGroup kGroups[] = {
    {Group::X25519, std::nullopt, "x25519"},
    {Group::Secp256r1, crypto::EcCurveId::kSecp256r1, "secp256r1"},
    {Group::Secp384r1, crypto::EcCurveId::kSecp384r1, "secp384r1"},
    {Group::Secp521r1, crypto::EcCurveId::kSecp521r1, "secp521r1"},
    {Group::BrainpoolP256r1, crypto::EcCurveId::kBrainpoolP256r1, "brainpoolP256r1"},
    {Group::BrainpoolP384r1, crypto::EcCurveId::kBrainpoolP384r1, "brainpoolP384r1"},
    {Group::BrainpoolP512r1, crypto::EcCurveId::kBrainpoolP512r1, "brainpoolP512r1"},
};

const NamedGroup* findGroup(Group group) {
    for (const NamedGroup& row : kGroups) {
        if (row.group == group) return &row;
    }
    return nullptr;
}

template <class Share>
std::unique_ptr<KeyShare> generated(std::unique_ptr<Share> share,
                                    const crypto::RandomSource& random) {
    if (!share->generate(random)) return nullptr;
    return share;
}

}  // namespace

std::unique_ptr<KeyShare> makeKeyShare(Group group, const crypto::RandomSource& random) {
    const NamedGroup* row = findGroup(group);
    if (!row) return nullptr;
    if (!row->curve) return generated(std::make_unique<X25519Share>(), random);
    return generated(std::make_unique<CurveShare>(group, *row->curve), random);
}

Group groupOf(crypto::EcCurveId curve) {
    for (const NamedGroup& row : kGroups) {
        if (row.curve == curve) return row.group;
    }
    return Group::None;
}

std::string_view groupName(Group group) {
    const NamedGroup* row = findGroup(group);
    return row ? row->name : "unknown group";
}

}  // namespace tv::tls
