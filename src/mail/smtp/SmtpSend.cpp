// The message of a send rendered: once to learn its sizes, and as it goes over the line.
#include "mail/smtp/SmtpSend.h"

#include "mail/smtp/DotStuffer.h"

namespace tv {
namespace {

// Passes on what it counts.
class CountingTap final : public OutputStream {
public:
    explicit CountingTap(OutputStream& out) : out_(out) {}

    using OutputStream::write;
    bool write(std::span<const uint8_t> bytes) override {
        size += bytes.size();
        return out_.write(bytes);
    }

    uint64_t size = 0;

private:
    OutputStream& out_;
};

}  // namespace

bool SmtpSend::renderTo(LogBase& log, OutputStream& out) const {
    if (!mimeData.empty()) return out.write(mimeData.bytes());
    return mimeSource && mimeSource(log, out, utf8);
}

bool SmtpSend::measure(LogBase& log) {
    CountingStream stuffed;
    DotStuffer stuffer(stuffed);
    CountingTap raw(stuffer);
    if (!renderTo(log, raw)) return false;
    mimeSize = raw.size;
    stuffedSize = stuffed.count();
    progressTotal = mimeSize + kEnvelopeShare + kRecipientShare * recipients.size();
    if (mimeSize == 0) log.logError("No MIME to send for this email?");
    return mimeSize != 0;
}

bool SmtpSend::renderStuffed(LogBase& log, OutputStream& out) const {
    DotStuffer stuffer(out);
    return renderTo(log, stuffer);
}

}  // namespace tv
