// The facade of the mail manager: each call becomes one of the object behind it.
#include "mail/TvMailMan.h"

#include "base/XString.h"
#include "mail/ClsMailMan.h"
#include "mime/ClsEmail.h"
#include "mime/TvEmail.h"

namespace tv {

TvMailMan::TvMailMan() : impl_(std::make_unique<ClsMailMan>()) {}

TvMailMan::~TvMailMan() = default;

void TvMailMan::put_SmtpHost(const char* host) {
    impl_->setProperty("SmtpHost", XString::fromHost(host, utf8_));
}

void TvMailMan::put_SmtpPort(int32_t port) {
    impl_->setProperty("SmtpPort", port);
}

void TvMailMan::put_SmtpUsername(const char* user) {
    impl_->setProperty("SmtpUsername", XString::fromHost(user, utf8_));
}

void TvMailMan::put_SmtpPassword(const char* password) {
    XString secret = XString::fromHost(password, utf8_);
    secret.markSecret();
    impl_->setProperty("SmtpPassword", secret);
}

void TvMailMan::put_SmtpAuthMethod(const char* method) {
    impl_->setProperty("SmtpAuthMethod", XString::fromHost(method, utf8_));
}

void TvMailMan::put_LoginDomain(const char* domain) {
    impl_->setProperty("LoginDomain", XString::fromHost(domain, utf8_));
}

void TvMailMan::put_SmtpSsl(bool on) {
    impl_->setProperty("SmtpSsl", on);
}

void TvMailMan::put_StartTLS(bool on) {
    impl_->setProperty("StartTLS", on);
}

void TvMailMan::put_VerboseLogging(bool on) {
    impl_->setProperty("VerboseLogging", on);
}

void TvMailMan::put_DebugLogFilePath(const char* path) {
    impl_->setProperty("DebugLogFilePath", XString::fromHost(path, utf8_));
}

void TvMailMan::put_SentMailLogFile(const char* path) {
    impl_->setProperty("SentMailLogFile", XString::fromHost(path, utf8_));
}

bool TvMailMan::VerifySmtpConnection(TvEmail& email, ProgressMonitor* monitor) {
    return impl_->VerifySmtpConnection(monitor, &email.impl());
}

bool TvMailMan::SendEmail(TvEmail& email, ProgressMonitor* monitor) {
    return impl_->SendEmail(email.impl(), monitor);
}

void TvMailMan::ClearSmtpSessionLog() {
    impl_->ClearSmtpSessionLog();
}

TvString TvMailMan::SmtpSessionLog() {
    return {impl_->SmtpSessionLog(), utf8_};
}

TvString TvMailMan::LastErrorText() {
    return {impl_->lastErrorText(), utf8_};
}

}  // namespace tv
