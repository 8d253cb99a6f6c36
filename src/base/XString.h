// The library's string: text as UTF-8, converted to and from the process's ANSI code page at the
// borders. A string marked secret is wiped from memory when it changes or dies and is shown in no
// log (see LogBase::logData).
#pragma once

#include <string>
#include <string_view>

namespace tv {

class XString {
public:
    XString() = default;
    explicit XString(std::string_view utf8) : text_(utf8) {}
    XString(const XString& other) : text_(other.text_), secret_(other.secret_) {}
    XString(XString&& other) noexcept;
    XString& operator=(const XString& other);
    XString& operator=(XString&& other) noexcept;
    ~XString() { wipe(); }

    // A host's zero-terminated string; nullptr is the empty string. Read as UTF-8 or as ANSI text;
    // bytes announced as UTF-8 that are none are taken as ANSI text.
    static XString fromHost(const char* text, bool isUtf8);
    static XString fromAnsi(std::string_view bytes);

    void setUtf8(std::string_view utf8);
    void clear() { setUtf8({}); }
    // From now on wiped on change and destruction. The mark goes along with copies and moves.
    void markSecret() { secret_ = true; }
    bool isSecret() const { return secret_; }

    std::string_view utf8() const { return text_; }
    // Characters without a counterpart in the ANSI code page become "?".
    std::string ansi() const;
    bool empty() const { return text_.empty(); }

    void trim();
    void toUpperAscii();
    void replaceAll(std::string_view wanted, std::string_view by);

    // Same text; the mark does not count.
    bool operator==(const XString& other) const { return text_ == other.text_; }
    bool operator==(std::string_view utf8) const { return text_ == utf8; }
    bool equalsIgnoreCase(std::string_view utf8) const;

private:
    void wipe() noexcept;

    std::string text_;
    bool secret_ = false;
};

}  // namespace tv
