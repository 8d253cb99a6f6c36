// The HTML body and the charset that it shares with everything else in the message.
#include "log/LogContextExitor.h"
#include "mime/CharsetChoice.h"
#include "mime/ClsEmail.h"
#include "mime/HtmlMeta.h"
#include "mime/PlainBody.h"

namespace tv {

bool ClsEmail::SetHtmlBody(const XString& html) {
    Operation operation(*this, "SetHtmlBody");
    Email2* message = root(operation.log());
    return operation.finish(message && setHtmlBody(operation.log(), *message, html.utf8()));
}

bool ClsEmail::setHtmlBody(LogBase& log, Email2& root, std::string_view utf8) {
    root.moveMixedPlainTextToAlternative(log);
    chooseCharset(log, root, utf8);
    std::string prepared;
    if (root.common().codePage != 0) {
        const LogContextExitor context(log, "prepHtmlBody");
        if (correctMetaCharset(log, utf8, root.common().codePage, prepared)) utf8 = prepared;
    }
    if (!root.setBody(log, utf8, "text/html")) return false;
    // The renderer does the same for what is shorter than this and still too long for mail.
    constexpr size_t kLongLine = 2000;
    Email2* body = root.findBody("text/html");
    if (body && body->transferEncoding() == "7bit" && hasLongerLine(utf8, kLongLine - 1)) {
        log.logInfo(
            "Using quoted-printable because the longest HTML line length is 2000 chars or more.");
        body->setTransferEncoding("quoted-printable");
    }
    return true;
}

// An HTML body that is already there follows a change of the message's charset.
void ClsEmail::chooseCharset(LogBase& log, Email2& root, std::string_view utf8) {
    const uint32_t before = root.common().codePage;
    chooseCharsetIfNecessary(log, utf8, root.common());
    const uint32_t now = root.common().codePage;
    Email2* body = now == before ? nullptr : root.findBody("text/html");
    std::string corrected;
    if (!body || !correctMetaCharset(log, body->bodyText(), now, corrected)) return;
    const auto bytes = std::make_shared<DataBuffer>();
    if (bytes->append(corrected)) body->setBodyBytes(bytes);
}

}  // namespace tv
