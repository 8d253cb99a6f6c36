// Host text on its way into a header: any field, any charset, as text, parameter and file name.
#include <cstdlib>

#include "base/Ascii.h"
#include "log/LogNull.h"
#include "mime/HeaderText.h"
#include "mime/HtmlMeta.h"
#include "mime/MimeHeader.h"
#include "mime/ParameterText.h"
#include "mime/tvContentType.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

// Folded where it is broken at all, and no line too long for mail.
void requireSound(std::string_view field) {
    size_t line = 0;
    for (size_t i = 0; i < field.size(); ++i) {
        require(field[i] != '\0');
        if (field[i] == '\r' || field[i] == '\n') {
            require(field.substr(i).starts_with("\r\n ") || field.substr(i).starts_with("\r\n\t"));
            i += 1;
            line = 0;
        } else {
            require(++line <= tv::kLongestMailLine);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr uint32_t kPages[] = {0, 20127, 65001, 28591, 28592, 1250, 932, 50220};
    if (size < 2) return 0;
    const uint32_t codePage = kPages[data[0] % std::size(kPages)];
    const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
    tv::LogNull log;

    tv::MimeHeader header;
    header.set(data[0] & 0x80 ? "Subject" : "X-Quite-A-Long-Field-Name-Indeed", text);
    header.set("Reply-To", text);
    for (const tv::MimeHeader::Field& field : header.fields()) {
        std::string out;
        tv::MimeHeader::writeField(log, field, codePage, tv::AddressForm::SevenBit, out);
        requireSound(out);
        require(tv::isAscii(out));
    }
    requireSound("Content-Disposition: " + tv::dispositionValue("attachment", text));
    tv::_tvContentType type("application/pdf");
    type.name = text;
    requireSound("Content-Type: " + type.value(codePage));

    std::string corrected;
    if (tv::correctMetaCharset(log, text, 28592, corrected)) {
        std::string again;
        require(!tv::correctMetaCharset(log, corrected, 28592, again));
    }
    return 0;
}
