// The protections of records: AEADs of TLS 1.3 and 1.2, CBC with its MAC, and RC4.
#include "net/tls/RecordCipher.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "base/ConstTime.h"
#include "base/crypto/AesCbc.h"
#include "base/crypto/AesGcm.h"
#include "base/crypto/ChaCha20Poly1305.h"
#include "base/crypto/Des.h"
#include "base/crypto/Rc4.h"
#include "net/tls/RecordMac.h"

namespace tv::tls {
namespace {

constexpr size_t kNonceSize = 12;  // RFC 5116, 5.1; RFC 8439, 2.8
constexpr size_t kTagSize = 16;

void putHeader(uint8_t* out, const RecordHeader& header, size_t bodySize) {
    const uint16_t version = static_cast<uint16_t>(header.version);
    out[0] = static_cast<uint8_t>(header.type);
    out[1] = static_cast<uint8_t>(version >> 8);
    out[2] = static_cast<uint8_t>(version);
    out[3] = static_cast<uint8_t>(bodySize >> 8);
    out[4] = static_cast<uint8_t>(bodySize);
}

// Makes room for a record at the end of out and writes its header; the body is returned.
uint8_t* appendRecord(DataBuffer& out, const RecordHeader& header, size_t bodySize) {
    const size_t start = out.size();
    if (!out.resize(start + kRecordHeaderSize + bodySize)) return nullptr;
    putHeader(out.data() + start, header, bodySize);
    return out.data() + start + kRecordHeaderSize;
}

std::array<uint8_t, 8> bigEndian(uint64_t number) {
    std::array<uint8_t, 8> out{};
    for (size_t i = 0; i < 8; ++i) {
        out[i] = static_cast<uint8_t>(number >> (56 - 8 * i));
    }
    return out;
}

using Nonce = std::array<uint8_t, kNonceSize>;

// The IV with the sequence number xored onto its end (RFC 8446, 5.3; RFC 7905, 2).
Nonce xoredNonce(const SecureBuffer& iv, uint64_t sequence) {
    Nonce nonce{};
    std::copy_n(iv.data(), kNonceSize, nonce.begin());
    const std::array<uint8_t, 8> number = bigEndian(sequence);
    for (size_t i = 0; i < number.size(); ++i) {
        nonce[kNonceSize - number.size() + i] ^= number[i];
    }
    return nonce;
}

// TLS 1.3: the header is what is authenticated beside the text, and the type stands behind the text
// inside the protection (RFC 8446, 5.2).
template <class Aead>
class Aead13 final : public RecordCipher {
public:
    explicit Aead13(const RecordKeys& keys) : aead_(keys.key.bytes()), iv_(keys.iv) {}

    bool seal(const RecordHeader& header, std::span<const uint8_t> plaintext,
              DataBuffer& out) override {
        const RecordHeader outer{ContentType::ApplicationData, header.version};
        const size_t inner = plaintext.size() + 1;
        uint8_t* body = appendRecord(out, outer, inner + kTagSize);
        if (!body) return false;
        if (!plaintext.empty()) std::memcpy(body, plaintext.data(), plaintext.size());
        body[plaintext.size()] = static_cast<uint8_t>(header.type);
        aead_.seal(xoredNonce(iv_, sequence_++), {body - kRecordHeaderSize, kRecordHeaderSize},
                   {body, inner}, body, std::span<uint8_t, kTagSize>(body + inner, kTagSize));
        return true;
    }

    bool open(RecordHeader& header, std::span<uint8_t> body,
              std::span<const uint8_t>& plaintext) override {
        if (header.type != ContentType::ApplicationData || body.size() < kTagSize + 1) return false;
        const size_t inner = body.size() - kTagSize;
        uint8_t additional[kRecordHeaderSize];
        putHeader(additional, header, body.size());
        if (!aead_.open(xoredNonce(iv_, sequence_++), additional, body.first(inner),
                        std::span<const uint8_t, kTagSize>(body.data() + inner, kTagSize),
                        body.data())) {
            return false;
        }
        size_t end = inner;
        while (end > 0 && body[end - 1] == 0) {
            --end;
        }
        // Nothing but padding: no type. The caller refuses type 0 (RFC 8446, 5.4).
        header.type = end > 0 ? static_cast<ContentType>(body[end - 1]) : ContentType{};
        plaintext = body.first(end > 0 ? end - 1 : 0);
        return true;
    }

    size_t innerOverhead() const override { return 1; }

private:
    Aead aead_;
    SecureBuffer iv_;
    uint64_t sequence_ = 0;
};

// TLS 1.2: GCM carries eight bytes of its nonce in each record (RFC 5288, 3), ChaCha20-Poly1305
// none (RFC 7905, 2).
template <class Aead>
class Aead12 final : public RecordCipher {
public:
    Aead12(const CipherSuite& suite, const RecordKeys& keys)
        : aead_(keys.key.bytes()), iv_(keys.iv), explicitSize_(suite.recordIvSize) {}

    bool seal(const RecordHeader& header, std::span<const uint8_t> plaintext,
              DataBuffer& out) override {
        uint8_t* body = appendRecord(out, header, explicitSize_ + plaintext.size() + kTagSize);
        if (!body) return false;
        const std::array<uint8_t, 8> number = bigEndian(sequence_);
        std::copy_n(number.begin(), explicitSize_, body);
        uint8_t* text = body + explicitSize_;
        aead_.seal(nonce(body), additional(header, plaintext.size()), plaintext, text,
                   std::span<uint8_t, kTagSize>(text + plaintext.size(), kTagSize));
        ++sequence_;
        return true;
    }

    bool open(RecordHeader& header, std::span<uint8_t> body,
              std::span<const uint8_t>& plaintext) override {
        if (body.size() < explicitSize_ + kTagSize) return false;
        const std::span<uint8_t> text =
            body.subspan(explicitSize_, body.size() - explicitSize_ - kTagSize);
        if (!aead_.open(nonce(body.data()), additional(header, text.size()), text,
                        std::span<const uint8_t, kTagSize>(text.data() + text.size(), kTagSize),
                        text.data())) {
            return false;
        }
        ++sequence_;
        plaintext = text;
        return true;
    }

private:
    Nonce nonce(const uint8_t* explicitPart) const {
        if (explicitSize_ == 0) return xoredNonce(iv_, sequence_);
        Nonce out{};
        std::copy_n(iv_.data(), iv_.size(), out.begin());
        std::copy_n(explicitPart, explicitSize_,
                    out.begin() + static_cast<std::ptrdiff_t>(iv_.size()));
        return out;
    }

    // Sequence number, type, version, length (RFC 5246, 6.2.3.3).
    std::array<uint8_t, 13> additional(const RecordHeader& header, size_t size) const {
        std::array<uint8_t, 13> out{};
        const std::array<uint8_t, 8> number = bigEndian(sequence_);
        std::copy(number.begin(), number.end(), out.begin());
        putHeader(out.data() + number.size(), header, size);
        return out;
    }

    Aead aead_;
    SecureBuffer iv_;
    size_t explicitSize_;
    uint64_t sequence_ = 0;
};

class StreamRecords final : public RecordCipher {
public:
    StreamRecords(const CipherSuite& suite, const RecordKeys& keys)
        : rc4_(keys.key.bytes()), mac_(*suite.mac, keys.macKey.bytes()) {}

    bool seal(const RecordHeader& header, std::span<const uint8_t> plaintext,
              DataBuffer& out) override {
        const size_t size = plaintext.size() + mac_.size();
        uint8_t* body = appendRecord(out, header, size);
        if (!body) return false;
        const crypto::DigestBytes mac = mac_.of(sequence_++, header, plaintext);
        std::copy(plaintext.begin(), plaintext.end(), body);
        std::copy_n(mac.data(), mac.size(), body + plaintext.size());
        rc4_.apply({body, size});
        return true;
    }

    bool open(RecordHeader& header, std::span<uint8_t> body,
              std::span<const uint8_t>& plaintext) override {
        if (body.size() < mac_.size()) return false;
        rc4_.apply(body);
        plaintext = body.first(body.size() - mac_.size());
        const crypto::DigestBytes mac = mac_.of(sequence_++, header, plaintext);
        return ctEqual(mac.bytes(), body.last(mac_.size()));
    }

private:
    crypto::Rc4 rc4_;
    RecordMac mac_;
    uint64_t sequence_ = 0;
};

// MAC, then padding, then encryption (RFC 5246, 6.2.3.2). From TLS 1.1 on each record brings its
// initialisation vector; in TLS 1.0 it is the last block of the record before.
template <class BlockCbc>
class CbcRecords final : public RecordCipher {
public:
    CbcRecords(const CipherSuite& suite, Version version, const RecordKeys& keys,
               const crypto::RandomSource& random)
        : cipher_(keys.key.bytes()),
          mac_(*suite.mac, keys.macKey.bytes()),
          random_(random),
          explicitIv_(version >= Version::Tls11) {
        if (!explicitIv_) cipher_.setIv(keys.iv.bytes().template first<kBlock>());
    }

    bool seal(const RecordHeader& header, std::span<const uint8_t> plaintext,
              DataBuffer& out) override {
        const size_t before = out.size();
        const size_t ivSize = explicitIv_ ? kBlock : 0;
        const size_t content = plaintext.size() + mac_.size();
        const size_t padding = kBlock - content % kBlock;
        uint8_t* body = appendRecord(out, header, ivSize + content + padding);
        if (!body) return false;
        if (explicitIv_) {
            const std::span<uint8_t, kBlock> iv(body, kBlock);
            if (!random_(iv)) return out.resize(before), false;
            cipher_.setIv(iv);
        }
        const crypto::DigestBytes mac = mac_.of(sequence_++, header, plaintext);
        uint8_t* text = body + ivSize;
        std::copy(plaintext.begin(), plaintext.end(), text);
        std::copy_n(mac.data(), mac.size(), text + plaintext.size());
        std::fill_n(text + content, padding, static_cast<uint8_t>(padding - 1));
        cipher_.encrypt({text, content + padding});
        return true;
    }

    bool open(RecordHeader& header, std::span<uint8_t> body,
              std::span<const uint8_t>& plaintext) override {
        if (explicitIv_) {
            if (body.size() < kBlock) return false;
            cipher_.setIv(body.template first<kBlock>());
            body = body.subspan(kBlock);
        }
        if (body.size() % kBlock != 0 || body.size() < mac_.size() + 1) return false;
        cipher_.decrypt(body);
        size_t size = 0;
        if (!mac_.checkPadded(sequence_++, header, body, size)) return false;
        plaintext = body.first(size);
        return true;
    }

    bool splitsFirstByte() const override { return !explicitIv_; }

private:
    static constexpr size_t kBlock = BlockCbc::kBlockSize;

    BlockCbc cipher_;
    RecordMac mac_;
    crypto::RandomSource random_;
    bool explicitIv_;
    uint64_t sequence_ = 0;
};

template <class Aead>
std::unique_ptr<RecordCipher> makeAead(const CipherSuite& suite, Version version,
                                       const RecordKeys& keys) {
    if (version >= Version::Tls13) return std::make_unique<Aead13<Aead>>(keys);
    return std::make_unique<Aead12<Aead>>(suite, keys);
}

bool sizesFit(const CipherSuite& suite, Version version, const RecordKeys& keys) {
    const size_t macSize = suite.mac ? suite.tagSize : 0;
    const bool cbcIv = version == Version::Tls10 && suite.mac;
    const size_t ivSize = cbcIv ? suite.recordIvSize : suite.fixedIvSize;
    return keys.key.size() == suite.keySize && keys.macKey.size() == macSize &&
           keys.iv.size() == ivSize && (version < Version::Tls13 || suite.isAead());
}

}  // namespace

std::unique_ptr<RecordCipher> makeRecordCipher(const CipherSuite& suite, Version version,
                                               const RecordKeys& keys,
                                               const crypto::RandomSource& random) {
    if (!sizesFit(suite, version, keys)) return nullptr;
    switch (suite.bulk) {
        case BulkCipher::AesGcm:
            return makeAead<crypto::AesGcm>(suite, version, keys);
        case BulkCipher::ChaCha20Poly1305:
            return makeAead<crypto::ChaCha20Poly1305>(suite, version, keys);
        case BulkCipher::AesCbc:
            return std::make_unique<CbcRecords<crypto::AesCbc>>(suite, version, keys, random);
        case BulkCipher::TripleDesCbc:
            return std::make_unique<CbcRecords<crypto::TripleDesCbc>>(suite, version, keys, random);
        case BulkCipher::DesCbc:
            return std::make_unique<CbcRecords<crypto::DesCbc>>(suite, version, keys, random);
        case BulkCipher::Rc4:
            return std::make_unique<StreamRecords>(suite, keys);
    }
    return nullptr;
}

}  // namespace tv::tls
