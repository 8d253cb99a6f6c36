// A search for META tags that needs no parser of HTML, in linear time, and the correction of the
// first charset that is found there.
#include "mime/HtmlMeta.h"

#include "base/Ascii.h"
#include "mime/CharsetNames.h"
#include "mime/HtmlTagReader.h"

namespace tv {
namespace {

std::string_view charsetOfContent(std::string_view content) {
    constexpr std::string_view kWord = "charset";
    const size_t at = findIgnoreCase(content, kWord);
    if (at == std::string_view::npos) return {};
    content = content.substr(at + kWord.size());
    while (!content.empty() && isBlank(content.front())) {
        content.remove_prefix(1);
    }
    if (!content.starts_with('=')) return {};
    content.remove_prefix(1);
    while (!content.empty() && (isBlank(content.front()) || content.front() == '\'')) {
        content.remove_prefix(1);
    }
    return content.substr(0, content.find_first_of("; \t\r\n'\""));
}

// The charset that one META tag names; at becomes the position behind its attributes.
std::string_view charsetOfTag(std::string_view html, size_t& at) {
    HtmlTagReader reader(html, at);
    HtmlAttribute attribute;
    std::string_view charset, content;
    bool isContentType = false;
    while (reader.next(attribute)) {
        if (equalsIgnoreCase(attribute.name, "charset")) {
            charset = attribute.value;
        } else if (equalsIgnoreCase(attribute.name, "content")) {
            content = attribute.value;
        } else if (equalsIgnoreCase(attribute.name, "http-equiv")) {
            isContentType = equalsIgnoreCase(trimmed(attribute.value), "content-type");
        }
    }
    at = reader.position();
    if (!charset.empty()) return trimmed(charset);
    return isContentType ? charsetOfContent(content) : std::string_view();
}

bool namesCodePage(std::string_view charset, uint32_t codePage) {
    return codePageOfCharset(charset) == codePage;
}

}  // namespace

std::string_view findMetaCharset(std::string_view html, size_t from) {
    constexpr std::string_view kMeta = "<meta";
    constexpr std::string_view kComment = "<!--";
    size_t at = from;
    while ((at = html.find('<', at)) != std::string_view::npos) {
        const std::string_view rest = html.substr(at);
        if (rest.starts_with(kComment)) {
            at = html.find("-->", at + kComment.size());
        } else if (rest.size() > kMeta.size() && startsWithIgnoreCase(rest, kMeta) &&
                   (isBlank(rest[kMeta.size()]) || rest[kMeta.size()] == '/')) {
            at += kMeta.size();
            const std::string_view charset = charsetOfTag(html, at);
            if (!charset.empty()) return charset;
        } else {
            ++at;
        }
    }
    return {};
}

bool correctMetaCharset(LogBase& log, std::string_view html, uint32_t codePage, std::string& out) {
    std::string corrected;
    size_t copied = 0;
    std::string_view charset;
    while (!(charset = findMetaCharset(html, copied)).empty()) {
        const auto at = static_cast<size_t>(charset.data() - html.data());
        corrected += html.substr(copied, at - copied);
        corrected += namesCodePage(charset, codePage) ? charset : charsetName(codePage);
        copied = at + charset.size();
        log.logData("existingHtmlMetaCharset", charset);
    }
    if (copied == 0) return false;
    corrected += html.substr(copied);
    if (corrected == html) return false;
    log.logDataLong("emailCodePage", codePage);
    log.logInfo(
        "Replacing HTML charset META tag with charset that agrees with actual character encoding.");
    out = std::move(corrected);
    return true;
}

}  // namespace tv
