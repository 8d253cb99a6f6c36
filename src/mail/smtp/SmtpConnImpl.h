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
#include "base/Failure.h"
#include "base/SecureBuffer.h"
#include "log/LogBase.h"
#include "mail/smtp/SmtpCapabilities.h"
#include "mail/smtp/SmtpResponse.h"
#include "mail/smtp/SmtpSessionLog.h"
#include "mail/smtp/SmtpSettings.h"
#include "net/Socket2.h"
#include "net/stream/CallContext.h"

namespace tv {

class OAuth2ClientCredentials;
struct TlsSessionSlot;

class SmtpConnImpl {
public:
    SmtpConnImpl();
    ~SmtpConnImpl();  // as sayGoodbye
    SmtpConnImpl(const SmtpConnImpl&) = delete;
    SmtpConnImpl& operator=(const SmtpConnImpl&) = delete;

    SmtpSettings settings;

    // Where the TLS session of the last connection waits for the next one. May be lent to another
    // connection object.
    const std::shared_ptr<TlsSessionSlot>& tlsSessions() const { return tlsSessions_; }
    void lendTlsSessions(std::shared_ptr<TlsSessionSlot> slot) { tlsSessions_ = std::move(slot); }
    // TLS session and access token of before are not used again.
    void forgetSecrets();

    // A greeted connection, the open one if it still serves. On failure it is closed.
    Failure smtpConnect(CallContext& call);
    // The same, logged in unless there is nothing to log in with.
    Failure smtpConnectAndAuthenticate(CallContext& call, bool skipAuthentication);

    // One command with its line end. A secret one is shown as "{PasswordOrCredentials}". What
    // fails from here to sendData closes the connection.
    Failure sendCmdToSmtp(CallContext& call, std::string_view command, bool secret);
    // The same in two steps: commands queued one by one leave together, in one write.
    Failure queueCommand(LogBase& log, std::string_view command, bool secret);
    Failure sendQueued(CallContext& call);
    // command tells what the reply answers. It fails where no reply came or none that can be read;
    // what the reply says is the caller's to judge.
    Failure readSmtpResponse(CallContext& call, std::string_view command, SmtpResponse& reply);
    Failure smtpSendGet2(CallContext& call, std::string_view command, SmtpResponse& reply);
    // Anything but success closes: nobody knows what the server takes the next line for. It follows
    // a failure that is the one to be told; its own stands in the log alone.
    void smtpRset(CallContext& call);
    void smtpQuit(CallContext& call);
    void closeSmtpConnection(CallContext& call);
    // Ends an open connection, with QUIT where that makes sense, waiting at most five seconds.
    void sayGoodbye();

    // Bytes of message data; the transcript does not see them. The last words of the server, where
    // there are any, are the failure.
    Failure sendData(CallContext& call, std::span<const uint8_t> bytes);
    void setTcpNoDelay(LogBase& log, bool on);

    // An exchange that does not come to its end (memory runs out in the middle) leaves the server
    // in an unknown state: an unsettled connection does not serve another send.
    void setUnsettled(bool unsettled) { unsettled_ = unsettled; }
    // Nothing unread has come and the connection stands; looks once, without waiting.
    bool isQuiet() { return socket_ && socket_->isQuiet(); }
    // Something has come that no reply was made of yet.
    bool hasInput() const { return socket_ && socket_->hasBufferedInput(); }

    bool isConnected() const { return socket_ && socket_->isConnected(); }
    void countTransaction() { ++transactions_; }
    // The connection has had all the transactions that the server allows.
    bool isUsedUp() const;
    // A session that could serve the next send, as far as one can tell without looking.
    bool seemsReady() const;
    bool isTls() const { return socket_ && socket_->isTls(); }
    // Of the newest connection, kept after its end.
    struct Peer {
        std::string address;  // numeric
        std::string tls;      // version and suite; empty: in clear
        std::string login;    // mechanism and user; empty: none
    };
    const Peer& peer() const { return peer_; }
    // What the last handshake of the open connection agreed on; null in clear.
    const tls::Negotiated* negotiated() const { return socket_ ? socket_->negotiated() : nullptr; }
    // What a login over this connection is bound to (RFC 5056); empty in clear.
    std::vector<uint8_t> channelBinding() const;
    void noteLogin(std::string_view mechanism, std::string_view user);
    // STARTTLS in the middle of a session, with a greeting before and after it. Failure may have
    // closed the connection.
    Failure upgradeForLogin(CallContext& call);
    bool isAuthenticated() const { return authenticated_; }
    void setAuthenticated(bool authenticated);
    // A login that the settings ask for does not take place on this connection: why, in sentences.
    void noteNoLogin(LogBase& log, const std::string& why);
    const std::string& noLogin() const { return noLogin_; }
    // The access token that the OAuth2 description of the settings stands for.
    Failure oauth2AccessToken(CallContext& call, SecureBuffer& token);
    // The server refused it. True if that was a kept one: the next may serve.
    bool oauth2TokenRefused();
    const SmtpCapabilities& capabilities() const { return capabilities_; }
    // How much of the last queued commands may have left.
    enum class Sent : uint8_t { Nothing, Part, All };
    Sent lastSent() const { return lastSent_; }
    SmtpSessionLog& sessionLog() { return sessionLog_; }

private:
    // Why the open connection does not serve any longer; empty if it does.
    std::string_view changedSetting() const;
    bool connectionIsReady(CallContext& call);
    bool automaticReset(CallContext& call);
    Failure logIn(CallContext& call);
    Failure openSession(CallContext& call);
    Failure openAndGreet(CallContext& call);
    Failure openTcp(CallContext& call);
    void notePeer();
    Failure smtpGreeting(CallContext& call);

    std::string localHostName(LogBase& log) const;
    Failure ehlo(CallContext& call);
    Failure ehloOrHelo(CallContext& call);
    Failure greetServer(CallContext& call, std::string_view verb);
    void takeCapabilities(LogBase& log, const SmtpResponse& reply);

    Failure startTls(CallContext& call, bool ehloFirst);
    Failure upgradeToTls(CallContext& call);
    Failure againWithoutTls13(LogBase& log, Failure first, const std::function<Failure()>& attempt);
    Failure upgradeIfPossible(CallContext& call);

    Failure noConnection(LogBase& log, std::string_view wanted);
    Failure receiveLine(CallContext& call, std::string_view command, bool isFirst,
                        DataBuffer& line);
    std::string adviceForSilence() const;
    std::string unfinishedLine(CallContext& call);
    [[nodiscard]] bool hideCredential(DataBuffer& line) const;
    void noteReplyLine(CallContext& call, std::string_view line);
    Failure badReply(CallContext& call, std::string_view command, std::string_view fault,
                     std::string_view line);
    void acceptReply(LogBase& log, const SmtpResponse& reply);
    std::string timeoutText(const Failure& failure) const;
    Failure sendBytes(CallContext& call, std::span<const uint8_t> bytes);
    std::optional<SmtpResponse> lastWords(CallContext& call, const Failure& failure);
    Failure failIo(CallContext& call, const Failure& failure, const std::string& step,
                   const std::string& advice = {});
    void touch();

    std::unique_ptr<Socket2> socket_;
    std::shared_ptr<TlsSessionSlot> tlsSessions_;
    std::unique_ptr<OAuth2ClientCredentials> tokenSource_;
    SmtpSettings made_;  // those of the open connection
    SmtpCapabilities capabilities_;
    bool authenticated_ = false;
    uint64_t transactions_ = 0;
    Peer peer_;
    std::string noLogin_;
    bool unsettled_ = false;
    bool withoutTls13_ = false;  // this attempt offers no TLS 1.3
    uint64_t lastActivityTickMs_ = 0;

    struct QueuedCommand {
        std::string shown;
        std::string name;
    };
    std::vector<QueuedCommand> queue_;
    DataBuffer queuedBytes_;
    bool queuedSecret_ = false;
    SecureBuffer
        credential_;  // as the last command bore it over the line; empty where it bore none
    Sent lastSent_ = Sent::Nothing;
    SmtpSessionLog sessionLog_;
};

}  // namespace tv
