// The sizes of a message, learnt by rendering it once.
#include "mail/smtp/SmtpSend.h"

#include "mail/smtp/DotStuffer.h"

namespace tv {
namespace {

// Keeps nothing of a message but how large it is.
class MessageSize final : public OutputStream {
public:
    using OutputStream::write;
    bool write(std::span<const uint8_t> bytes) override {
        raw += bytes.size();
        return stuffer_.stuff(bytes, [&](std::span<const uint8_t> piece) {
            stuffed += piece.size();
            return true;
        });
    }

    uint64_t raw = 0;
    uint64_t stuffed = 0;

private:
    DotStuffer stuffer_;
};

}  // namespace

bool SmtpSend::measure(LogBase& log) {
    MessageSize size;
    if (!mimeSource(log, size, utf8)) return false;
    mimeSize = size.raw;
    stuffedSize = size.stuffed;
    progressTotal = mimeSize + kEnvelopeShare + kRecipientShare * recipients.size();
    if (mimeSize == 0) log.logError("No MIME to send for this email?");
    return mimeSize != 0;
}

}  // namespace tv
