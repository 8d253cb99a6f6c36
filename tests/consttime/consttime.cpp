// Shows that what handles secrets runs the same way for all of them, form by form.
//     consttime memcheck    under valgrind: no branch and no address is made from secret bytes
//     consttime steps FORM... < PLACES    50 pairs of secrets give the same instructions
//     (Stepper.h);
//                           a FORM is "primitive:form"
// Both print lines "primitive:form result", result being "same" or what was found.
//     consttime list        what there is: "primitive:form usable" or "primitive:form absent"
#include <valgrind/memcheck.h>

#include <cstdio>
#include <string>

#include "base/Base64.h"
#include "base/ConstTime.h"
#include "base/crypto/AesCbc.h"
#include "base/crypto/AesGcm.h"
#include "base/crypto/ChaCha20Poly1305.h"
#include "base/crypto/Des.h"
#include "base/crypto/EcCurve.h"
#include "base/crypto/Hkdf.h"
#include "base/crypto/Md4.h"
#include "base/crypto/Rsa.h"
#include "base/crypto/X25519.h"
#include "net/tls/RecordMac.h"
#include "tests/consttime/Stepper.h"
#include "tests/fixtures/TestBytes.h"

namespace tv {
namespace {

using namespace crypto;
using Bytes = std::vector<uint8_t>;
using Secret = std::span<const uint8_t>;
using Out = std::span<uint8_t>;

struct Case {
    std::string primitive, form;
    size_t secretSize;
    // Works on the secret and leaves in out what may be looked at afterwards.
    std::function<void(Secret secret, Out out)> work;
    std::function<void(bool)> force;
    bool usable;
};

std::vector<Case> cases;

constexpr size_t kText = 1000;  // some batches of the widest form, a rest, a broken block
const Bytes kPublic = test::randomBytesOf(kText);

template <class Work>
void add(const char* primitive, size_t secretSize, Work work) {
    cases.push_back({primitive, "portable", secretSize, work, [](bool) {}, true});
}

// The work for each form of the primitive, which is forced meanwhile.
template <class Form, class Work>
void addForms(const char* primitive, Dispatch<Form>& dispatch, size_t secretSize, Work work) {
    for (const Form* form : dispatch.forms()) {
        const auto force = [&dispatch, form](bool on) { dispatch.force(on ? form : nullptr); };
        cases.push_back({primitive, form->name, secretSize, work, force, form->usable()});
    }
}

template <const EcParams& params>
void multiply(const EcOps& ops, Secret secret, Out out) {
    static const Weierstrass curve(params);
    SecureBuffer scalar(secret);  // the first byte: below every order
    scalar[0] = static_cast<uint8_t>(curve.bytes() == 66 ? 0 : scalar[0] & 0x7f);
    if (RUNNING_ON_VALGRIND != 0) ops.multiplyBase(curve, out.data(), scalar.data());
    ops.multiply(curve, out.data(), scalar.data(), curve.base());
}

void addCurves() {
    addForms("x25519", x25519Forms, 32, [](Secret secret, Out out) {
        x25519Forms.get().multiply(out.data(), secret.data(), kPublic.data());
    });
    addForms("ECDH P-256", ecForms, 32, [](Secret secret, Out out) {
        multiply<kSecp256r1>(*ecForms.get().secp256r1, secret, out);
    });
    addForms("ECDH P-384", ecForms, 48, [](Secret secret, Out out) {
        multiply<kSecp384r1>(*ecForms.get().secp384r1, secret, out);
    });
    add("ECDH P-521", 66,
        [](Secret secret, Out out) { multiply<kSecp521r1>(kEcPortableOps, secret, out); });
    add("ECDH brainpoolP256r1", 32,
        [](Secret secret, Out out) { multiply<kBrainpoolP256r1>(kEcPortableOps, secret, out); });
}

// Key and text are secret.
template <class Aead>
void seal(Secret secret, Out out) {
    const Aead aead(secret.first(32));
    aead.seal(std::span(kPublic).first(12), std::span(kPublic).first(13), secret.subspan(32, kText),
              out.data(), out.subspan(kText).first<16>());
}

template <class Cipher, size_t keySize>
void cbc(Secret secret, Out out) {
    Cipher cipher(secret.first(keySize));
    std::copy_n(secret.data() + keySize, 960, out.data());
    cipher.encrypt(out.first(960));
    cipher.decrypt(out.first(480));
}

void addCiphers() {
    addForms("AES", aesForms, 32 + kText, [](Secret secret, Out out) {
        cbc<AesCbc, 16>(secret, out);
        cbc<AesCbc, 32>(secret, out);
    });
    // The way back without the last comparison, whose answer is public.
    addForms("GHASH, AES-GCM", gcmForms, 32 + kText, [](Secret secret, Out out) {
        seal<AesGcm>(secret, out);
        GcmKey key;
        GcmState state{};
        gcmForms.get().expand(key, secret.first(16));
        gcmForms.get().decrypt(key, state, secret.data() + 32, out.data(), 60);
        std::copy(state.sum.begin(), state.sum.end(), out.begin() + 960);
    });
    addForms("Poly1305, ChaCha20", chaChaForms, 32 + kText, seal<ChaCha20Poly1305>);
    add("DES", 24 + kText, [](Secret secret, Out out) {
        cbc<DesCbc, 8>(secret, out);
        cbc<TripleDesCbc, 24>(secret, out);
    });
}

// HKDF, and the check of a record that ends in good padding of a secret length.
template <HashId id>
void macs(Secret secret, Out out) {
    const DigestBytes key = hkdfExtract(id, secret.first(20), secret.subspan(20));
    (void)hkdfExpand(id, key, {}, out.first(100));
    Bytes body(secret.begin() + 32, secret.begin() + 192);
    const uint32_t padding = secret[0] & 63;
    for (uint32_t i = 0; i < 64; ++i) {
        uint8_t& byte = body[body.size() - 1 - i];
        byte =
            static_cast<uint8_t>(ctSelect<uint32_t>(ctIsLess<uint32_t>(padding, i), byte, padding));
    }
    tls::RecordMac mac(id, secret.first(20));
    size_t size = 0;
    out[0] =
        mac.checkPadded(7, {tls::ContentType::ApplicationData, tls::Version::Tls12}, body, size);
    VALGRIND_MAKE_MEM_UNDEFINED(body.data(), body.size());
}

void addHashes() {
    addForms("CBC MAC check, HKDF SHA-1", sha1Forms, 200, macs<HashId::kSha1>);
    addForms("CBC MAC check, HKDF SHA-256", sha256Forms, 200, macs<HashId::kSha256>);
    add("CBC MAC check, HKDF SHA-384", 200, macs<HashId::kSha384>);
    add("CBC MAC check, HKDF MD5", 200, macs<HashId::kMd5>);
    add("MD4", kText,
        [](Secret secret, Out out) { std::ranges::copy(Md4::of(secret), out.begin()); });
}

void addPublicKeys() {
    add("RSA premaster", 48, [](Secret secret, Out out) {
        Bytes modulus(kPublic.begin(), kPublic.begin() + 256);
        modulus.front() |= 0x80;
        modulus.back() |= 1;
        RsaPublicKey key;
        key.set(modulus, Bytes{1, 0, 1});
        const auto random = [](Out bytes) {
            std::ranges::fill(bytes, uint8_t{0x5a});
            return true;
        };
        (void)key.encryptPkcs1(secret, random, out.first(256));
    });
    add("DHE", 32, [](Secret secret, Out out) {
        Montgomery group;
        BigNum number, base;
        number.fromBytes(Bytes(96, 0xff));
        base.fromBytes(std::span(kPublic).first(90));
        group.setModulus(number);
        group.powSecretExponent(out.first(96), base, secret);
    });
}

void addBasics() {
    add("base64", 64, [](Secret secret, Out out) {
        std::copy_n(base64EncodeSecret(secret).data(), 80, out.data());
    });
    add("comparison and choice", 64, [](Secret secret, Out out) {
        const auto a = secret.first(32), b = secret.subspan(32);
        out[0] = static_cast<uint8_t>(ctEqualMask(a, b) | ctEqualMask(a, a));
        for (size_t i = 0; i < 32; ++i) {
            out[i] = static_cast<uint8_t>(
                ctSelect<uint32_t>(ctIsLess<uint32_t>(a[0], b[0]), a[i], out[i]));
        }
        SecureBuffer grown(a);
        grown.resize(1000);
        grown.assign(b);
        std::copy_n(grown.data(), 32, out.data() + 32);
    });
    // What has to be found: each method proves itself on it.
    add("LEAK", 32, [](Secret secret, Out out) {
        for (const uint8_t byte : secret) {
            if ((byte & 1) != 0) __asm__ volatile("incb %0" : "+m"(out[0]));
        }
    });
}

std::string memcheck(const Case& c) {
    Bytes secret = test::randomBytesOf(c.secretSize), out(2 * kText);
    const auto before = VALGRIND_COUNT_ERRORS;
    VALGRIND_MAKE_MEM_UNDEFINED(secret.data(), secret.size());
    c.work(secret, out);
    VALGRIND_MAKE_MEM_DEFINED(out.data(), out.size());
    VALGRIND_MAKE_MEM_DEFINED(secret.data(), secret.size());
    const auto errors = VALGRIND_COUNT_ERRORS - before;
    return errors == 0 ? "same" : std::to_string(errors) + " uses of secrets";
}

// Long runs watch each jump in every eighth pair only.
std::string steps(const Case& c) {
    constexpr size_t kPairs = 50, kLong = 100000;
    Bytes secret, out(2 * kText);
    const std::function<void()> work = [&] { c.work(secret, out); };
    const auto withSecret = [&](size_t seed) -> const auto& {
        secret = test::randomBytesOf(c.secretSize, static_cast<uint32_t>(seed));
        return work;
    };
    withSecret(1)();  // what is made on first use
    const size_t entries = stepper::run(false, withSecret(1));
    if (entries == 0) return "nothing seen";
    const size_t shares = entries > kLong ? 8 : 1;
    for (size_t share = 0; share < shares; ++share) {
        stepper::run(false, withSecret(1), share, shares);
        for (size_t pair = share; pair < kPairs; pair += shares) {
            if (stepper::run(true, withSecret(2 + pair), share, shares) == 0)
                return "another way with secret " + std::to_string(2 + pair);
        }
    }
    return "same, " + std::to_string(entries) + " steps, " + std::to_string(kPairs) + " pairs";
}

int main(int argc, char** argv) {
    addCurves();
    addCiphers();
    addHashes();
    addPublicKeys();
    addBasics();
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const std::string mode = arguments.empty() ? "" : arguments[0];
    if (mode == "steps" && !stepper::loadPlaces()) return 1;
    if (mode == "memcheck" && RUNNING_ON_VALGRIND == 0) return 1;
    for (const Case& c : cases) {
        const std::string name = c.primitive + ":" + c.form;
        std::string result = c.usable ? "usable" : "absent";
        if (mode == "memcheck" && !c.usable) continue;
        if (mode == "steps" && std::ranges::count(arguments, name) == 0) continue;
        c.force(true);
        if (mode == "memcheck") result = memcheck(c);
        if (mode == "steps") result = steps(c);
        c.force(false);
        std::printf("%s\t%s\n", name.c_str(), result.c_str());
        std::fflush(stdout);
    }
    return 0;
}

}  // namespace
}  // namespace tv

int main(int argc, char** argv) {
    return tv::main(argc, argv);
}
