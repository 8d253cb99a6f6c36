// The file's name, its envelope and the message as it would go over the line, without the dots that
// the line needs.
#include "mail/TestFolder.h"

#include "log/Fail.h"
#include "mail/SendRecord.h"
#include "mime/OutputStream.h"
#include "platform/SysFile.h"

namespace tv {
namespace {

class FileStream final : public OutputStream {
public:
    explicit FileStream(plat::SysFile& file) : file_(file) {}
    using OutputStream::write;
    bool write(std::span<const uint8_t> bytes) override {
        return file_.write(bytes.data(), bytes.size());
    }

private:
    plat::SysFile& file_;
};

std::string envelope(const SmtpSend& send) {
    std::string text = "Return-Path: <" + send.fromAddress + ">\r\n";
    for (const std::string& recipient : send.recipients) {
        text += "X-Envelope-To: <" + recipient + ">\r\n";
    }
    return text;
}

}  // namespace

Failure layInTestFolder(LogBase& log, const std::string& folder, SmtpSend& send) {
    if (send.recipients.empty()) {
        return fail(log, Cause::NoValidRecipients, "The message has no recipients.");
    }
    plat::SysFile file;
    const std::string path = openFresh(folder, ".eml", file);
    FileStream stream(file);
    const bool made = file.isOpen();
    const bool written =
        made && stream.write(envelope(send)) && send.mimeSource(log, stream, send.utf8);
    if (!file.close() || !written) {
        if (made) plat::removeFile(path);  // half a message looks like one
        return fail(log, Cause::SettingsUnusable,
                    "The message could not be written to " + path +
                        ", as \"folder\" of [test] in the settings file asks for.");
    }
    log.logInfo("Warning: a test. The message was not sent; it lies in " + path + ".");
    send.goodRecipients = send.recipients;
    return {};
}

}  // namespace tv
