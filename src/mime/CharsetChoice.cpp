// ASCII as long as it does; then what the message brings along, Latin 1, Latin 2; UTF-8 where
// nothing else does.
#include "mime/CharsetChoice.h"

#include "base/Ascii.h"
#include "base/CodePage.h"
#include "log/LogContextExitor.h"
#include "mime/CharsetNames.h"

namespace tv {
namespace {

bool converts(std::string_view utf8, uint32_t codePage) {
    std::string out;
    return utf8ToCodePage(codePage, utf8, out);
}

uint32_t chooseFor8bit(LogBase& log, std::string_view utf8, const _tvEmailCommon& common) {
    if (common.detectedCodePage != 0) {
        if (converts(utf8, common.detectedCodePage)) {
            log.logInfo("Setting charset to what was detected in the MIME header.");
            return common.detectedCodePage;
        }
        log.logInfo("Charset detected in header not sufficient for this text body...");
    }
    if (common.preferredCodePage != 0) return common.preferredCodePage;
    if (converts(utf8, kCodePageLatin1)) {
        log.logInfo("Choosing iso-8859-1 because conversion was success.");
        return kCodePageLatin1;
    }
    if (converts(utf8, kCodePageLatin2)) {
        log.logInfo("Choosing iso-8859-2 because conversion was success.");
        return kCodePageLatin2;
    }
    log.logInfo("Choosing utf-8 as fallback for 8bit text.");
    return kCodePageUtf8;
}

uint32_t keepIfItConverts(LogBase& log, std::string_view utf8, uint32_t codePage) {
    if (converts(utf8, codePage)) return codePage;
    log.logInfo(
        "Unable to convert text body to existing code page.  Choosing utf-8 for all text "
        "bodies...");
    return kCodePageUtf8;
}

uint32_t raiseFromAscii(LogBase& log, std::string_view utf8, const _tvEmailCommon& common) {
    const uint32_t preset = codePageOfCharset(common.defaultCharset);
    return preset == 0 ? kCodePageUtf8 : keepIfItConverts(log, utf8, preset);
}

}  // namespace

void chooseCharsetIfNecessary(LogBase& log, std::string_view utf8, _tvEmailCommon& common) {
    if (utf8.empty()) return;
    const LogContextExitor context(log, "chooseCharsetIfNecessary");
    const bool sevenBit = isAscii(utf8);
    switch (common.codePage) {
        case kCodePageUtf8:
        case kCodePageUtf16Le:
        case kCodePageUtf16Be:
            return;
        case 0:
            if (sevenBit) {
                log.logInfo("Choosing us-ascii because body is 7bit");
                common.codePage = kCodePageAscii;
            } else {
                common.codePage = chooseFor8bit(log, utf8, common);
            }
            return;
        case kCodePageAscii:
            if (!sevenBit) common.codePage = raiseFromAscii(log, utf8, common);
            return;
        default:
            common.codePage = keepIfItConverts(log, utf8, common.codePage);
            return;
    }
}

}  // namespace tv
