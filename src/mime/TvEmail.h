// The e-mail object's face to a host: 8-bit strings in, flags out. Utf8 tells how strings are read.
// Its owner lets one call at a time use it.
#pragma once

#include <memory>

#include "base/TvString.h"

namespace tv {

class ClsEmail;

class TvEmail {
public:
    TvEmail();
    ~TvEmail();
    TvEmail(const TvEmail&) = delete;
    TvEmail& operator=(const TvEmail&) = delete;

    bool get_Utf8() const { return utf8_; }
    void put_Utf8(bool utf8) { utf8_ = utf8; }

    bool AddTo(const char* name, const char* address);
    bool AddCC(const char* name, const char* address);
    bool AddBcc(const char* name, const char* address);
    void put_From(const char* address);
    void put_Subject(const char* subject);
    bool SetHtmlBody(const char* html);
    bool AddFileAttachment(const char* path);
    // The Content-ID without angle brackets; false on failure.
    bool AddRelatedFile(const char* path, TvString& contentId);
    // Everything that makes up one message, ready for the next, which has the same sender until
    // another is named.
    void ClearBcc();
    void ClearCC();
    void ClearTo();
    void KeepFrom();
    void RemovePlainTextAlternative();
    void RemoveHtmlAlternative();
    void DropAttachments();
    void DropRelatedItems();
    // Always UTF-8 while Utf8 is set; in the ANSI code page otherwise.
    TvString LastErrorText();

    ClsEmail& impl() { return *impl_; }

private:
    XString text(const char* host) const;

    std::unique_ptr<ClsEmail> impl_;
    bool utf8_ = false;
};

}  // namespace tv
