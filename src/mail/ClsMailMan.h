// The mail manager: SMTP settings, one long-lived connection, the trial connection and the send.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/Failure.h"
#include "log/ClsBase.h"
#include "mail/smtp/SmtpConnImpl.h"
#include "mail/smtp/SmtpSend.h"
#include "mail/smtp/SmtpSettings.h"
#include "settings/Settings.h"

namespace tv {

class ClsEmail;
class Email2;
class ProgressMonitor;

class ClsMailMan : public ClsBase {
public:
    // Sets a property by its name; numbers in decimal, flags as 0 or 1. False for an unknown name
    // or a value that is none of its kind; then nothing changes.
    bool setProperty(std::string_view name, const XString& value);
    bool setProperty(std::string_view name, int64_t value);
    // The names that setProperty knows.
    static std::vector<std::string_view> propertyNames();

    // The settings file that counts for what follows, over the properties; null: none.
    void useSettings(std::shared_ptr<const settings::Settings> file);
    // An open connection to the server could serve the next send.
    bool seemsConnected();
    // Ends the connection that a send left open.
    void closeConnection();
    // The last send failed, and the server had not heard of its message yet.
    bool failedBeforeMessage();
    // Why the last trial failed, and the last send; none where it did not. Not under the lock.
    const Failure& trialFailure() const { return trialFailure_; }
    const Failure& sendFailure() const { return lastFailure_; }
    // The server had taken a login on the connection of the last send.
    bool wasLoggedIn() const { return !smtp_.peer().login.empty(); }

    // Connects and greets the server over a connection of its own, without logging in. email: what
    // is to be sent then, for the line of the log of sends where that comes to nothing.
    bool VerifySmtpConnection(ProgressMonitor* monitor = nullptr, const ClsEmail* email = nullptr);
    // Sends one message. The message itself never changes.
    bool SendEmail(const ClsEmail& email, ProgressMonitor* monitor = nullptr);
    // A line of the log of sends for a message that got neither trial nor send.
    void noteUnsent(const ClsEmail& email, const Failure& failure);

    void ClearSmtpSessionLog();
    XString SmtpSessionLog();

    // Of the last send; its status word lasts as long as the program.
    std::string_view lastSendStatus();
    std::vector<std::string> acceptedRecipients();
    std::vector<std::string> rejectedRecipients();

    // For the mail manager's own rooms and their tests; not under the lock.
    SmtpSettings& settings() { return smtp_.settings; }

private:
    void correctSettings(LogBase& log);
    Failure tryConnection(CallContext& call, SmtpConnImpl& trial);
    Failure sendEmailInner(CallContext& call, const ClsEmail& email, SmtpSend& send);
    std::unique_ptr<Email2> prepare(LogBase& log, const ClsEmail& email, SmtpSend& send);
    void recordSend(LogBase& log, const SmtpSend& send, const SmtpConnImpl::Peer& peer,
                    const Failure& failure, uint64_t startMs);
    void recordUnsent(LogBase& log, const ClsEmail& email, const SmtpConnImpl::Peer& peer,
                      const Failure& failure, uint64_t startMs);
    Failure sendMimeInner(CallContext& call, SmtpSend& send);
    Failure ensureSmtpSession(CallContext& call);
    Failure sendOverSession(CallContext& call, SmtpSend& send);
    std::string sizeComplaint(const SmtpSend& send) const;
    void hintAtSize(LogBase& log, const SmtpSend& send, Failure& failure);
    Failure reconnectAndSend(CallContext& call, SmtpSend& send);
    Failure stoppedByApplication(CallContext& call);
    void tellTranscript(const Failure& failure);

    std::shared_ptr<const settings::Settings> file_;
    Failure trialFailure_;
    Failure lastFailure_;   // of a send
    uint64_t trialMs_ = 0;  // what a trial has taken of the time of the send that follows
    SmtpConnImpl smtp_;
    std::vector<std::string> acceptedRecipients_;
    std::vector<std::string> rejectedRecipients_;
};

}  // namespace tv
