// From the tree to bytes. Nothing here changes the tree: what a node looks like on the wire is
// decided in a Leaf, made anew for each rendering.
#include "base/Ascii.h"
#include "base/CodePage.h"
#include "log/LogContextExitor.h"
#include "mime/AddressList.h"
#include "mime/ContentCoding.h"
#include "mime/Email2.h"
#include "mime/HeaderText.h"
#include "mime/HtmlMeta.h"
#include "mime/ParameterText.h"
#include "mime/PlainBody.h"
#include "platform/SysHost.h"

namespace tv {
namespace {

constexpr std::string_view kTransferEncoding = "Content-Transfer-Encoding";
constexpr std::string_view kQuotedPrintable = "quoted-printable";
constexpr std::string_view kBase64 = "base64";

}  // namespace

struct Email2::Leaf {
    _tvContentType type;
    std::string_view encoding;
    std::string_view original;
    std::string converted;
    bool isConverted = false;

    std::string_view text() const { return isConverted ? std::string_view(converted) : original; }
};

bool Email2::render(LogBase& log, OutputStream& out, const RenderOptions& options) const {
    const LogContextExitor context(log, "assembleMimeBody");
    return renderNode(log, out, options) && out.handOn();
}

bool Email2::renderNode(LogBase& log, OutputStream& out, const RenderOptions& options) const {
    if (!isValid()) return false;
    if (isMultipart()) {
        return renderHeader(log, nullptr, out, options) && renderChildren(log, out, options);
    }
    const Leaf leaf = prepareLeaf(log);
    return renderHeader(log, &leaf, out, options) && renderBody(log, leaf, out);
}

// RFC 2046 section 5.1.1: the line end before a delimiter belongs to the delimiter.
bool Email2::renderChildren(LogBase& log, OutputStream& out, const RenderOptions& options) const {
    const std::string delimiter = "--" + contentType_.boundary;
    const auto writeDelimiter = [&](std::string_view end) {
        if (out.write(delimiter) && out.write(end)) return true;
        log.logError("Failed to write boundary to output.");
        return false;
    };
    for (const auto& child : children_) {
        if (!writeDelimiter("\r\n") || !child->renderNode(log, out, options) ||
            !out.write("\r\n")) {
            return false;
        }
    }
    return writeDelimiter("--\r\n");
}

Email2::Leaf Email2::prepareLeaf(LogBase& log) const {
    Leaf leaf{contentType_, transferEncoding_, bodyText(), {}, false};
    if (isTextBody()) {
        if (!isAscii(leaf.original)) leaf.encoding = kQuotedPrintable;
        convertText(log, leaf);
    }
    const bool coded = equalsIgnoreCase(leaf.encoding, kBase64) ||
                       equalsIgnoreCase(leaf.encoding, kQuotedPrintable);
    // RFC 5322 section 2.1.1; there are servers that bounce a longer line, and such that cut it.
    if (!coded && hasLongerLine(leaf.text(), kLongestMailLine)) leaf.encoding = kQuotedPrintable;
    return leaf;
}

// The body is UTF-8 in the tree; here it becomes text of the message's charset.
void Email2::convertText(LogBase& log, Leaf& leaf) const {
    const uint32_t page = common_->codePage;
    if (page == 0 || page == kCodePageUtf8) {
        leaf.type.setCharset(page == 0 && isAscii(leaf.original) ? kCodePageAscii : kCodePageUtf8);
        return;
    }
    if (page == kCodePageAscii && isAscii(leaf.original)) {
        leaf.type.setCharset(page);
        return;
    }
    const uint32_t target = page == kCodePageAscii ? plat::sysHost().ansiCodePage() : page;
    leaf.isConverted = utf8ToCodePage(target, leaf.original, leaf.converted);
    leaf.type.setCharset(leaf.isConverted ? target : kCodePageUtf8);
    if (!leaf.type.is("text/html")) return;
    const LogContextExitor context(log, "processHtmlMeta");
    std::string corrected;
    if (correctMetaCharset(log, leaf.text(), leaf.type.charset().codePage, corrected)) {
        leaf.converted = std::move(corrected);
        leaf.isConverted = true;
    }
}

bool Email2::renderHeader(LogBase& log, const Leaf* leaf, OutputStream& out,
                          const RenderOptions& options) const {
    std::string block;
    const std::string_view excluded = options.excludedPrefix;
    for (const MimeHeader::Field& field : header_.fields()) {
        if (!excluded.empty() && startsWithIgnoreCase(field.name, excluded)) continue;
        writeHeaderField(log, field, leaf, options, block);
        block += "\r\n";
    }
    // Exactly one empty line ends a header, whatever the last field ended with.
    while (block.ends_with('\r') || block.ends_with('\n')) {
        block.pop_back();
    }
    block += "\r\n\r\n";
    return out.write(block);
}

// Fields that mirror a record are written from it, the others from their text.
void Email2::writeHeaderField(LogBase& log, const MimeHeader::Field& field, const Leaf* leaf,
                              const RenderOptions& options, std::string& out) const {
    const AddressForm form{options.utf8Headers, options.angleBrackets};
    const auto is = [&](std::string_view name) { return equalsIgnoreCase(field.name, name); };
    const uint32_t page = common_->codePage;
    const auto write = [&](std::string_view value) {
        out.append(field.name).append(": ").append(value);
    };
    if (is("Content-Type")) {
        const _tvContentType& type = leaf ? leaf->type : contentType_;
        write(type.value(page, !log.hasOption("NO_FORMAT_FLOWED")));
    } else if (is("Content-Disposition")) {
        write(dispositionValue(disposition_, fileName_, !isAttachment()));
    } else if (leaf && is(kTransferEncoding)) {
        write(leaf->encoding);
    } else if (const std::span<const _tvEmailAddress> list = addressesOf(field.name);
               !list.empty()) {
        write(formatAddressList(list, page, form));
    } else {
        MimeHeader::writeField(log, field, page, form, out);
    }
}

std::span<const _tvEmailAddress> Email2::addressesOf(std::string_view field) const {
    if (equalsIgnoreCase(field, "To")) return recipients(Recipients::To);
    if (equalsIgnoreCase(field, "Cc")) return recipients(Recipients::Cc);
    if (equalsIgnoreCase(field, "Bcc")) return recipients(Recipients::Bcc);
    if (equalsIgnoreCase(field, "From") && !from_.empty()) return {&from_, 1};
    return {};
}

bool Email2::renderBody(LogBase& log, const Leaf& leaf, OutputStream& out) const {
    const LogContextExitor context(log, "getEncodedBody");
    const std::string_view text = leaf.text();
    const std::span<const uint8_t> bytes(bytesOf(text), text.size());
    if (equalsIgnoreCase(leaf.encoding, kBase64)) return ContentCoding::encodeBase64(bytes, out);
    if (equalsIgnoreCase(leaf.encoding, kQuotedPrintable)) {
        return ContentCoding::encodeQuotedPrintable(bytes, out);
    }
    return writePlainBody(text, out);
}

}  // namespace tv
