// Shows that what handles secrets runs the same way for all of them, form by form.
//     consttime memcheck                under valgrind: no branch and no address is made of secrets
//     consttime steps FORM... < PLACES  50 pairs of secrets give the same instructions (Stepper.h)
// Both print lines "FORM result", a FORM being "primitive:form" and the result "same" or what was
// found. Without arguments: "FORM usable" or "FORM absent".
#include <valgrind/memcheck.h>

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
// Works on the secret and leaves in out what may be looked at afterwards.
using Work = void (*)(Secret secret, Out out);

constexpr size_t kText = 1000;          // some batches of the widest form, a rest, a broken block
constexpr size_t kSecret = 32 + kText;  // a key and a text
const Bytes kPublic = test::randomBytesOf(kText);

struct Case {
    std::string name;
    bool usable;
    std::function<void(Secret secret, Out out)> work;
};
std::vector<Case> cases;

void add(const char* primitive, Work work) {
    cases.push_back({std::string(primitive) + ":portable", true, work});
}

template <class Form>
void addForms(const char* primitive, Dispatch<Form>& dispatch, Work work) {
    for (const Form* form : dispatch.forms()) {
        const auto forced = [&dispatch, form, work](Secret secret, Out out) {
            dispatch.force(form);
            work(secret, out);
            dispatch.force(nullptr);
        };
        cases.push_back({std::string(primitive) + ":" + form->name, form->usable(), forced});
    }
}

template <const EcParams& params, const EcOps* EcForm::*member = nullptr>
void multiply(Secret secret, Out out) {
    static const Weierstrass curve(params);
    const EcOps* ops = &kEcPortableOps;
    if constexpr (member != nullptr) ops = ecForms.get().*member;
    SecureBuffer scalar(secret.first(curve.bytes()));  // the first byte: below every order
    scalar[0] = static_cast<uint8_t>(curve.bytes() == 66 ? 0 : scalar[0] & 0x7f);
    if (RUNNING_ON_VALGRIND != 0) ops->multiplyBase(curve, out.data(), scalar.data());
    ops->multiply(curve, out.data(), scalar.data(), curve.base());
}

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

// HKDF, and the check of a record that ends in good padding of a secret length.
template <HashId id>
void macs(Secret secret, Out out) {
    const DigestBytes key = hkdfExtract(id, secret.first(20), secret.subspan(20, 180));
    (void)hkdfExpand(id, key, {}, out.first(100));
    Bytes body(secret.begin() + 32, secret.begin() + 192);
    const uint32_t padding = secret[0] & 63;
    for (uint32_t i = 0; i < 64; ++i) {
        uint8_t& byte = body[body.size() - 1 - i];
        byte = static_cast<uint8_t>(ctSelect(ctIsLess(padding, i), uint32_t{byte}, padding));
    }
    tls::RecordMac mac(id, secret.first(20));
    size_t size = 0;
    out[0] =
        mac.checkPadded(7, {tls::ContentType::ApplicationData, tls::Version::Tls12}, body, size);
    VALGRIND_MAKE_MEM_UNDEFINED(body.data(), body.size());
}

void addAll() {
    addForms("x25519", x25519Forms, [](Secret secret, Out out) {
        x25519Forms.get().multiply(out.data(), secret.data(), kPublic.data());
    });
    addForms("ECDH P-256", ecForms, multiply<kSecp256r1, &EcForm::secp256r1>);
    addForms("ECDH P-384", ecForms, multiply<kSecp384r1, &EcForm::secp384r1>);
    add("ECDH P-521", multiply<kSecp521r1>);
    add("ECDH brainpoolP256r1", multiply<kBrainpoolP256r1>);
    addForms("AES", aesForms, [](Secret secret, Out out) {
        cbc<AesCbc, 16>(secret, out);
        cbc<AesCbc, 32>(secret, out);
    });
    // The way back without the last comparison, whose answer is public.
    addForms("GHASH, AES-GCM", gcmForms, [](Secret secret, Out out) {
        seal<AesGcm>(secret, out);
        GcmKey key;
        GcmState state{};
        gcmForms.get().expand(key, secret.first(16));
        gcmForms.get().decrypt(key, state, secret.data() + 32, out.data(), 60);
        std::copy(state.sum.begin(), state.sum.end(), out.begin() + 960);
    });
    addForms("Poly1305, ChaCha20", chaChaForms, seal<ChaCha20Poly1305>);
    add("DES", [](Secret secret, Out out) {
        cbc<DesCbc, 8>(secret, out);
        cbc<TripleDesCbc, 24>(secret, out);
    });
    addForms("CBC MAC check, HKDF SHA-1", sha1Forms, macs<HashId::kSha1>);
    addForms("CBC MAC check, HKDF SHA-256", sha256Forms, macs<HashId::kSha256>);
    add("CBC MAC check, HKDF SHA-384", macs<HashId::kSha384>);
    add("CBC MAC check, HKDF MD5", macs<HashId::kMd5>);
    add("MD4", [](Secret secret, Out out) { std::ranges::copy(Md4::of(secret), out.begin()); });
    add("RSA premaster", [](Secret secret, Out out) {
        Bytes modulus(kPublic.begin(), kPublic.begin() + 256);
        modulus.front() |= 0x80;
        modulus.back() |= 1;
        RsaPublicKey key;
        key.set(modulus, Bytes{1, 0, 1});
        const auto random = [](Out bytes) {
            std::ranges::fill(bytes, uint8_t{0x5a});
            return true;
        };
        (void)key.encryptPkcs1(secret.first(48), random, out.first(256));
    });
    add("DHE", [](Secret secret, Out out) {
        Montgomery group;
        BigNum number, base;
        number.fromBytes(Bytes(96, 0xff));
        base.fromBytes(std::span(kPublic).first(90));
        group.setModulus(number);
        group.powSecretExponent(out.first(96), base, secret.first(32));
    });
    add("base64", [](Secret secret, Out out) {
        std::copy_n(base64EncodeSecret(secret.first(64)).data(), 80, out.data());
    });
    add("comparison and choice", [](Secret secret, Out out) {
        const auto a = secret.first(32), b = secret.subspan(32, 32);
        out[0] = static_cast<uint8_t>(ctEqualMask(a, b) | ctEqualMask(a, a));
        out[1] = static_cast<uint8_t>(ctSelect(ctIsLess<uint32_t>(a[0], b[0]), 1U, 2U));
        SecureBuffer grown(a);
        grown.resize(1000);
        grown.assign(b);
        std::copy_n(grown.data(), 32, out.data() + 32);
    });
    // What has to be found: each method proves itself on it.
    add("LEAK", [](Secret secret, Out out) {
        for (const uint8_t byte : secret.first(32)) {
            if ((byte & 1) != 0) __asm__ volatile("incb %0" : "+m"(out[0]));
        }
    });
}

std::string memcheck(const Case& c) {
    Bytes secret = test::randomBytesOf(kSecret), out(2 * kText);
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
    const auto run = [&](size_t seed, size_t share, size_t shares) {
        secret = test::randomBytesOf(kSecret, static_cast<uint32_t>(seed));
        return stepper::run([&] { c.work(secret, out); }, share, shares);
    };
    run(1, 0, SIZE_MAX);  // what is made on first use
    const size_t length = run(1, 0, 1).first;
    const size_t shares = length > kLong ? 8 : 1;
    for (size_t share = 0; share < shares; ++share) {
        const stepper::Journal known = run(1, share, shares);
        for (size_t pair = share; pair < kPairs; pair += shares) {
            if (run(2 + pair, share, shares) != known)
                return "another way with secret " + std::to_string(2 + pair);
        }
    }
    return length == 0 ? "nothing seen" : "same, " + std::to_string(length) + " stops";
}

}  // namespace
}  // namespace tv

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const std::string mode = arguments.empty() ? "list" : arguments[0];
    if (mode == "steps" && !tv::stepper::loadPlaces()) return 1;
    if (mode == "memcheck" && RUNNING_ON_VALGRIND == 0) return 1;
    tv::addAll();
    for (const tv::Case& c : tv::cases) {
        std::string result = c.usable ? "usable" : "absent";
        if (mode == "memcheck") result = c.usable ? tv::memcheck(c) : "";
        if (mode == "steps") result = std::ranges::count(arguments, c.name) ? tv::steps(c) : "";
        if (!result.empty()) std::cout << c.name << '\t' << result << std::endl;
    }
}
