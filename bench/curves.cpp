// Public-key primitives beside libcrypto's: x25519, ECDH, ECDSA and RSA verification, each form of
// ours. The peer derives as its users do (EVP, with its check of the peer's key) and verifies with
// a key that it has prepared before; ours takes the key as bytes every time.
//     bench_curves [NAME]     only rows whose name contains NAME
#include "Compare.h"

#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/crypto/Dhe.h"
#include "base/crypto/EcForms.h"
#include "base/crypto/Ecdh.h"
#include "base/crypto/Ecdsa.h"
#include "base/crypto/Hash.h"
#include "base/crypto/Rsa.h"
#include "base/crypto/X25519.h"

#ifdef TV_HAVE_LIBCRYPTO
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#endif

namespace {

using namespace tv::crypto;
using tv::bench::Work;
using Bytes = std::vector<uint8_t>;

std::string_view wanted;

void row(const std::string& what, const char* form, const Work& ours, const Work& peer) {
    if (what.find(wanted) != std::string::npos) tv::bench::printRow(what, form, 1, ours, peer);
}

uint64_t state = 88172645463325252u;

bool anyBytes(std::span<uint8_t> out) {  // repeatable; of no cryptographic use
    for (uint8_t& byte : out) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        byte = static_cast<uint8_t>(state >> 24);
    }
    return true;
}

void check(bool ok, const char* what) {
    if (ok) return;
    std::fprintf(stderr, "failed: %s\n", what);
    std::exit(1);
}

#ifdef TV_HAVE_LIBCRYPTO
EVP_PKEY* makeKey(const char* type, const char* curve, size_t bits) {
    EVP_PKEY* key = curve  ? EVP_PKEY_Q_keygen(nullptr, nullptr, type, curve)
                    : bits ? EVP_PKEY_Q_keygen(nullptr, nullptr, type, bits)
                           : EVP_PKEY_Q_keygen(nullptr, nullptr, type);
    check(key != nullptr, type);
    return key;
}

Work peerDerive(const char* type, const char* curve) {
    EVP_PKEY* mine = makeKey(type, curve, 0);
    EVP_PKEY* other = makeKey(type, curve, 0);
    return [=] {
        uint8_t out[66];
        size_t size = sizeof out;
        EVP_PKEY_CTX* context = EVP_PKEY_CTX_new(mine, nullptr);
        EVP_PKEY_derive_init(context);
        EVP_PKEY_derive_set_peer(context, other);
        check(EVP_PKEY_derive(context, out, &size) == 1, "peer derive");
        EVP_PKEY_CTX_free(context);
    };
}

Work peerMakeKey(const char* type, const char* curve) {
    return [=] { EVP_PKEY_free(makeKey(type, curve, 0)); };
}

// A key, a digest and the peer's signature over it.
struct Signature {
    Signature(const char* type, const char* curve, size_t bits, size_t digestSize)
        : key(makeKey(type, curve, bits)), digest(digestSize, 0x5a), bytes(1024) {
        EVP_PKEY_CTX* context = EVP_PKEY_CTX_new(key, nullptr);
        size_t size = bytes.size();
        EVP_PKEY_sign_init(context);
        if (bits != 0) {
            EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PADDING);
            EVP_PKEY_CTX_set_signature_md(context, EVP_sha256());
        }
        check(EVP_PKEY_sign(context, bytes.data(), &size, digest.data(), digest.size()) == 1,
              "peer sign");
        bytes.resize(size);
        EVP_PKEY_CTX_free(context);
        verifier = EVP_PKEY_CTX_new(key, nullptr);
        EVP_PKEY_verify_init(verifier);
        if (bits != 0) {
            EVP_PKEY_CTX_set_rsa_padding(verifier, RSA_PKCS1_PADDING);
            EVP_PKEY_CTX_set_signature_md(verifier, EVP_sha256());
        }
    }

    Bytes number(const char* name) const {
        BIGNUM* n = nullptr;
        EVP_PKEY_get_bn_param(key, name, &n);
        Bytes out(static_cast<size_t>(BN_num_bytes(n)));
        BN_bn2bin(n, out.data());
        BN_free(n);
        return out;
    }

    Bytes point() const {
        Bytes out(133);
        size_t size = 0;
        EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_PUB_KEY, out.data(), out.size(),
                                        &size);
        out.resize(size);
        return out;
    }

    Work peer() const {
        return [this] {
            check(EVP_PKEY_verify(verifier, bytes.data(), bytes.size(), digest.data(),
                                  digest.size()) == 1,
                  "peer verify");
        };
    }

    EVP_PKEY* key;
    EVP_PKEY_CTX* verifier = nullptr;
    Bytes digest, bytes;
};
#else
Work peerDerive(const char*, const char*) {
    return {};
}
Work peerMakeKey(const char*, const char*) {
    return {};
}
#endif

// What verification gets. Without the peer it is made up of random numbers: the refusal comes after
// the same steps.
struct Sample {
    Bytes digest, signature, point, n, e;
    Work peer;
    bool valid = false;
};

#ifdef TV_HAVE_LIBCRYPTO
Sample ecSample(EcCurveId, const char* name, size_t digestSize) {
    static std::vector<std::unique_ptr<Signature>> kept;  // the peer's work refers to them
    const Signature& s = *kept.emplace_back(new Signature("EC", name, 0, digestSize));
    return {s.digest, s.bytes, s.point(), {}, {}, s.peer(), true};
}

Sample rsaSample(size_t bits) {
    static std::vector<std::unique_ptr<Signature>> kept;
    const Signature& s = *kept.emplace_back(new Signature("RSA", nullptr, bits, 32));
    return {s.digest, s.bytes, {}, s.number(OSSL_PKEY_PARAM_RSA_N), s.number(OSSL_PKEY_PARAM_RSA_E),
            s.peer(), true};
}
#else
Sample ecSample(EcCurveId id, const char*, size_t digestSize) {
    EcdhKey key(id);
    key.generate(anyBytes);
    Sample sample;
    sample.digest.resize(digestSize);
    sample.point.assign(key.publicPoint().begin(), key.publicPoint().end());
    sample.signature = {0x30, 0x44, 0x02, 0x20};
    sample.signature.insert(sample.signature.end(), 32, 0x11);
    sample.signature.insert(sample.signature.end(), {0x02, 0x20});
    sample.signature.insert(sample.signature.end(), 32, 0x12);
    return sample;
}

Sample rsaSample(size_t bits) {
    Sample sample;
    sample.digest.resize(32);
    sample.n.resize(bits / 8);
    anyBytes(sample.n);
    sample.n.front() |= 0x80;
    sample.n.back() |= 1;
    sample.e = {1, 0, 1};
    sample.signature = sample.n;
    sample.signature.front() = 0x12;
    return sample;
}
#endif

void x25519Rows() {
    X25519Key a, b;
    a.generate(anyBytes);
    b.generate(anyBytes);
    const Work peer = peerDerive("X25519", nullptr);
    for (const X25519Form* form : x25519Forms.forms()) {
        if (!form->usable()) continue;
        x25519Forms.force(form);
        row(
            "x25519 derive", form->name,
            [&] {
                std::array<uint8_t, 32> out;
                check(a.derive(out, b.publicValue()), "x25519");
            },
            peer);
    }
    x25519Forms.force(nullptr);
    row(
        "x25519 new key", x25519Forms.get().name, [&] { a.generate(anyBytes); },
        peerMakeKey("X25519", nullptr));
}

void forEachForm(const std::function<void(const char*)>& rows) {
    for (const EcForm* form : ecForms.forms()) {
        if (!form->usable()) continue;
        ecForms.force(form);
        rows(form->name);
    }
    ecForms.force(nullptr);
}

void ecdhRows(EcCurveId id, const char* name) {
    EcdhKey a(id), b(id);
    a.generate(anyBytes);
    b.generate(anyBytes);
    const Work peerSecret = peerDerive("EC", name), peerKey = peerMakeKey("EC", name);
    forEachForm([&](const char* form) {
        row(
            std::string("ECDH ") + name, form,
            [&] {
                tv::SecureBuffer out;
                check(a.derive(out, b.publicPoint()), "ecdh");
            },
            peerSecret);
        row(
            std::string("new key ") + name, form, [&] { a.generate(anyBytes); }, peerKey);
    });
}

void ecdsaRows(EcCurveId id, const char* name, size_t digestSize) {
    const Sample s = ecSample(id, name, digestSize);
    forEachForm([&](const char* form) {
        row(
            std::string("ECDSA verify ") + name, form,
            [&] { check(ecdsaVerify(id, s.point, s.digest, s.signature) == s.valid, "ecdsa"); },
            s.peer);
    });
}

void rsaRows(size_t bits) {
    const Sample s = rsaSample(bits);
    row(
        "RSA-" + std::to_string(bits) + " verify, new key", "portable",
        [&] {
            RsaPublicKey key;
            check(key.set(s.n, s.e), "rsa key");
            check(key.verifyPkcs1(HashId::kSha256, s.digest, s.signature) == s.valid, "rsa");
        },
        s.peer);
}

void dheRows() {
    // A number of 2048 bits in place of a prime: nobody will notice.
    Bytes p(256, 0xff), g{2}, ys(256);
    anyBytes(ys);
    ys[0] = 0x7f;
    Dhe dhe;
    check(dhe.setServerParams(p, g, ys) == Dhe::Check::Ok, "dhe");
    row("DHE 2048, new key and secret", "portable",
        [&] {
            tv::SecureBuffer secret;
            check(dhe.generate(anyBytes) && dhe.derive(secret), "dhe");
        },
        {});
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1) wanted = argv[1];
    tv::bench::printHead("/s");
    x25519Rows();
    ecdhRows(EcCurveId::kSecp256r1, "P-256");
    ecdhRows(EcCurveId::kSecp384r1, "P-384");
    ecdhRows(EcCurveId::kSecp521r1, "P-521");
    ecdsaRows(EcCurveId::kSecp256r1, "P-256", 32);
    ecdsaRows(EcCurveId::kSecp384r1, "P-384", 48);
    ecdsaRows(EcCurveId::kSecp521r1, "P-521", 64);
    rsaRows(2048);
    rsaRows(4096);
    dheRows();
    return 0;
}
