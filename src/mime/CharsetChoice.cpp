// ASCII as long as it does; then Latin 1 or Latin 2, if they do for the first text that needs more;
// UTF-8 where nothing else does.
#include "mime/CharsetChoice.h"

#include "base/Ascii.h"
#include "base/CodePage.h"
#include "log/LogContextExitor.h"

namespace tv {
namespace {

bool converts(std::string_view utf8, uint32_t codePage) {
    std::string out;
    return utf8ToCodePage(codePage, utf8, out);
}

uint32_t chooseFor8bit(LogBase& log, std::string_view utf8) {
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

}  // namespace

void chooseCharsetIfNecessary(LogBase& log, std::string_view utf8, _tvEmailCommon& common) {
    if (utf8.empty()) return;
    const LogContextExitor context(log, "chooseCharsetIfNecessary");
    const bool sevenBit = isAscii(utf8);
    switch (common.codePage) {
        case kCodePageUtf8:
            return;
        case 0:
            if (sevenBit) {
                log.logInfo("Choosing us-ascii because body is 7bit");
                common.codePage = kCodePageAscii;
            } else {
                common.codePage = chooseFor8bit(log, utf8);
            }
            return;
        case kCodePageAscii:
            if (!sevenBit) common.codePage = kCodePageUtf8;
            return;
        default:
            common.codePage = keepIfItConverts(log, utf8, common.codePage);
            return;
    }
}

}  // namespace tv
