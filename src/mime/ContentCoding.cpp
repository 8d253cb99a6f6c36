// Base64 in lines of 76, held back by less than a line; quoted-printable stands in a source of its
// own.
#include "mime/ContentCoding.h"

#include <algorithm>
#include <cstring>

#include "mime/QuotedPrintable.h"

namespace tv {
namespace {

template <class Encoder>
bool encodeWhole(std::span<const uint8_t> bytes, OutputStream& out) {
    Encoder encoder(out);
    return encoder.put(bytes) && encoder.finish();
}

}  // namespace

bool Base64BodyEncoder::putLines(const uint8_t* in, size_t count) {
    while (count != 0) {
        const size_t lines = std::min(count, kStagedLines);
        base64EncodeLines(in, lines, stage_.data());
        if (!out_.write(std::string_view(stage_.data(), lines * kBase64LineWithBreak)))
            return false;
        in += lines * kBase64LineBytes;
        count -= lines;
    }
    return true;
}

bool Base64BodyEncoder::put(std::span<const uint8_t> bytes) {
    if (bytes.empty()) return good_;
    const size_t toFillLine = std::min(bytes.size(), kBase64LineBytes - held_);
    if (toFillLine != 0) std::memcpy(line_.data() + held_, bytes.data(), toFillLine);
    held_ += toFillLine;
    bytes = bytes.subspan(toFillLine);
    if (bytes.empty() || !good_) return good_;
    // At least one byte follows the held line; the last 1 to 57 bytes are held in its place.
    const size_t lines = (bytes.size() - 1) / kBase64LineBytes;
    good_ = putLines(line_.data(), 1) && putLines(bytes.data(), lines);
    bytes = bytes.subspan(lines * kBase64LineBytes);
    std::memcpy(line_.data(), bytes.data(), bytes.size());
    held_ = bytes.size();
    return good_;
}

bool Base64BodyEncoder::finish() {
    base64EncodeTo({line_.data(), held_}, stage_.data());
    const std::string_view last(stage_.data(), base64Length(held_));
    const bool done = good_ && (last.empty() || out_.write(last));
    held_ = 0;
    return done;
}

bool ContentCoding::encodeBase64(std::span<const uint8_t> bytes, OutputStream& out) {
    return encodeWhole<Base64BodyEncoder>(bytes, out);
}

bool ContentCoding::encodeQuotedPrintable(std::span<const uint8_t> bytes, OutputStream& out) {
    return encodeWhole<QuotedPrintableEncoder>(bytes, out);
}

}  // namespace tv
