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
#include "log/LogBase.h"
#include "mail/oauth2/OAuth2ClientCredentials.h"
#include "mail/smtp/SmtpCapabilities.h"
#include "mail/smtp/SmtpResponse.h"
#include "mail/smtp/SmtpSessionLog.h"
#include "mail/smtp/SmtpSettings.h"
#include "mail/smtp/SmtpStatus.h"
#include "net/Socket2.h"
#include "net/stream/SChannelTolvane.h"
#include "net/stream/SocketParams.h"

namespace tv {

class SmtpConnImpl {
public:
    // Why the last command or reply did not go through. After any of them the connection is closed.
    enum class IoFailure : uint8_t { None, Lost, Timeout, Aborted, BadReply };

    SmtpConnImpl() = default;
    ~SmtpConnImpl();  // says QUIT where that makes sense, waiting at most five seconds
    SmtpConnImpl(const SmtpConnImpl&) = delete;
    SmtpConnImpl& operator=(const SmtpConnImpl&) = delete;

    SmtpSettings settings;

    // Where the TLS session of the last connection waits for the next one. May be lent to another
    // connection object.
    const std::shared_ptr<TlsSessionSlot>& tlsSessions() const { return tlsSessions_; }
    void lendTlsSessions(std::shared_ptr<TlsSessionSlot> slot) { tlsSessions_ = std::move(slot); }

    // A greeted connection, the open one if it still serves. On failure it is closed.
    bool smtpConnect(SocketParams& params, LogBase& log);
    // The same, logged in unless there is nothing to log in with.
    bool smtpConnectAndAuthenticate(bool skipAuthentication, SocketParams& params, LogBase& log);

    // One command with its line end. A secret one is shown as "{PasswordOrCredentials}".
    bool sendCmdToSmtp(std::string_view command, bool secret, LogBase& log, SocketParams& params);
    // The same in two steps: commands queued one by one leave together, in one write.
    bool queueCommand(std::string_view command, bool secret, LogBase& log);
    bool sendQueued(LogBase& log, SocketParams& params);
    // command tells what the reply answers. Nothing comes back where no reply came or none that can
    // be read; the reason is in the outcome.
    std::optional<SmtpResponse> readSmtpResponse(std::string_view command, SocketParams& params,
                                                 LogBase& log);
    std::optional<SmtpResponse> smtpSendGet2(std::string_view command, SocketParams& params,
                                             LogBase& log);
    bool smtpNoop(LogBase& log, SocketParams& params);
    // Anything but success closes: nobody knows what the server takes the next line for.
    bool smtpRset(LogBase& log, SocketParams& params);
    void smtpQuit(LogBase& log, SocketParams& params);
    void closeSmtpConnection(LogBase& log, SocketParams& params);

    // Bytes of message data; the transcript does not see them. Failure leaves its reason: the last
    // words of the server, where there are any.
    bool sendData(std::span<const uint8_t> bytes, SocketParams& params, LogBase& log);
    void setTcpNoDelay(bool on, LogBase& log);

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
    bool upgradeForLogin(SocketParams& params, LogBase& log);
    bool isAuthenticated() const { return authenticated_; }
    void setAuthenticated(bool authenticated);
    // A login that the settings ask for does not take place on this connection: why, in sentences.
    void noteNoLogin(const std::string& why, LogBase& log);
    // The access token that the OAuth2 description of the settings stands for.
    bool oauth2AccessToken(SecureBuffer& token, SocketParams& params, LogBase& log);
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
    void fail(SmtpStatus status, const std::string& reason, LogBase& log);
    SmtpOutcome& outcome() { return outcome_; }
    SmtpSessionLog& sessionLog() { return sessionLog_; }

private:
    // Why the open connection does not serve any longer; empty if it does.
    std::string_view changedSetting() const;
    bool connectionIsReady(SocketParams& params, LogBase& log);
    bool automaticReset(SocketParams& params, LogBase& log);
    bool logIn(SocketParams& params, LogBase& log);
    bool openSession(SocketParams& params, LogBase& log);
    bool openAndGreet(SocketParams& params, LogBase& log);
    bool openTcp(SocketParams& params, LogBase& log);
    bool smtpGreeting(SocketParams& params, LogBase& log);

    std::string localHostName(LogBase& log) const;
    bool ehlo(SocketParams& params, LogBase& log);
    bool ehloOrHelo(SocketParams& params, LogBase& log);
    bool greetServer(std::string_view verb, SocketParams& params, LogBase& log);
    void takeCapabilities(const SmtpResponse& reply, LogBase& log);

    bool startTls(bool ehloFirst, bool& serverRefused, SocketParams& params, LogBase& log);
    bool upgradeToTls(SocketParams& params, LogBase& log);
    bool againWithoutTls13(const std::function<bool()>& attempt, LogBase& log);
    bool upgradeIfPossible(SocketParams& params, LogBase& log);

    bool noConnection(std::string_view wanted, LogBase& log);
    bool receiveLine(std::string_view command, bool isFirst, DataBuffer& line, SocketParams& params,
                     LogBase& log);
    std::string adviceForSilence() const;
    std::string unfinishedLine(SocketParams& params, LogBase& log);
    void noteReplyLine(std::string_view line, SocketParams& params, LogBase& log);
    void badReply(std::string_view command, std::string_view fault, std::string_view line,
                  SocketParams& params, LogBase& log);
    std::optional<SmtpResponse> acceptReply(SmtpResponse& reply, LogBase& log);
    std::string timeoutText(const SocketParams& params) const;
    bool sendBytes(std::span<const uint8_t> bytes, SocketParams& params, LogBase& log);
    bool heardLastWords(SocketParams& params, LogBase& log);
    void failIo(const std::string& step, SocketParams& params, LogBase& log,
                const std::string& advice = {});
    void touch();

    std::unique_ptr<Socket2> socket_;
    std::shared_ptr<TlsSessionSlot> tlsSessions_ = std::make_shared<TlsSessionSlot>();
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
