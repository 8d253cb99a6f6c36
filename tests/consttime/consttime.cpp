// Shows that what handles secrets runs the same way for all of them, form by form.
//     consttime memcheck           under valgrind: no branch and no address is made from secret
//     bytes consttime steps FORM... < PLACES   50 pairs of secrets give the same instructions
//     (Stepper.h);
//                                  a FORM is "primitive:form"
// Both print lines "primitive:form result", result being "same" or what was found.
//     consttime list               what there is: "primitive:form usable" or "primitive:form
//     absent"
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/Base64.h"
#include "base/ConstTime.h"
#include "base/SecureBuffer.h"
#include "base/crypto/AesCbc.h"
#include "base/crypto/AesGcm.h"
#include "base/crypto/ChaCha20Poly1305.h"
#include "base/crypto/Des.h"
#include "base/crypto/Dhe.h"
#include "base/crypto/EcCurve.h"
#include "base/crypto/Hkdf.h"
#include "base/crypto/Md4.h"
#include "base/crypto/Rsa.h"
#include "base/crypto/Sha1.h"
#include "base/crypto/Sha2.h"
#include "base/crypto/X25519.h"
#include "net/tls/RecordMac.h"
#include "tests/consttime/Stepper.h"
#include "tests/fixtures/SecretMemory.h"
#include "tests/fixtures/TestBytes.h"

namespace tv {
namespace {

using namespace crypto;
using Bytes = std::vector<uint8_t>;

// Works on the secret and leaves in out what may be looked at afterwards.
using Work = std::function<void(std::span<const uint8_t> secret, std::span<uint8_t> out)>;

struct Case {
    std::string primitive, form;
    size_t secretSize;
    Work work;
    std::function<void()> force, unforce;  // the form
    bool usable;
};

std::vector<Case> cases;

constexpr size_t kText = 1000;  // some batches of the widest form, a rest, a broken block
const Bytes kPublic = test::randomBytesOf(kText);

void add(const char* primitive, const char* form, size_t secretSize, Work work) {
    cases.push_back({primitive, form, secretSize, std::move(work), [] {}, [] {}, true});
}

// makeWork(form) for each form of the primitive, which is forced meanwhile.
template <class Form>
void addForms(const char* primitive, Dispatch<Form>& dispatch, size_t secretSize,
              const std::function<Work(const Form& form)>& makeWork) {
    for (const Form* form : dispatch.forms()) {
        cases.push_back({primitive, form->name, secretSize, makeWork(*form),
                         [&dispatch, form] { dispatch.force(form); },
                         [&dispatch] { dispatch.force(nullptr); }, form->usable()});
    }
}

void addCurves() {
    addForms<X25519Form>("x25519", x25519Forms, 32, [](const X25519Form& form) {
        return [&form](auto secret, auto out) {
            form.multiply(out.data(), secret.data(), kPublic.data());
        };
    });
    const auto multiply = [](const EcOps& ops, const Weierstrass& curve) {
        return [&ops, &curve](std::span<const uint8_t> secret, std::span<uint8_t> out) {
            SecureBuffer scalar(secret);  // the first byte: below every order
            scalar[0] = static_cast<uint8_t>(curve.bytes() == 66 ? 0 : scalar[0] & 0x7f);
            if (RUNNING_ON_VALGRIND != 0) ops.multiplyBase(curve, out.data(), scalar.data());
            ops.multiply(curve, out.data(), scalar.data(), curve.base());
        };
    };
    static const Weierstrass p256(kSecp256r1), p384(kSecp384r1), p521(kSecp521r1);
    static const Weierstrass brainpool(kBrainpoolP256r1);
    addForms<EcForm>("ECDH P-256", ecForms, 32,
                     [&](const EcForm& form) { return multiply(*form.secp256r1, p256); });
    addForms<EcForm>("ECDH P-384", ecForms, 48,
                     [&](const EcForm& form) { return multiply(*form.secp384r1, p384); });
    add("ECDH P-521", "portable", 66, multiply(kEcPortableOps, p521));
    add("ECDH brainpoolP256r1", "portable", 32, multiply(kEcPortableOps, brainpool));
}

// Key and text are secret.
template <class Aead>
void seal(std::span<const uint8_t> secret, std::span<uint8_t> out) {
    const Aead aead(secret.first(32));
    aead.seal(std::span(kPublic).first(12), std::span(kPublic).first(13), secret.subspan(32, kText),
              out.data(), out.subspan(kText).template first<16>());
}

template <class Cipher, size_t keySize>
void cbc(std::span<const uint8_t> secret, std::span<uint8_t> out) {
    Cipher cipher(secret.first(keySize));
    std::copy_n(secret.data() + keySize, 960, out.data());
    cipher.encrypt(out.first(960));
    cipher.decrypt(out.first(480));
}

void addCiphers() {
    addForms<AesForm>("AES", aesForms, 32 + kText, [](const AesForm&) -> Work {
        return [](auto secret, auto out) {
            cbc<AesCbc, 16>(secret, out);
            cbc<AesCbc, 32>(secret, out);
        };
    });
    // The way back without the last comparison, whose answer is public.
    addForms<GcmForm>("GHASH, AES-GCM", gcmForms, 32 + kText, [](const GcmForm& form) -> Work {
        return [&form](auto secret, auto out) {
            seal<AesGcm>(secret, out);
            GcmKey key;
            GcmState state{};
            form.expand(key, secret.first(16));
            form.decrypt(key, state, secret.data() + 32, out.data(), 60);
            std::copy(state.sum.begin(), state.sum.end(), out.begin() + 960);
        };
    });
    addForms<ChaChaForm>("Poly1305, ChaCha20", chaChaForms, 32 + kText,
                         [](const ChaChaForm&) -> Work { return seal<ChaCha20Poly1305>; });
    add("DES", "portable", 24 + kText, [](auto secret, auto out) {
        cbc<DesCbc, 8>(secret, out);
        cbc<TripleDesCbc, 24>(secret, out);
    });
}

Work hkdf(HashId id) {
    return [id](auto secret, auto out) {
        const DigestBytes key = hkdfExtract(id, secret.first(20), secret.subspan(20));
        (void)hkdfExpand(id, key, {}, out.first(100));
    };
}

// The record ends in good padding of a secret length.
Work cbcMac(HashId id) {
    return [id](auto secret, auto out) {
        constexpr size_t kBody = 160;
        Bytes body(secret.begin() + 32, secret.begin() + 32 + kBody);
        const uint32_t padding = secret[0] & 63;
        for (uint32_t i = 0; i < 64; ++i) {
            uint8_t& byte = body[kBody - 1 - i];
            byte = static_cast<uint8_t>(
                ctSelect<uint32_t>(ctIsLess<uint32_t>(padding, i), byte, padding));
        }
        tls::RecordMac mac(id, secret.first(20));
        size_t size = 0;
        out[0] = mac.checkPadded(7, {tls::ContentType::ApplicationData, tls::Version::Tls12}, body,
                                 size);
        test::makeSecret(body);
    };
}

void addHashes() {
    const auto both = [](HashId id) -> Work {
        return [mac = hkdf(id), check = cbcMac(id)](auto secret, auto out) {
            mac(secret, out);
            check(secret, out);
        };
    };
    addForms<Sha1Form>("CBC MAC check, HKDF SHA-1", sha1Forms, 200,
                       [&](const Sha1Form&) { return both(HashId::kSha1); });
    addForms<Sha256Form>("CBC MAC check, HKDF SHA-256", sha256Forms, 200,
                         [&](const Sha256Form&) { return both(HashId::kSha256); });
    add("CBC MAC check, HKDF SHA-384", "portable", 200, both(HashId::kSha384));
    add("CBC MAC check, HKDF MD5", "portable", 200, both(HashId::kMd5));
    add("MD4", "portable", kText, [](auto secret, auto out) {
        const auto digest = Md4::of(secret);
        std::copy(digest.begin(), digest.end(), out.begin());
    });
}

void addPublicKeys() {
    add("RSA premaster", "portable", 48, [](auto secret, auto out) {
        Bytes modulus(kPublic.begin(), kPublic.begin() + 256);
        modulus.front() |= 0x80;
        modulus.back() |= 1;
        RsaPublicKey key;
        key.set(modulus, Bytes{1, 0, 1});
        (void)key.encryptPkcs1(
            secret,
            [](std::span<uint8_t> random) {
                std::fill(random.begin(), random.end(), uint8_t{0x5a});
                return true;
            },
            out.first(256));
    });
    add("DHE", "portable", 32, [](auto secret, auto out) {
        Bytes modulus(96, 0xff);
        Montgomery group;
        BigNum number, base;
        number.fromBytes(modulus);
        base.fromBytes(std::span(kPublic).first(90));
        group.setModulus(number);
        group.powSecretExponent(out.first(96), base, secret);
    });
}

void addBasics() {
    add("base64", "portable", 64, [](auto secret, auto out) {
        const SecureBuffer text = base64EncodeSecret(secret);
        std::copy_n(text.data(), 80, out.data());
    });
    add("comparison and choice", "portable", 64, [](auto secret, auto out) {
        const auto a = secret.first(32), b = secret.subspan(32);
        out[0] = static_cast<uint8_t>(ctEqualMask(a, b) | ctEqualMask(a, a));
        for (size_t i = 0; i < 32; ++i) {
            const uint32_t chosen =
                ctSelect<uint32_t>(ctIsLess<uint32_t>(a[0], b[0]), a[i], out[i]);
            out[i] = static_cast<uint8_t>(chosen);
        }
        SecureBuffer grown(a);
        grown.resize(1000);
        grown.assign(b);
        std::copy_n(grown.data(), 32, out.data() + 32);
    });
    // What has to be found: each method proves itself on it.
    add("LEAK", "branch", 32, [](auto secret, auto out) {
        for (const uint8_t byte : secret) {
            if ((byte & 1) != 0) __asm__ volatile("incb %0" : "+m"(out[0]));
        }
    });
}

Bytes secretOf(const Case& c, uint32_t seed) {
    return test::randomBytesOf(c.secretSize, seed);
}

std::string memcheck(const Case& c) {
    Bytes secret = secretOf(c, 1), out(2 * kText);
    const auto before = VALGRIND_COUNT_ERRORS;
    test::makeSecret(secret);
    c.work(secret, out);
    test::makePublic(out);
    test::makePublic(secret);
    const auto errors = VALGRIND_COUNT_ERRORS - before;
    return errors == 0 ? "same" : std::to_string(errors) + " uses of secrets";
}

// Long runs watch each jump in every eighth pair only.
std::string steps(const Case& c) {
    constexpr size_t kPairs = 50, kLong = 100000;
    Bytes secret, out(2 * kText);
    const auto work = [&] { c.work(secret, out); };
    const auto withSecret = [&](size_t seed) -> const auto& {
        secret = secretOf(c, static_cast<uint32_t>(seed));
        return work;
    };
    withSecret(1)();  // what is made on first use
    const size_t entries = stepper::write(withSecret(1));
    if (entries == 0) return "nothing seen";
    const size_t shares = entries > kLong ? 8 : 1;
    for (size_t share = 0; share < shares; ++share) {
        stepper::write(withSecret(1), {share, shares});
        for (size_t pair = share; pair < kPairs; pair += shares) {
            if (stepper::compare(withSecret(2 + pair), {share, shares}) == 0)
                return "another way with secret " + std::to_string(2 + pair);
        }
    }
    return "same, " + std::to_string(entries) + " steps, " + std::to_string(kPairs) + " pairs";
}

template <class Measure>
void measure(const Case& c, const Measure& how) {
    c.force();
    const std::string result = how(c);
    c.unforce();
    std::printf("%s:%s\t%s\n", c.primitive.c_str(), c.form.c_str(), result.c_str());
    std::fflush(stdout);
}

int main(int argc, char** argv) {
    addCurves();
    addCiphers();
    addHashes();
    addPublicKeys();
    addBasics();
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "steps" && !stepper::loadPlaces()) return 1;
    if (mode == "memcheck" && RUNNING_ON_VALGRIND == 0) return 1;
    for (const Case& c : cases) {
        if (mode == "list") {
            std::printf("%s:%s\t%s\n", c.primitive.c_str(), c.form.c_str(),
                        c.usable ? "usable" : "absent");
        } else if (mode == "memcheck" && c.usable) {
            measure(c, memcheck);
        } else if (mode == "steps") {
            for (int i = 2; i < argc; ++i) {
                if (c.primitive + ":" + c.form == argv[i]) measure(c, steps);
            }
        }
    }
    return 0;
}

}  // namespace
}  // namespace tv

int main(int argc, char** argv) {
    return tv::main(argc, argv);
}
