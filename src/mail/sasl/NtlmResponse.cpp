// Hashes and responses of MS-NLMP, function by function under its own names.
#include "mail/sasl/NtlmResponse.h"

#include <algorithm>
#include <array>

#include "base/Ascii.h"
#include "base/ByteWriter.h"
#include "base/crypto/Des.h"
#include "base/crypto/Hmac.h"
#include "base/crypto/Md4.h"
#include "base/crypto/Md5.h"
#include "mail/sasl/NtlmMessage.h"
#include "mail/sasl/NtlmText.h"

namespace tv::ntlm {
namespace {

using View = std::span<const uint8_t>;

constexpr size_t kHashSize = 16;   // of MD4 and MD5
constexpr size_t kDesKeySize = 7;  // 56 bits, before the parity bits are spread in
constexpr size_t kDesBlock = crypto::Des::kBlockSize;

// 56 bits spread over eight bytes, the parity bits zero.
SecureBuffer expandedDesKey(View key) {
    uint64_t bits = 0;
    for (const uint8_t byte : key) {
        bits = (bits << 8) | byte;
    }
    SecureBuffer out(kDesBlock);
    for (size_t i = 0; i < kDesBlock; ++i) {
        out[i] = static_cast<uint8_t>(((bits >> (49 - 7 * i)) & 0x7F) << 1);
    }
    return out;
}

// Encrypts data under each 7-byte part of the keys.
SecureBuffer encryptUnderEach(View keys, View data) {
    SecureBuffer out(keys.size() / kDesKeySize * kDesBlock);
    for (size_t i = 0; i < keys.size() / kDesKeySize; ++i) {
        const SecureBuffer key = expandedDesKey(keys.subspan(i * kDesKeySize, kDesKeySize));
        crypto::Des(key.bytes()).encryptBlocks(data.data(), out.data() + i * kDesBlock, 1);
    }
    return out;
}

SecureBuffer joined(View first, View second) {
    SecureBuffer out;
    out.reserve(first.size() + second.size());
    out.append(first);
    out.append(second);
    return out;
}

SecureBuffer hmacMd5(View key, View message) {
    return SecureBuffer(crypto::Hmac::of(crypto::HashId::kMd5, key, message).bytes());
}

SecureBuffer blobOf(View clientChallenge, uint64_t time, View targetInfo) {
    SecureByteWriter writer;
    writer.u8(1);
    writer.u8(1);
    writer.zeros(6);
    writer.u64le(time);
    writer.append(clientChallenge);
    writer.zeros(4);
    writer.append(targetInfo);
    writer.zeros(4);
    return writer.take();
}

}  // namespace

SecureBuffer ntHash(std::string_view password) {
    crypto::Md4::Digest digest = crypto::Md4::of(utf16Le(password).bytes());
    SecureBuffer out{View(digest)};
    plat::wipe(digest.data(), digest.size());
    return out;
}

SecureBuffer lmHash(std::string_view password, uint32_t oemCodePage) {
    constexpr std::string_view kText = "KGS!@#$%";
    SecureBuffer keys = upperOemText(oemCodePage, password);
    keys.resize(2 * kDesKeySize);
    return encryptUnderEach(keys.bytes(), {bytesOf(kText), kText.size()});
}

SecureBuffer ntowfV2(std::string_view user, std::string_view password, std::string_view domain) {
    const SecureBuffer name = joined(upperUtf16Le(user).bytes(), utf16Le(domain).bytes());
    return hmacMd5(ntHash(password).bytes(), name.bytes());
}

SecureBuffer desl(View key, View data) {
    SecureBuffer keys(key);
    keys.resize(3 * kDesKeySize);
    return encryptUnderEach(keys.bytes(), data);
}

Responses computeNtlmV1Response(const Secret& secret, uint32_t serverFlags, View serverChallenge,
                                View clientChallenge) {
    const SecureBuffer key = ntHash(secret.password);
    Responses out;
    if (serverFlags & kExtendedSessionSecurity) {
        const SecureBuffer both = joined(serverChallenge, clientChallenge);
        const crypto::Md5::Digest session = crypto::Md5::of(both.bytes());
        out.nt = desl(key.bytes(), View(session).first(kDesBlock));
        out.lm.append(clientChallenge);
        out.lm.resize(clientChallenge.size() + kHashSize);
        return out;
    }
    out.nt = desl(key.bytes(), serverChallenge);
    out.lm = serverFlags & kNtOnly
                 ? out.nt
                 : desl(lmHash(secret.password, secret.oemCodePage).bytes(), serverChallenge);
    return out;
}

Responses computeNtlmV2Response(const Secret& secret, View serverChallenge, View clientChallenge,
                                uint64_t time, View targetInfo) {
    const SecureBuffer key = ntowfV2(secret.user, secret.password, secret.domain);
    const SecureBuffer blob = blobOf(clientChallenge, time, targetInfo);
    Responses out;
    out.nt = hmacMd5(key.bytes(), joined(serverChallenge, blob.bytes()).bytes());
    out.sessionBaseKey = hmacMd5(key.bytes(), out.nt.bytes());
    out.nt.append(blob.bytes());
    out.lm = hmacMd5(key.bytes(), joined(serverChallenge, clientChallenge).bytes());
    out.lm.append(clientChallenge);
    return out;
}

SecureBuffer mic(View sessionKey, View negotiate, View challenge, View authenticate) {
    crypto::Hmac hmac(crypto::HashId::kMd5, sessionKey);
    hmac.update(negotiate);
    hmac.update(challenge);
    hmac.update(authenticate);
    return SecureBuffer(hmac.finish().bytes());
}

}  // namespace tv::ntlm
