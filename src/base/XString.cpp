// The conversions at the borders and the wiping of secrets. A secret never changes in place: the
// new text is made first, then the old block is wiped.
#include "base/XString.h"

#include "base/Ascii.h"
#include "base/CodePage.h"
#include "platform/SysHost.h"
#include "platform/SysWipe.h"

namespace tv {

XString::XString(XString&& other) noexcept : secret_(other.secret_) {
    text_.swap(other.text_);
    other.wipe();  // a short text lives inside the object and stays behind
}

XString& XString::operator=(const XString& other) {
    if (this != &other) {
        std::string next = other.text_;
        wipe();
        text_.swap(next);
        secret_ = other.secret_;
    }
    return *this;
}

XString& XString::operator=(XString&& other) noexcept {
    if (this != &other) {
        wipe();
        text_.swap(other.text_);
        secret_ = other.secret_;
        other.wipe();
    }
    return *this;
}

XString XString::fromHost(const char* text, bool isUtf8) {
    const std::string_view bytes = text ? std::string_view(text) : std::string_view();
    return isUtf8 && isValidUtf8(bytes) ? XString(bytes) : fromAnsi(bytes);
}

XString XString::fromAnsi(std::string_view bytes) {
    XString out;
    out.text_ =
        isAscii(bytes) ? std::string(bytes) : codePageToUtf8(plat::sysHost().ansiCodePage(), bytes);
    return out;
}

void XString::setUtf8(std::string_view utf8) {
    std::string next(utf8);
    wipe();
    text_.swap(next);
}

std::string XString::ansi() const {
    return isAscii(text_) ? text_ : utf8ToCodePageLossy(plat::sysHost().ansiCodePage(), text_);
}

void XString::trim() {
    setUtf8(trimmed(text_));
}

void XString::toUpperAscii() {
    for (char& c : text_) {
        c = asciiUpper(c);
    }
}

void XString::replaceAll(std::string_view wanted, std::string_view by) {
    setUtf8(tv::replaceAll(text_, wanted, by));
}

bool XString::equalsIgnoreCase(std::string_view utf8) const {
    return tv::equalsIgnoreCase(text_, utf8);
}

void XString::wipe() noexcept {
    if (secret_ && text_.capacity() != 0) {
        text_.resize(text_.capacity());  // never allocates
        plat::wipe(text_.data(), text_.size());
    }
    text_.clear();
}

}  // namespace tv
