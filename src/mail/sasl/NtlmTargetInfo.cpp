// A list of pairs, each with its kind and length in front; whoever is between us and the server may
// have written it.
#include "mail/sasl/NtlmTargetInfo.h"

#include "base/ByteReader.h"
#include "base/ByteWriter.h"
#include "base/CodePage.h"

namespace tv {
namespace {

// Kinds of pairs, under the names of section 2.2.2.1.
constexpr uint16_t kEol = 0, kNbComputerName = 1, kNbDomainName = 2, kDnsComputerName = 3,
                   kDnsDomainName = 4, kFlags = 6, kTimestamp = 7, kChannelBindings = 10;
constexpr uint32_t kHasMic = 2;  // in kFlags

struct Pair {
    uint16_t id = kEol;
    std::span<const uint8_t> value;
};

// Nothing at the end of the list, or where it is not whole.
std::optional<Pair> nextPair(ByteReader& reader) {
    if (reader.left() < 4) return std::nullopt;
    const uint16_t id = reader.u16le();
    const uint16_t length = reader.u16le();
    if (id == kEol || length > reader.left()) return std::nullopt;
    return Pair{id, reader.bytes(length)};
}

void writePair(ByteWriter& writer, const Pair& pair) {
    writer.u16le(pair.id);
    writer.u16le(pair.value.size());
    writer.append(pair.value);
}

}  // namespace

NtlmTargetNames ntlmTargetNames(std::span<const uint8_t> targetInfo) {
    NtlmTargetNames names;
    ByteReader reader(targetInfo);
    while (const std::optional<Pair> pair = nextPair(reader)) {
        const std::string text =
            codePageToUtf8(kCodePageUtf16Le,
                           {reinterpret_cast<const char*>(pair->value.data()), pair->value.size()});
        if (pair->id == kNbComputerName) names.nbComputer = text;
        if (pair->id == kNbDomainName) names.nbDomain = text;
        if (pair->id == kDnsComputerName) names.dnsComputer = text;
        if (pair->id == kDnsDomainName) names.dnsDomain = text;
    }
    return names;
}

namespace ntlm {

crypto::Md5::Digest channelBindingHash(std::span<const uint8_t> data) {
    ByteWriter bindings;
    bindings.zeros(16);  // kinds and lengths of the addresses of both sides, which do not count
    bindings.u32le(data.size());
    bindings.append(data);
    return crypto::Md5::of(bindings.bytes());
}

BoundTarget boundTarget(std::span<const uint8_t> targetInfo, std::span<const uint8_t> bindingHash) {
    BoundTarget out;
    ByteWriter flags, info;
    uint32_t serverFlags = 0;
    ByteReader reader(targetInfo);
    while (const std::optional<Pair> pair = nextPair(reader)) {
        ByteReader value(pair->value);
        if (pair->id == kTimestamp && value.left() == sizeof(uint64_t)) out.time = value.u64le();
        if (pair->id == kFlags) serverFlags |= value.u32le();
        if (pair->id != kFlags && pair->id != kChannelBindings) writePair(info, *pair);
    }
    flags.u32le(serverFlags | kHasMic);
    writePair(info, {kFlags, flags.bytes()});
    writePair(info, {kChannelBindings, bindingHash});
    writePair(info, {kEol, {}});
    out.info = info.take();
    return out;
}

}  // namespace ntlm

}  // namespace tv
