// The mail manager's face to a host: 8-bit strings in, flags out. Utf8 tells how strings are read.
// Its owner lets one call at a time use it.
#pragma once

#include <cstdint>
#include <memory>

#include "base/TvString.h"

namespace tv {

class ClsMailMan;
class ProgressMonitor;
class TvEmail;

class TvMailMan {
public:
    TvMailMan();
    ~TvMailMan();
    TvMailMan(const TvMailMan&) = delete;
    TvMailMan& operator=(const TvMailMan&) = delete;

    bool get_Utf8() const { return utf8_; }
    void put_Utf8(bool utf8) { utf8_ = utf8; }

    void put_SmtpHost(const char* host);
    void put_SmtpPort(int32_t port);
    void put_SmtpUsername(const char* user);
    void put_SmtpPassword(const char* password);
    void put_SmtpAuthMethod(const char* method);
    void put_LoginDomain(const char* domain);
    void put_SmtpSsl(bool on);
    void put_StartTLS(bool on);
    void put_VerboseLogging(bool on);
    void put_DebugLogFilePath(const char* path);
    void put_SentMailLogFile(const char* path);

    // email: what is to be sent then.
    bool VerifySmtpConnection(TvEmail& email, ProgressMonitor* monitor = nullptr);
    bool SendEmail(TvEmail& email, ProgressMonitor* monitor = nullptr);
    void ClearSmtpSessionLog();
    TvString SmtpSessionLog();
    TvString LastErrorText();

    ClsMailMan& impl() { return *impl_; }

private:
    std::unique_ptr<ClsMailMan> impl_;
    bool utf8_ = false;
};

}  // namespace tv
