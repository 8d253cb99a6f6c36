// What happens to a message before it is sent: internal fields are applied, identity is renewed.
#include "base/CodePage.h"
#include "base/DateTime.h"
#include "mime/AddressList.h"
#include "mime/Email2.h"

namespace tv {
namespace {

// A CR or LF that is not one of a CR LF.
bool hasBareLineEnd(std::string_view text) {
    for (size_t i = text.find_first_of("\r\n"); i < text.size();
         i = text.find_first_of("\r\n", i + 2)) {
        if (text.substr(i, 2) != "\r\n") return true;
    }
    return false;
}

}  // namespace

std::string Email2::getSmtpReversePath(LogBase& log) const {
    constexpr struct {
        std::string_view source;
        std::string_view field;  // none: the sender's own record
    } kSources[] = {
        {"fromTvxBounceAddr", "TVX-Bounce-Address"},
        {"fromReturnPath", "return-path"},
        {"fromAddr822", {}},
        {"fromMimeHeader", "from"},
        {"fromReplyTo", "reply-to"},
    };
    for (const auto& [source, field] : kSources) {
        std::string address = field.empty() ? from_.address() : firstAddress(header_.get(field));
        if (address.empty()) continue;
        log.logDataVerbose(source, address);
        return address;
    }
    log.logVerbose("fromNothing");
    return {};
}

std::unique_ptr<Email2> Email2::createForSending(LogBase& log, bool autoMessageId) const {
    std::unique_ptr<Email2> copy = clone(std::make_shared<_tvEmailCommon>(*common_));
    copy->date_ = plat::sysClock().localTime();
    copy->header_.set("Date", mailDate(copy->date_));
    if (autoMessageId) {
        log.logInfo("Auto-generating Message-ID");
        copy->messageIdBytes_.clear();
        if (!copy->generateMessageId(log)) return nullptr;
    } else {
        log.logInfo("Not auto-generating Message-ID");
    }
    copy->applyInternalFields();
    if (copy->header_.has("DKIM-Signature") || copy->header_.has("DomainKey-Signature")) {
        log.logInfo(
            "Warning: DKIM/DomainKey signatures will become invalid when email is sent by calling "
            "SendEmail.");
        log.logInfo("DKIM signed email MUST be sent using the SendMimeBytes or SendMime methods.");
    }
    return copy;
}

void Email2::showRelatedInline() {
    if (isRelatedItem()) setDisposition("inline", contentType_.name);
    for (const auto& child : children_) {
        child->showRelatedInline();
    }
}

void Email2::keepTextFilesExact() {
    const std::string_view text = bodyText();
    const bool safe =
        isValidUtf8(text) && text.find('\0') == std::string_view::npos && !hasBareLineEnd(text);
    if (isFile_ && contentType_.isText() && !safe) {
        contentType_.withoutCharset = true;
        setTransferEncoding("base64");
    }
    for (const auto& child : children_) {
        child->keepTextFilesExact();
    }
}

void Email2::applyInternalFields() {
    if (equalsIgnoreCase(header_.get("TVX-ReturnReceipt"), "YES")) {
        header_.set("Disposition-Notification-To", '<' + from_.address() + '>');
        header_.remove("TVX-ReturnReceipt");
    }
    header_.remove("TVX-Bounce-Address");
    header_.remove("Return-Path");
    const std::string bcc(header_.get("TVX-Bcc"));
    if (!bcc.empty()) {
        recipients(Recipients::Bcc).clear();  // the field speaks for itself
        header_.set("Bcc", bcc);
        header_.remove("TVX-Bcc");
    }
}

}  // namespace tv
