// Host text on its way into a header: any field, any charset, as text, parameter and file name.
#include "Target.h"
#include "base/Ascii.h"
#include "log/LogNull.h"
#include "mime/HtmlMeta.h"
#include "mime/MimeHeader.h"
#include "mime/ParameterText.h"

void tv::take(Input input) {
    constexpr uint32_t kPages[] = {0, 20127, 65001, 28591, 28592, 1250, 932, 50220};
    if (input.size() < 2) return;
    const uint32_t codePage = kPages[input[0] % std::size(kPages)];
    const std::string_view text = textOf(input.subspan(1));
    LogNull log;
    MimeHeader header;
    header.set(input[0] & 0x80 ? "Subject" : "X-Quite-A-Long-Field-Name-Indeed", text);
    header.set("Reply-To", text);
    for (const MimeHeader::Field& field : header.fields()) {
        std::string out;
        MimeHeader::writeField(log, field, codePage, {}, out);
        requireSound(out);
        require(isAscii(out));
    }
    requireSound("Content-Disposition: " + dispositionValue("attachment", text));
    requireSound("Content-Type: x/y;" + wordParameter("name", text, codePage));
    std::string corrected, again;
    require(!correctMetaCharset(log, text, 28592, corrected) ||
            !correctMetaCharset(log, corrected, 28592, again));
}
