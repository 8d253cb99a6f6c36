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
Bytes digestOf(const char* hash, View data);
Bytes hmacOf(const char* hash, View key, View data);
// RFC 5246, 5; hash is "MD5-SHA1" before TLS 1.2.
Bytes prf(const char* hash, View secret, const std::string& label, View seed, size_t size);
// RFC 8446, 7.1, for results no longer than the hash.
Bytes expandLabel(const char* hash, View secret, const std::string& label, View context,
                  size_t size);

// AES-GCM; opening answers false for a wrong tag.
Bytes gcmSeal(View key, View nonce, View additional, View text);
bool gcmOpen(View key, View nonce, View additional, View sealed, Bytes& text);
// AES-CBC without padding.
Bytes cbc(bool encrypt, View key, View iv, View data);

using Pkey = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

// An ephemeral key of a TLS group number.
Pkey groupKey(uint16_t group);
Bytes publicOf(EVP_PKEY* key);
Bytes sharedWith(EVP_PKEY* key, View peer);
// A signature of a TLS scheme; 0: the way of TLS 1.0 and 1.1.
Bytes signatureOf(EVP_PKEY* key, uint16_t scheme, View data);
Bytes rsaDecrypt(EVP_PKEY* key, View sealed);
Bytes powerModulo(View base, View exponent, View modulus);
// One of the published primes of RFC 2409 and RFC 3526: 768, 1024, 2048.
Bytes dhPrime(int bits);

// A long-lived key: "RSA-2048" or the name of a curve; made once for the program.
EVP_PKEY* keyOf(const std::string& kind);
// A self-signed certificate for the key, in DER; made once.
Bytes certificateOf(EVP_PKEY* key);
// One whose key usage names digitalSignature alone.
Bytes signingCertificateOf(EVP_PKEY* key);
// A certificate whose RSA key has exactly this modulus and exponent.
Bytes rsaCertificate(View modulus, View exponent);

}  // namespace tv::tls::test
