// The facade of the e-mail object: each call becomes one of the object behind it, as long as that
// is alive.
#include "mime/TvEmail.h"

#include "mime/ClsEmail.h"

namespace tv {

TvEmail::TvEmail() : impl_(std::make_unique<ClsEmail>()) {}
TvEmail::~TvEmail() = default;

bool TvEmail::AddTo(const char* name, const char* address) {
    return impl_->isAlive() && impl_->AddTo(text(name), text(address));
}

bool TvEmail::AddCC(const char* name, const char* address) {
    return impl_->isAlive() && impl_->AddCC(text(name), text(address));
}

bool TvEmail::AddBcc(const char* name, const char* address) {
    return impl_->isAlive() && impl_->AddBcc(text(name), text(address));
}

void TvEmail::put_From(const char* address) {
    if (impl_->isAlive()) impl_->put_FromAddress(text(address));
}

void TvEmail::put_Subject(const char* subject) {
    if (impl_->isAlive()) impl_->put_Subject(text(subject));
}

bool TvEmail::SetHtmlBody(const char* html) {
    return impl_->isAlive() && impl_->SetHtmlBody(text(html));
}

bool TvEmail::AddFileAttachment(const char* path) {
    XString contentType;
    return impl_->isAlive() && impl_->AddFileAttachment(text(path), contentType);
}

bool TvEmail::AddRelatedFile(const char* path, TvString& contentId) {
    XString id;
    if (!impl_->isAlive() || !impl_->AddRelatedFile(text(path), id)) return false;
    contentId = TvString(id, utf8_);
    return true;
}

void TvEmail::ClearBcc() {
    if (impl_->isAlive()) impl_->ClearBcc();
}

void TvEmail::ClearCC() {
    if (impl_->isAlive()) impl_->ClearCC();
}

void TvEmail::ClearTo() {
    if (impl_->isAlive()) impl_->ClearTo();
}

void TvEmail::KeepFrom() {
    if (impl_->isAlive()) impl_->KeepFrom();
}

void TvEmail::RemovePlainTextAlternative() {
    if (impl_->isAlive()) impl_->RemovePlainTextAlternative();
}

void TvEmail::RemoveHtmlAlternative() {
    if (impl_->isAlive()) impl_->RemoveHtmlAlternative();
}

void TvEmail::DropAttachments() {
    if (impl_->isAlive()) impl_->DropAttachments();
}

void TvEmail::DropRelatedItems() {
    if (impl_->isAlive()) impl_->DropRelatedItems();
}

TvString TvEmail::LastErrorText() {
    return impl_->isAlive() ? TvString(impl_->lastErrorText(), utf8_) : TvString();
}

XString TvEmail::text(const char* host) const {
    return XString::fromHost(host, utf8_);
}

}  // namespace tv
