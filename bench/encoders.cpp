// How fast bodies are encoded in cache: each form of base64 with its line breaks that this machine
// can run, quoted-printable and dot-stuffing, beside memcpy. MB/s of input.
//     bench_encoders
#include <cstring>
#include <random>
#include <vector>

#include "Compare.h"
#include "base/Base64.h"
#include "base/CpuFeatures.h"
#include "mail/smtp/DotStuffer.h"
#include "mime/ContentCoding.h"

#ifdef TV_HAVE_LIBCRYPTO
#include <openssl/evp.h>
#endif

namespace tv::bench {
namespace {

constexpr size_t kLines = 256;
constexpr size_t kInput =
    kBase64LineBytes * kLines;  // with the output well within the second cache
constexpr double kMegabytes = kInput / 1e6;
constexpr Base64Form kForms[] = {Base64Form::Portable, Base64Form::Ssse3, Base64Form::Avx2,
                                 Base64Form::Avx512};

std::vector<uint8_t> input(kInput);
std::vector<char> output(kLines* kBase64LineWithBreak + 64);

// Looks at both ends of what comes, so that the work cannot be left out.
class NullStream final : public OutputStream {
public:
    using OutputStream::write;
    bool write(std::span<const uint8_t> bytes) override {
        if (!bytes.empty()) seen_ = bytes.front() ^ bytes.back();
        return true;
    }

private:
    volatile int seen_ = 0;
};
NullStream sink;

// What is needed to run a form, and nothing that would lead to a better one.
CpuFeatures featuresFor(Base64Form form) {
    CpuFeatures f;
    f.sse2 = true;
    f.ssse3 = form == Base64Form::Ssse3;
    f.avx2 = form == Base64Form::Avx2;
    f.avx512Vbmi = form == Base64Form::Avx512;
    return f;
}

std::string ordinaryText() {
    std::mt19937 random(1);
    std::string text;
    for (size_t column = 0; text.size() < kInput; ++column) {
        text.append(1 + random() % 9, static_cast<char>('a' + random() % 26));
        if (random() % 30 == 0) text += "\u00E9";
        text += random() % 12 == 0 ? "." : "";
        text += column % 13 == 12 ? "\r\n" : " ";
    }
    text.resize(kInput);
    return text;
}

Work peerBase64() {
#ifdef TV_HAVE_LIBCRYPTO
    return [] {
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(output.data()), input.data(), kInput);
    };
#else
    return {};
#endif
}

void base64Rows() {
    for (const Base64Form form : kForms) {
        limitCpuFeatures(featuresFor(form));
        const Base64Kernel& kernel = base64Kernel();
        if (kernel.form == form) {
            printRow(
                "base64 in lines of 76", kernel.name, kMegabytes,
                [&] { kernel.encodeLines(input.data(), kLines, output.data()); }, peerBase64());
            printRow(
                "the same through the body encoder", kernel.name, kMegabytes,
                [] { ContentCoding::encodeBase64(input, sink); }, peerBase64());
        }
    }
    unlimitCpuFeatures();
}

void textRows() {
    const std::string text = ordinaryText();
    const std::span<const uint8_t> bytes(bytesOf(text), text.size());
    DataBuffer encoded;
    BufferStream toEncoded(encoded);
    ContentCoding::encodeBase64(std::span(input).first(kInput / 4 * 3), toEncoded);
    const double encodedMegabytes = static_cast<double>(encoded.size()) / 1e6;
    printRow("quoted-printable, ordinary text", "", kMegabytes,
             [&] { ContentCoding::encodeQuotedPrintable(bytes, sink); }, {});
    printRow("quoted-printable, random bytes", "", kMegabytes,
             [] { ContentCoding::encodeQuotedPrintable(input, sink); }, {});
    printRow("dot-stuffing, ordinary text", "", kMegabytes, [&] { DotStuffer(sink).write(bytes); },
             {});
    printRow("dot-stuffing, base64 lines", "", encodedMegabytes,
             [&] { DotStuffer(sink).write(encoded.bytes()); }, {});
}

void copyRow() {
    printRow("memcpy", "", kMegabytes,
             [] {
                 std::memcpy(output.data(), input.data(), kInput);
                 __asm__ volatile("" ::"r"(output.data()) : "memory");
             },
             {});
}

}  // namespace
}  // namespace tv::bench

int main() {
    using namespace tv::bench;
    std::mt19937 random(1);
    for (uint8_t& byte : input) {
        byte = static_cast<uint8_t>(random());
    }
    printHead("MB/s");
    copyRow();
    base64Rows();
    textRows();
    return 0;
}
