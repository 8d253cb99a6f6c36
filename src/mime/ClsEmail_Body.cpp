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
    return operation.finish(message && setHtmlBody(*message, html.utf8(), operation.log()));
}

bool ClsEmail::setHtmlBody(Email2& root, std::string_view utf8, LogBase& log) {
    root.moveMixedPlainTextToAlternative(log);
    chooseCharset(root, utf8, log);
    std::string prepared;
    if (root.common().codePage != 0) {
        const LogContextExitor context(log, "prepHtmlBody");
        if (correctMetaCharset(utf8, root.common().codePage, prepared, log)) utf8 = prepared;
    }
    if (!root.setBody(utf8, "text/html", log)) return false;
    // The renderer does the same for what is shorter than this and still too long for mail.
    constexpr size_t kLongLine = 2000;
    Email2* body = root.findBody("text/html");
    if (body && body->transferEncoding() == "7bit" && longestLine(utf8) >= kLongLine) {
        log.logInfo(
            "Using quoted-printable because the longest HTML line length is 2000 chars or more.");
        body->setTransferEncoding("quoted-printable");
    }
    return true;
}

// An HTML body that is already there follows a change of the message's charset.
void ClsEmail::chooseCharset(Email2& root, std::string_view utf8, LogBase& log) {
    const uint32_t before = root.common().codePage;
    chooseCharsetIfNecessary(utf8, root.common(), log);
    const uint32_t now = root.common().codePage;
    Email2* body = now == before ? nullptr : root.findBody("text/html");
    std::string corrected;
    if (!body || !correctMetaCharset(body->bodyText(), now, corrected, log)) return;
    const auto bytes = std::make_shared<DataBuffer>();
    if (bytes->append(corrected)) body->setBodyBytes(bytes);
}

}  // namespace tv
