// One message as its host composes it: addresses, subject, HTML body, logo, attachments.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/XString.h"
#include "log/ClsBase.h"
#include "mime/Email2.h"

namespace tv {

class ClsEmail : public ClsBase {
public:
    ClsEmail();
    ~ClsEmail() override;

    bool isAlive() const { return alive_ == kAlive; }

    bool AddTo(const XString& name, const XString& address);
    bool AddCC(const XString& name, const XString& address);
    bool AddBcc(const XString& name, const XString& address);
    // Ignored without a word when the text holds no "@".
    void put_FromAddress(const XString& address);
    void put_Subject(const XString& subject);
    bool SetHtmlBody(const XString& html);
    bool AddFileAttachment(const XString& path, XString& contentType);
    // contentId comes without angle brackets.
    bool AddRelatedFile(const XString& path, XString& contentId);
    void ClearTo();
    void ClearCC();
    void ClearBcc();
    void DropAttachments();
    void DropRelatedItems();
    // Removes the plain-text and the HTML body; what is left renders without one.
    void RemovePlainTextAlternative();
    void RemoveHtmlAlternative();
    // The sender stays for the next message, too; who is named from now on takes its place with
    // address and name. Hosts name their sender once and send many messages.
    void KeepFrom();

    // For the mail manager, which logs into a log of its own.

    // What was named as the sender last, if it is no address: the message must not go out as if it
    // came from nobody, or from who was named before. Empty where nothing stands against sending.
    const std::string& unusableFrom() const { return unusableFrom_; }
    // The envelope sender by the order of its sources; logs which one won (verbose).
    std::string getSmtpReversePath(LogBase& log) const;
    // Bare addresses of To, Cc and Bcc, in that order.
    std::vector<std::string> getAllRecipientAddressesA() const;
    // The copy that is sent, with a fresh Message-ID and Date; nullptr with the reason logged. The
    // message itself never changes; bodies are shared with it, not copied.
    std::unique_ptr<Email2> createEmailForSending(LogBase& log, bool autoMessageId) const;

private:
    // A number that stray memory hardly holds.
    static constexpr uint32_t kAlive = 0x7A3C59E1;

    Email2* root(LogBase& log);
    bool addRecipients(LogBase& log, Email2::Recipients kind, const XString& name,
                       const XString& address);
    void clearRecipients(Email2::Recipients kind, std::string_view operation);
    void chooseCharset(LogBase& log, Email2& root, std::string_view utf8);
    bool setHtmlBody(LogBase& log, Email2& root, std::string_view utf8);
    bool addFileAttachment(LogBase& log, Email2& root, std::string_view path, XString& contentType);
    bool addRelatedFile(LogBase& log, Email2& root, std::string_view path, XString& contentId);
    void startAfreshIfEmpty(LogBase& log, Email2& root);
    template <class Change>
    void change(std::string_view operation, Change change);

    uint32_t alive_ = kAlive;
    std::unique_ptr<Email2> root_;
    std::string unusableFrom_;
    bool fromIsKept_ = false;  // named for an earlier message: its name is of no other address
};

}  // namespace tv
