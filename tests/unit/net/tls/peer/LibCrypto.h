// The primitives of the scripted server, taken from libcrypto: none of them is ours.
#pragma once

#include <openssl/evp.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace tv::tls::test {

using Bytes = std::vector<uint8_t>;
using View = std::span<const uint8_t>;

Bytes joined(std::initializer_list<View> parts);
Bytes randomBytes(size_t size);
// A signature of a TLS scheme; 0: the way of TLS 1.0 and 1.1.
Bytes signatureOf(EVP_PKEY* key, uint16_t scheme, View data);
Bytes rsaDecrypt(EVP_PKEY* key, View sealed);
Bytes powerModulo(View base, View exponent, View modulus);
// One of the published primes of RFC 2409 and RFC 3526: 768, 1024, 2048.
Bytes dhPrime(int bits);

// A long-lived key: "RSA-2048" or the name of a curve, with more behind it another one.
EVP_PKEY* keyOf(const std::string& name);
// A self-signed certificate for the key, in DER; made once.
Bytes certificateOf(const std::string& key);
// One whose key usage names digitalSignature alone.
Bytes signingCertificateOf(const std::string& key);
// A certificate whose RSA key has exactly this modulus and exponent.
Bytes rsaCertificate(View modulus, View exponent);

}  // namespace tv::tls::test
