// Fields at fixed places, then the texts they point to. Every offset and length of a received
// message is held against its end.
#include "mail/sasl/NtlmMessage.h"

#include <algorithm>

#include "base/Ascii.h"
#include "base/ByteReader.h"
#include "base/ByteWriter.h"

namespace tv {
namespace {

constexpr std::string_view kSignature("NTLMSSP\0", 8);
constexpr size_t kType2Fields = 48;  // what every Type 2 may be read up to

struct SecurityBuffer {
    uint16_t length = 0;
    uint32_t offset = 0;

    bool within(size_t size) const { return uint64_t{offset} + length <= size; }
    std::span<const uint8_t> of(std::span<const uint8_t> message) const {
        if (length == 0) return {};
        return message.subspan(offset, length);
    }
};

SecurityBuffer readBuffer(ByteReader& reader) {
    SecurityBuffer buffer;
    buffer.length = reader.u16le();
    reader.skip(2);  // the maximum length says nothing
    buffer.offset = reader.u32le();
    return buffer;
}

NtlmOsVersion readVersion(ByteReader& reader) {
    NtlmOsVersion version;
    version.major = reader.u8();
    version.minor = reader.u8();
    version.build = reader.u16le();
    reader.skip(3);
    version.revision = reader.u8();
    return version;
}

// Signature and type; some servers end the signature with something else than NUL.
NtlmDefect readHeader(ByteReader& reader, uint32_t type) {
    const std::span<const uint8_t> signature = reader.bytes(kSignature.size());
    if (!reader.ok() || !std::equal(signature.begin(), signature.end() - 1, kSignature.begin())) {
        return NtlmDefect::Signature;
    }
    return reader.u32le() == type && reader.ok() ? NtlmDefect::None : NtlmDefect::Type;
}

template <class Writer>
void writeHeader(Writer& writer, uint32_t type) {
    writer.append(kSignature);
    writer.u32le(type);
}

template <class Writer>
void writeVersion(Writer& writer, const NtlmOsVersion& version) {
    writer.u8(version.major);
    writer.u8(version.minor);
    writer.u16le(version.build);
    writer.zeros(3);
    writer.u8(version.revision);
}

// Appends the bytes and fills the security buffer that was left zero at the position.
template <class Writer>
void writePayload(Writer& writer, size_t buffer, std::span<const uint8_t> bytes) {
    writer.patchU16le(buffer, bytes.size());
    writer.patchU16le(buffer + 2, bytes.size());
    writer.patchU32le(buffer + 4, writer.size());
    writer.append(bytes);
}

template <class Writer>
void writePayloadIfAny(Writer& writer, size_t buffer, std::span<const uint8_t> bytes) {
    if (!bytes.empty()) writePayload(writer, buffer, bytes);
}

template <class Buffer>
std::optional<Buffer> finished(BasicByteWriter<Buffer>& writer) {
    if (!writer.ok()) return std::nullopt;
    return writer.take();
}

void assign(ntlm::Bytes& to, std::span<const uint8_t> bytes) {
    to.assign(bytes.begin(), bytes.end());
}

}  // namespace

std::optional<ntlm::Bytes> NtlmNegotiate::encode() const {
    // Where the security buffers stand ([MS-NLMP] section 2.2.1.1), then their room and the
    // version.
    constexpr size_t kDomain = 16;
    constexpr size_t kWorkstation = 24;
    ByteWriter writer;
    writeHeader(writer, 1);
    writer.u32le(flags);
    writer.zeros(16);
    if (flags & ntlm::kVersion) writeVersion(writer, version);
    writePayloadIfAny(writer, kDomain, domain);
    writePayloadIfAny(writer, kWorkstation, workstation);
    return finished(writer);
}

NtlmDefect NtlmNegotiate::decode(std::span<const uint8_t> message) {
    ByteReader reader(message);
    const NtlmDefect defect = readHeader(reader, 1);
    if (defect != NtlmDefect::None) return defect;
    NtlmNegotiate read;
    read.flags = reader.u32le();
    const SecurityBuffer domainBuffer = readBuffer(reader);
    const SecurityBuffer workstationBuffer = readBuffer(reader);
    if (read.flags & ntlm::kVersion) read.version = readVersion(reader);
    if (!reader.ok() || !domainBuffer.within(message.size()) ||
        !workstationBuffer.within(message.size())) {
        return NtlmDefect::Field;
    }
    assign(read.domain, domainBuffer.of(message));
    assign(read.workstation, workstationBuffer.of(message));
    *this = std::move(read);
    return NtlmDefect::None;
}

std::optional<ntlm::Bytes> NtlmChallenge::encode() const {
    // As above ([MS-NLMP] section 2.2.1.2).
    constexpr size_t kTargetName = 12;
    constexpr size_t kTargetInfo = 40;
    ByteWriter writer;
    writeHeader(writer, 2);
    writer.zeros(8);
    writer.u32le(flags);
    writer.append(challenge);
    writer.zeros(16);  // eight of them reserved
    if (flags & ntlm::kVersion) writeVersion(writer, version);
    writePayloadIfAny(writer, kTargetName, targetName);
    writePayloadIfAny(writer, kTargetInfo, targetInfo);
    return finished(writer);
}

NtlmDefect NtlmChallenge::decode(std::span<const uint8_t> message) {
    ntlm::Bytes padded(message.begin(), message.end());
    padded.resize(message.size() + kType2Fields);
    ByteReader reader(padded);
    const NtlmDefect defect = readHeader(reader, 2);
    if (defect != NtlmDefect::None) return defect;
    // An empty buffer may point behind the end, where the servers that leave fields out let it.
    const auto outside = [&](const SecurityBuffer& buffer) {
        return !buffer.within(buffer.length == 0 ? padded.size() : message.size());
    };
    NtlmChallenge read;
    const SecurityBuffer name = readBuffer(reader);
    if (outside(name)) return NtlmDefect::TargetName;
    read.flags = reader.u32le();
    const std::span<const uint8_t> bytes = reader.bytes(read.challenge.size());
    std::copy(bytes.begin(), bytes.end(), read.challenge.begin());
    reader.skip(8);
    const SecurityBuffer info = readBuffer(reader);
    if (outside(info)) return NtlmDefect::TargetInfo;
    if (read.flags & ntlm::kVersion) read.version = readVersion(reader);
    assign(read.targetName, name.of(message));
    assign(read.targetInfo, info.of(message));
    *this = std::move(read);
    return NtlmDefect::None;
}

std::optional<SecureBuffer> NtlmAuthenticate::encode() const {
    // Where the security buffers stand, in their order.
    constexpr size_t kLm = 12, kNt = 20, kDomain = 28, kUser = 36, kWorkstation = 44, kKey = 52;
    SecureByteWriter writer;
    writeHeader(writer, 3);
    writer.zeros(48);
    writer.u32le(flags);
    if (flags & ntlm::kVersion) writeVersion(writer, version);
    if (hasMic) writer.zeros(kMicOffset + ntlm::kMicSize - writer.size());
    writePayload(writer, kDomain, domain.bytes());
    writePayload(writer, kUser, userName.bytes());
    writePayload(writer, kWorkstation, workstation.bytes());
    writePayload(writer, kLm, lmResponse.bytes());
    writePayload(writer, kNt, ntResponse.bytes());
    if (sessionKey) writePayload(writer, kKey, sessionKey->bytes());
    return finished(writer);
}

NtlmDefect NtlmAuthenticate::decode(std::span<const uint8_t> message) {
    ByteReader reader(message);
    const NtlmDefect defect = readHeader(reader, 3);
    if (defect != NtlmDefect::None) return defect;
    NtlmAuthenticate read;
    read.sessionKey.emplace();
    SecureBuffer* const fields[] = {&read.lmResponse, &read.ntResponse,  &read.domain,
                                    &read.userName,   &read.workstation, &*read.sessionKey};
    bool keyPlaced = false;
    for (SecureBuffer* field : fields) {
        const SecurityBuffer buffer = readBuffer(reader);
        if (!reader.ok() || !buffer.within(message.size())) return NtlmDefect::Field;
        field->assign(buffer.of(message));
        keyPlaced = buffer.offset != 0;
    }
    if (!keyPlaced) read.sessionKey.reset();
    read.flags = reader.u32le();
    if (read.flags & ntlm::kVersion) read.version = readVersion(reader);
    if (!reader.ok()) return NtlmDefect::Field;
    *this = std::move(read);
    return NtlmDefect::None;
}

}  // namespace tv
