// How fast bodies are encoded in cache: each form of base64 with its line breaks that this machine
// can run, quoted-printable and dot-stuffing, beside memcpy. MB/s of input.
//     bench_encoders
#include <cstring>
#include <random>
#include <vector>

#include "Compare.h"
#include "base/Base64.h"
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
    for (const Base64Form* form : base64Forms.forms()) {
        if (!form->usable()) continue;
        base64Forms.force(form);
        printRow(
            "base64 in lines of 76", form->name, kMegabytes,
            [&] { form->encodeLines(input.data(), kLines, output.data()); }, peerBase64());
        printRow(
            "the same through the body encoder", form->name, kMegabytes,
            [] { ContentCoding::encodeBase64(input, sink); }, peerBase64());
    }
    base64Forms.force(nullptr);
}

void textRows() {
    const std::string text = ordinaryText();
    const std::span<const uint8_t> bytes(bytesOf(text), text.size());
    DataBuffer encoded;
    BufferStream toEncoded(encoded);
    ContentCoding::encodeBase64(std::span(input).first(kInput / 4 * 3), toEncoded);
    const auto toSink = [](std::span<const uint8_t> piece) { return sink.write(piece); };
    const double encodedMegabytes = static_cast<double>(encoded.size()) / 1e6;
    printRow("quoted-printable, ordinary text", "", kMegabytes,
             [&] { ContentCoding::encodeQuotedPrintable(bytes, sink); }, {});
    printRow("quoted-printable, random bytes", "", kMegabytes,
             [] { ContentCoding::encodeQuotedPrintable(input, sink); }, {});
    printRow("dot-stuffing, ordinary text", "", kMegabytes,
             [&] { DotStuffer().stuff(bytes, toSink); }, {});
    printRow("dot-stuffing, base64 lines", "", encodedMegabytes,
             [&] { DotStuffer().stuff(encoded.bytes(), toSink); }, {});
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
