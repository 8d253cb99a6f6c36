// A Content-Type field taken apart: media type, charset and parameters.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tv {

// A charset by its Windows code page and its name in MIME; 0 and empty while unset.
struct _tvCharset {
    uint32_t codePage = 0;
    std::string name;
};

class _tvContentType {
public:
    _tvContentType() = default;
    explicit _tvContentType(std::string_view media) { setMediaType(media); }

    void setMediaType(std::string_view media);  // kept in lower case
    const std::string& mediaType() const { return mediaType_; }
    bool is(std::string_view media) const { return mediaType_ == media; }
    bool isText() const { return mediaType_.starts_with("text/"); }
    bool isMultipart() const { return mediaType_.starts_with("multipart/"); }

    void setCharset(uint32_t codePage);
    const _tvCharset& charset() const { return charset_; }

    // The field's value on one line, but for an encoded name, which stands on lines of its own.
    // headerCodePage is the charset for words of a name outside ASCII; flowed = false leaves the
    // format parameter out.
    std::string value(uint32_t headerCodePage, bool flowed = true) const;

    std::string boundary;
    std::string name;  // UTF-8
    bool formatFlowed = false;
    bool withoutCharset = false;  // of text whose bytes no charset describes

private:
    std::string mediaType_;
    _tvCharset charset_;
};

}  // namespace tv
