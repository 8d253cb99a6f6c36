// The SMTP session: connects, greets, upgrades to TLS, sends commands and reads replies. It stays
// open between sends and is used again while nothing that matters has changed.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/DataBuffer.h"
#include "base/SecureBuffer.h"
#include "log/LogBase.h"
#include "mail/smtp/SmtpCapabilities.h"
#include "mail/smtp/SmtpResponse.h"
#include "mail/smtp/SmtpSessionLog.h"
#include "mail/smtp/SmtpSettings.h"
#include "mail/smtp/SmtpStatus.h"
#include "net/Socket2.h"
#include "net/stream/CallContext.h"

namespace tv {

class OAuth2ClientCredentials;
struct TlsSessionSlot;

class SmtpConnImpl {
public:
    // Why the last command or reply did not go through. After any of them the connection is closed.
    enum class IoFailure : uint8_t { None, Lost, Timeout, Aborted, BadReply };

    SmtpConnImpl();
    ~SmtpConnImpl();  // says QUIT where that makes sense, waiting at most five seconds
    SmtpConnImpl(const SmtpConnImpl&) = delete;
    SmtpConnImpl& operator=(const SmtpConnImpl&) = delete;

    SmtpSettings settings;

    // Where the TLS session of the last connection waits for the next one. May be lent to another
    // connection object.
    const std::shared_ptr<TlsSessionSlot>& tlsSessions() const { return tlsSessions_; }
    void lendTlsSessions(std::shared_ptr<TlsSessionSlot> slot) { tlsSessions_ = std::move(slot); }

    // A greeted connection, the open one if it still serves. On failure it is closed.
    bool smtpConnect(CallContext& call);
    // The same, logged in unless there is nothing to log in with.
    bool smtpConnectAndAuthenticate(CallContext& call, bool skipAuthentication);

    // One command with its line end. A secret one is shown as "{PasswordOrCredentials}".
    bool sendCmdToSmtp(CallContext& call, std::string_view command, bool secret);
    // The same in two steps: commands queued one by one leave together, in one write.
    bool queueCommand(LogBase& log, std::string_view command, bool secret);
    bool sendQueued(CallContext& call);
    // command tells what the reply answers. Nothing comes back where no reply came or none that can
    // be read; the reason is in the outcome.
    std::optional<SmtpResponse> readSmtpResponse(CallContext& call, std::string_view command);
    std::optional<SmtpResponse> smtpSendGet2(CallContext& call, std::string_view command);
    bool smtpNoop(CallContext& call);
    // Anything but success closes: nobody knows what the server takes the next line for.
    bool smtpRset(CallContext& call);
    void smtpQuit(CallContext& call);
    void closeSmtpConnection(CallContext& call);

    // Bytes of message data; the transcript does not see them. Failure leaves its reason: the last
    // words of the server, where there are any.
    bool sendData(CallContext& call, std::span<const uint8_t> bytes);
    void setTcpNoDelay(LogBase& log, bool on);

    // An exchange that does not come to its end (memory runs out in the middle) leaves the server
    // in an unknown state: an unsettled connection does not serve another send.
    void setUnsettled(bool unsettled) { unsettled_ = unsettled; }
    // Nothing unread has come and the connection stands; looks once, without waiting.
    bool isQuiet() { return socket_ && socket_->isQuiet(); }
    // Something has come that no reply was made of yet.
    bool hasInput() const { return socket_ && socket_->hasBufferedInput(); }
    // The reply just read came before the end of the message.
    void failEarly(LogBase& log);

    bool isConnected() const { return socket_ && socket_->isConnected(); }
    bool isTls() const { return socket_ && socket_->isTls(); }
    // STARTTLS in the middle of a session, with a greeting before and after it. Failure may have
    // closed the connection.
    bool upgradeForLogin(CallContext& call);
    bool isAuthenticated() const { return authenticated_; }
    void setAuthenticated(bool authenticated);
    // A login that the settings ask for does not take place on this connection: why, in sentences.
    void noteNoLogin(LogBase& log, const std::string& why);
    // The access token that the OAuth2 description of the settings stands for.
    bool oauth2AccessToken(CallContext& call, SecureBuffer& token);
    // The server refused it. True if that was a kept one: the next may serve.
    bool oauth2TokenRefused();
    const SmtpCapabilities& capabilities() const { return capabilities_; }
    IoFailure ioFailure() const { return ioFailure_; }
    // How much of the last queued commands may have left.
    enum class Sent : uint8_t { Nothing, Part, All };
    Sent lastSent() const { return lastSent_; }
    int32_t lastReplyCode() const { return lastReplyCode_; }
    int32_t lastStatus() const { return lastStatus_; }
    const std::string& lastReply() const { return lastReply_; }
    void clearLastReply();

    // Notes why the operation failed and writes it to the log.
    void fail(LogBase& log, SmtpStatus status, const std::string& reason);
    SmtpOutcome& outcome() { return outcome_; }
    SmtpSessionLog& sessionLog() { return sessionLog_; }

private:
    // Why the open connection does not serve any longer; empty if it does.
    std::string_view changedSetting() const;
    bool connectionIsReady(CallContext& call);
    bool automaticReset(CallContext& call);
    bool logIn(CallContext& call);
    bool openSession(CallContext& call);
    bool openAndGreet(CallContext& call);
    bool openTcp(CallContext& call);
    bool smtpGreeting(CallContext& call);

    std::string localHostName(LogBase& log) const;
    bool ehlo(CallContext& call);
    bool ehloOrHelo(CallContext& call);
    bool greetServer(CallContext& call, std::string_view verb);
    void takeCapabilities(LogBase& log, const SmtpResponse& reply);

    bool startTls(CallContext& call, bool ehloFirst, bool& serverRefused);
    bool upgradeToTls(CallContext& call);
    bool againWithoutTls13(LogBase& log, const std::function<bool()>& attempt);
    bool upgradeIfPossible(CallContext& call);

    bool noConnection(LogBase& log, std::string_view wanted);
    bool receiveLine(CallContext& call, std::string_view command, bool isFirst, DataBuffer& line);
    std::string adviceForSilence() const;
    std::string unfinishedLine(CallContext& call);
    void noteReplyLine(CallContext& call, std::string_view line);
    void badReply(CallContext& call, std::string_view command, std::string_view fault,
                  std::string_view line);
    std::optional<SmtpResponse> acceptReply(LogBase& log, SmtpResponse& reply);
    std::string timeoutText(const Failure& failure) const;
    Failure sendBytes(CallContext& call, std::span<const uint8_t> bytes);
    bool heardLastWords(CallContext& call, const Failure& failure);
    void failIo(CallContext& call, const Failure& failure, const std::string& step,
                const std::string& advice = {});
    void touch();

    std::unique_ptr<Socket2> socket_;
    std::shared_ptr<TlsSessionSlot> tlsSessions_;
    std::unique_ptr<OAuth2ClientCredentials> tokenSource_;
    SmtpSettings made_;  // those of the open connection
    SmtpCapabilities capabilities_;
    bool authenticated_ = false;
    std::string noLogin_;
    bool unsettled_ = false;
    bool withoutTls13_ = false;     // this attempt offers no TLS 1.3
    bool helloUnanswered_ = false;  // the last one did, and nothing came back
    uint64_t lastActivityTickMs_ = 0;

    struct QueuedCommand {
        std::string shown;
        std::string name;
    };
    std::vector<QueuedCommand> queue_;
    DataBuffer queuedBytes_;
    bool queuedSecret_ = false;
    Sent lastSent_ = Sent::Nothing;

    int32_t lastStatus_ = 0;
    int32_t lastReplyCode_ = 0;
    std::string lastReply_;
    IoFailure ioFailure_ = IoFailure::None;
    SmtpOutcome outcome_;
    SmtpSessionLog sessionLog_;
};

}  // namespace tv
