// The one key of the server that the self-test is for itself, and signatures with it. What is here
// takes time by the key: that is no secret.
#include "tests/unit/net/tls/ServerKeys.h"

#include "base/ByteWriter.h"
#include "base/Hex.h"
#include "base/Random.h"
#include "base/crypto/Sha2.h"
#include "base/crypto/Weierstrass.h"
#include "net/x509/Pem.h"
#include "selftest/ServerKeys.h"

namespace selftest {

const char* const kServerCertificate =
    "-----BEGIN CERTIFICATE-----\n"
    "MIIBQzCB66ADAgECAgEBMAoGCCqGSM49BAMCMBgxFjAUBgNVBAMMDXNlbGZ0ZXN0\n"
    "LnRlc3QwIBcNMDAwMTAxMDAwMDAwWhgPMjEwMDAxMDEwMDAwMDBaMBgxFjAUBgNV\n"
    "BAMMDXNlbGZ0ZXN0LnRlc3QwWTATBgcqhkjOPQIBBggqhkjOPQMBBwNCAAS1hAMd\n"
    "igHFQXWGe5lHYBF20XHMyPQoaEImdAONuo6Km5NTG1tBuvPix9SjLi6Hkgybzw4S\n"
    "II0OzWuoe4hwn5CpoyQwIjAPBgNVHRMBAf8EBTADAQH/MA8GA1UdEQQIMAaHBH8A\n"
    "AAEwCgYIKoZIzj0EAwIDRwAwRAIgRFx+zBk1+ptI0mmF0DjPJgrwsxaEWDVfDtQw\n"
    "Sk19lfkCIEGGSgYGJZY6jA3g2l9qV4YdlO/S6ycOVA9E9j2bIqVp\n"
    "-----END CERTIFICATE-----\n";

}  // namespace selftest

namespace tv::tls::test {
namespace {

using crypto::EcNumber;

constexpr size_t kNumberBytes = 32;
constexpr char kPrivateKey[] = "86d5528f090a33af8cb1613692dead935ebd356e6c0115ec776a65f9aeef10bd";

// INTEGER of DER: no zero in front but before a first bit that is set.
void putInteger(ByteWriter& out, View bigEndian) {
    while (bigEndian.size() > 1 && bigEndian[0] == 0)
        bigEndian = bigEndian.subspan(1);
    out.u8(2);
    out.vector(1, [&] {
        if (bigEndian[0] >= 0x80) out.u8(0);
        out.append(bigEndian);
    });
}

}  // namespace

Bytes serverCertificate(const std::string&) {
    return x509::pemCertificates(selftest::kServerCertificate, 1).at(0);
}

// ECDSA with P-256 and SHA-256 (FIPS 186-5, 6.4.1), whatever the names.
Bytes signatureOf(const std::string&, uint16_t, View data) {
    const crypto::Weierstrass curve(crypto::kSecp256r1);
    const crypto::MontField& order = curve.order();
    const auto element = [&](View bytes) {
        return order.enter(order.reduceOnce(curve.number(bytes.data())));
    };
    uint8_t once[kNumberBytes] = {}, point[2 * kNumberBytes], r[kNumberBytes], s[kNumberBytes];
    if (!randomBytes(once)) return {};
    curve.put(once, order.reduceOnce(curve.number(once)));
    curve.multiply(point, once, curve.base());
    curve.put(r, order.reduceOnce(curve.number(point)));
    const EcNumber sum = order.add(element(crypto::Sha256::of(data)),
                                   order.mul(element(r), element(*hexDecode(kPrivateKey))));
    curve.put(s, order.leave(order.mul(order.invert(element(once)), sum)));
    ByteWriter out;
    out.u8(0x30);
    out.vector(1, [&] { putInteger(out, r), putInteger(out, s); });
    return out.take();
}

}  // namespace tv::tls::test
