// The pseudo-random function of TLS 1.0 to 1.2, and secrets, keys and verify data made by it.
#include "net/tls/KeySchedule12.h"

#include <algorithm>

#include "base/Ascii.h"
#include "base/crypto/Hmac.h"

namespace tv::tls {
namespace {

// P_hash of RFC 5246, 5, xored onto out.
void addPHash(crypto::HashId hash, std::span<const uint8_t> secret,
              std::span<const uint8_t> labelAndSeed, std::span<uint8_t> out) {
    crypto::Hmac mac(hash, secret);
    mac.update(labelAndSeed);
    crypto::DigestBytes a = mac.finish();
    while (!out.empty()) {
        mac.update(a);
        mac.update(labelAndSeed);
        const crypto::DigestBytes block = mac.finish();
        const size_t size = std::min(out.size(), block.size());
        for (size_t i = 0; i < size; ++i) {
            out[i] ^= block.data()[i];
        }
        out = out.subspan(size);
        mac.update(a);
        a = mac.finish();
    }
}

std::vector<uint8_t> joined(std::span<const uint8_t> a, std::span<const uint8_t> b) {
    std::vector<uint8_t> out(a.begin(), a.end());
    out.insert(out.end(), b.begin(), b.end());
    return out;
}

}  // namespace

void prf12(Version version, crypto::HashId hash, std::span<const uint8_t> secret,
           std::string_view label, std::span<const uint8_t> seed, std::span<uint8_t> out) {
    const std::vector<uint8_t> labelAndSeed = joined({bytesOf(label), label.size()}, seed);
    std::fill(out.begin(), out.end(), uint8_t{0});
    if (version >= Version::Tls12) {
        addPHash(hash, secret, labelAndSeed, out);
        return;
    }
    // Each half of the secret, which share the middle byte of an odd one, keys one of the two.
    const size_t half = (secret.size() + 1) / 2;
    addPHash(crypto::HashId::kMd5, secret.first(half), labelAndSeed, out);
    addPHash(crypto::HashId::kSha1, secret.last(half), labelAndSeed, out);
}

SecureBuffer masterSecret12(Version version, crypto::HashId hash,
                            std::span<const uint8_t> premaster, bool extended,
                            std::span<const uint8_t> seed) {
    SecureBuffer master(kMasterSecretSize);
    prf12(version, hash, premaster, extended ? "extended master secret" : "master secret", seed,
          master.bytes());
    return master;
}

KeyBlock12 keyBlock12(Version version, const CipherSuite& suite, std::span<const uint8_t> master,
                      std::span<const uint8_t> clientRandom,
                      std::span<const uint8_t> serverRandom) {
    const size_t macSize = suite.mac ? suite.tagSize : 0;
    // TLS 1.0 takes the first IV of a CBC suite from the key block, later ones from the records.
    const bool cbcIv = version == Version::Tls10 && suite.mac;
    const size_t ivSize = cbcIv ? suite.recordIvSize : suite.fixedIvSize;
    SecureBuffer block(2 * (macSize + suite.keySize + ivSize));
    prf12(version, suite.hash, master, "key expansion", joined(serverRandom, clientRandom),
          block.bytes());

    std::span<const uint8_t> rest = block.bytes();
    const auto cut = [&](size_t size) {
        SecureBuffer part(rest.first(size));
        rest = rest.subspan(size);
        return part;
    };
    KeyBlock12 keys;
    keys.client.macKey = cut(macSize);
    keys.server.macKey = cut(macSize);
    keys.client.key = cut(suite.keySize);
    keys.server.key = cut(suite.keySize);
    keys.client.iv = cut(ivSize);
    keys.server.iv = cut(ivSize);
    return keys;
}

std::vector<uint8_t> verifyData12(Version version, crypto::HashId hash,
                                  std::span<const uint8_t> master, bool fromClient,
                                  std::span<const uint8_t> transcriptHash) {
    std::vector<uint8_t> out(kVerifyDataSize);
    prf12(version, hash, master, fromClient ? "client finished" : "server finished", transcriptHash,
          out);
    return out;
}

}  // namespace tv::tls
