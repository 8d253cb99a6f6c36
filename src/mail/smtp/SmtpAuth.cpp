// From the settings and what the server offers to one mechanism, its exchange and second tries; or
// to the reason why there is none.
#include "mail/smtp/SmtpAuth.h"

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/Ascii.h"
#include "log/LogContextExitor.h"
#include "mail/oauth2/OAuth2Messages.h"
#include "mail/sasl/SaslCramMd5.h"
#include "mail/sasl/SaslLogin.h"
#include "mail/sasl/SaslNtlm.h"
#include "mail/sasl/SaslPackage.h"
#include "mail/sasl/SaslPlain.h"
#include "mail/sasl/SaslScram.h"
#include "mail/sasl/SaslXoauth2.h"
#include "mail/smtp/SaslExchange.h"
#include "mail/smtp/SmtpConnImpl.h"
#include "mail/smtp/SmtpFailure.h"
#include "platform/SysWipe.h"

namespace tv {
namespace smtp {

AuthMechanism chooseMechanism(const AuthMechanisms& offered, bool havePassword, bool haveToken) {
    if (haveToken && (offered.login || offered.xoauth2)) return AuthMechanism::Xoauth2;
    if (!havePassword) return AuthMechanism::None;
    if (offered.login) return AuthMechanism::Login;
    if (offered.ntlm) return AuthMechanism::Ntlm;
    if (offered.msn) return AuthMechanism::Msn;
    if (offered.cramMd5) return AuthMechanism::CramMd5;
    if (offered.plain) return AuthMechanism::Plain;
    if (offered.digestMd5) return AuthMechanism::DigestMd5;
    if (offered.gssapi) return AuthMechanism::Gssapi;
    if (offered.kerberosV4) return AuthMechanism::KerberosV4;
    if (offered.anonymous) return AuthMechanism::Anonymous;
    return AuthMechanism::None;
}

}  // namespace smtp

namespace {

// What the settings come down to for this session.
struct Login {
    std::string method;
    XString user;
    XString password;
    XString token;

    bool havePassword() const { return !user.empty() && !password.empty(); }
    bool haveToken() const { return !user.empty() && !token.empty(); }
    // For NTLM: the system's package makes it.
    bool isOfLoggedOnUser() const {
        const std::string_view name = trimmed(user.utf8());
        return name.empty() || equalsIgnoreCase(name, "default");
    }
};

Login loginOf(LogBase& log, const SmtpConnImpl& connection) {
    const SmtpSettings& settings = connection.settings;
    Login login{std::string(settings.authMethod.utf8()), settings.userName, settings.password,
                settings.oauth2Token};
    // A server that writes "AUTH" without a mechanism takes no login.
    if (login.method.empty() && connection.capabilities().authWithoutMechanisms &&
        settings.channelBinding != ChannelBinding::Required) {
        login.method = "NONE";
        return login;
    }
    // NTLM without credentials stands for the user who is logged on.
    if (equalsIgnoreCase(login.method, "NTLM")) {
        if (login.user.empty()) login.user.setUtf8("default");
        if (login.password.empty()) login.password.setUtf8("default");
    }
    const bool noSecret = login.password.empty() && login.token.empty();
    if (login.user.empty()) log.logInfo("No SMTP login provided.");
    if (noSecret) log.logInfo("No SMTP password or OAuth2 access token provided.");
    if (login.user.empty() || noSecret) {
        login.method = "NONE";
        log.logInfo("Skipping SMTP authentication because no login/password provided.");
    }
    return login;
}

void logServerAndUser(LogBase& log, const SmtpSettings& settings, const Login& login) {
    log.logDataX("smtp_host", settings.smtpHost);
    log.logDataLong("smtp_port", settings.smtpPort);
    if (!settings.loginDomain.empty()) log.logDataX("domain", settings.loginDomain);
    log.logData("smtp_user", login.user.empty() ? "NULL" : login.user.utf8());
    if (!settings.authMethod.empty()) log.logDataX("auth-method", settings.authMethod);
}

void noteUnlistedMechanisms(LogBase& log, AuthMechanisms& offered) {
    log.logInfo("This SMTP server did not list authentication methods.");
    if (log.hasOption("SmtpForceLoginMethod")) {
        log.logInfo("Defaulting to LOGIN authentication method.");
        offered.login = true;
        return;
    }
    log.logInfo("Perhaps this server controls access by IP address.");
    log.logInfo("Defaulting to no explicit authentication...");
}

std::string offerOf(const SmtpConnImpl& connection) {
    std::string names;
    for (const std::string& name : connection.capabilities().authNames) {
        names += (names.empty() ? "" : ", ") + name;
    }
    if (!names.empty()) return "the server offers " + names + ".";
    return connection.isTls() ? "the server offers no login."
                              : "the server offers no login on this connection; over TLS it may.";
}

// Why a login that somebody set a user or a secret for does not take place.
void noteNoLogin(LogBase& log, SmtpConnImpl& connection, const Login& login) {
    if (login.user.empty() && login.password.empty() && login.token.empty()) return;
    const std::string method(connection.settings.authMethod.utf8());
    const std::string secret = login.havePassword() ? "a password" : "an access token";
    std::string why;
    if (login.user.empty()) {
        why = "the user name is empty; ";
    } else if (login.password.empty() && login.token.empty()) {
        why = "the password is empty; ";
    } else if (smtp::restrictedTo(method, {}).any()) {
        why = "the method " + method + " does not work with " + secret + "; ";
    } else if (!connection.capabilities().authNames.empty()) {
        why = "no mechanism of the server works here with " + secret + "; ";
    }
    connection.noteNoLogin(log, why + offerOf(connection));
}

int32_t ntlmVersion(const SmtpSettings& settings) {
    return settings.ntlmVersion.value_or(defaultNtlmVersion());
}

bool mustBind(const SmtpConnImpl& connection) {
    return connection.settings.channelBinding == ChannelBinding::Required;
}

// Why a login that has to be bound to the TLS connection cannot be.
std::string_view obstacleToBinding(const SmtpConnImpl& connection, const Login& login,
                                   AuthMechanism mechanism) {
    if (connection.channelBinding().empty()) return "this one is not encrypted";
    if (mechanism != AuthMechanism::Ntlm) return "NTLM with a password is no method to be used";
    if (login.isOfLoggedOnUser()) return "that of the logged-on user cannot be";
    if (ntlmVersion(connection.settings) == 1) return "NTLM of version 1 cannot be";
    return {};
}

struct MechanismTexts {
    std::string_view name;     // empty: recognised, never spoken
    std::string_view refusal;  // what the log says when it fails
    bool retriedOverTls = false;
};

MechanismTexts textsOf(AuthMechanism mechanism) {
    switch (mechanism) {
        case AuthMechanism::Xoauth2:
            return {"XOAUTH2", "Failed to login using XOAUTH2 method", true};
        case AuthMechanism::Login:
            return {"LOGIN", "Failed to login using LOGIN method", true};
        case AuthMechanism::Ntlm:
            return {"NTLM", "Failed to login using NTLM method"};
        case AuthMechanism::Msn:
            return {"MSN", "Failed to login using MSN method"};
        case AuthMechanism::ScramSha256:
            return {"SCRAM-SHA-256", "Failed to login using SCRAM-SHA-256 method", true};
        case AuthMechanism::ScramSha1:
            return {"SCRAM-SHA-1", "Failed to login using SCRAM-SHA-1 method", true};
        case AuthMechanism::CramMd5:
            return {"CRAM_MD5", "Failed to login using CRAM-MD5 method", true};
        case AuthMechanism::Plain:
            return {"PLAIN", "Failed to login using PLAIN method", true};
        case AuthMechanism::DigestMd5:
            return {{}, "DIGEST-MD5 login method not supported"};
        case AuthMechanism::Gssapi:
            return {{}, "GSSAPI login method not supported"};
        case AuthMechanism::KerberosV4:
            return {{}, "Kerberos v4 login method not supported"};
        case AuthMechanism::Anonymous:
            return {{}, "Anonymous login method not supported"};
        case AuthMechanism::None:
            break;
    }
    return {};
}

// One login, with its second tries.
class LoginAttempt {
public:
    LoginAttempt(CallContext& call, SmtpConnImpl& connection, const Login& login)
        : connection_(connection), login_(login), call_(call) {}

    Failure run(AuthMechanism mechanism);

private:
    std::unique_ptr<SaslMechanism> make(AuthMechanism mechanism) const;
    std::unique_ptr<SaslMechanism> makeNtlm() const;
    SaslXoauth2::TokenSource tokenSource() const;
    bool mayRetryOverTls(const Failure& failure) const;
    bool mayRetryWithNewToken(const Failure& failure) const;
    Failure loginInstead(AuthMechanism mechanism);
    std::string userBytes() const;
    SecureBuffer secretBytes(const XString& secret) const;
    bool asAnsi() const { return call_.log.hasOption("SmtpLoginAnsi"); }

    SmtpConnImpl& connection_;
    const Login& login_;
    CallContext& call_;
};

Failure LoginAttempt::run(AuthMechanism mechanism) {
    const MechanismTexts texts = textsOf(mechanism);
    const std::unique_ptr<SaslMechanism> sasl = make(mechanism);
    if (!sasl) {
        Failure failure = fail(call_.log, Cause::AuthFailure, std::string(texts.refusal));
        call_.log.logData("smtpAuth.error", statusWord(Cause::AuthFailure));
        return failure;
    }
    Failure failure = runSasl(call_, *sasl, connection_);
    if (texts.retriedOverTls && mayRetryOverTls(failure)) {
        // Where there is no TLS to be had, the server's refusal stays what is told.
        const Failure noTls = connection_.upgradeForLogin(call_);
        if (!noTls) failure = runSasl(call_, *make(mechanism), connection_);
    }
    if (mechanism == AuthMechanism::Xoauth2 && mayRetryWithNewToken(failure)) {
        call_.log.logInfo("The kept access token was refused: one more try with a new one.");
        failure = runSasl(call_, *make(mechanism), connection_);
        if (failure) connection_.oauth2TokenRefused();
    }
    if (failure.is(Cause::MechanismUnavailable)) return loginInstead(mechanism);
    if (failure) call_.log.logError(texts.refusal);
    return failure;
}

bool LoginAttempt::mayRetryOverTls(const Failure& failure) const {
    const std::string_view reply = failure.reply();
    const std::string_view firstLine = reply.substr(0, reply.find('\n'));
    return connection_.isConnected() && !connection_.isTls() && !connection_.settings.startTls &&
           findIgnoreCase(firstLine, "STARTTLS") != std::string_view::npos;
}

bool LoginAttempt::mayRetryWithNewToken(const Failure& failure) const {
    return failure.replyCode() != 0 && connection_.oauth2TokenRefused() &&
           connection_.isConnected();
}

Failure LoginAttempt::loginInstead(AuthMechanism mechanism) {
    call_.log.logData("alt_login_method", "LOGIN");
    if (mechanism == AuthMechanism::Msn) call_.log.logInfo("auth_login_3");
    return run(AuthMechanism::Login);
}

std::unique_ptr<SaslMechanism> LoginAttempt::make(AuthMechanism mechanism) const {
    const SmtpSettings& settings = connection_.settings;
    switch (mechanism) {
        case AuthMechanism::Xoauth2:
            return std::make_unique<SaslXoauth2>(userBytes(), secretBytes(login_.token),
                                                 tokenSource());
        case AuthMechanism::Login:
            return std::make_unique<SaslLogin>(userBytes(), secretBytes(login_.password),
                                               std::string(settings.smtpHost.utf8()));
        case AuthMechanism::ScramSha256:
            return std::make_unique<SaslScram>(crypto::HashId::kSha256, userBytes(),
                                               secretBytes(login_.password));
        case AuthMechanism::ScramSha1:
            return std::make_unique<SaslScram>(crypto::HashId::kSha1, userBytes(),
                                               secretBytes(login_.password));
        case AuthMechanism::CramMd5:
            return std::make_unique<SaslCramMd5>(userBytes(), secretBytes(login_.password));
        case AuthMechanism::Plain:
            return std::make_unique<SaslPlain>(userBytes(), secretBytes(login_.password));
        case AuthMechanism::Ntlm:
            return makeNtlm();
        case AuthMechanism::Msn:
            return std::make_unique<SaslPackage>(SaslPackage::Package::Msn, login_.user,
                                                 login_.password, settings.loginDomain,
                                                 settings.smtpHost);
        default:
            return nullptr;
    }
}

std::unique_ptr<SaslMechanism> LoginAttempt::makeNtlm() const {
    const SmtpSettings& settings = connection_.settings;
    if (login_.isOfLoggedOnUser()) {
        return std::make_unique<SaslPackage>(SaslPackage::Package::Ntlm, login_.user,
                                             login_.password, settings.loginDomain,
                                             settings.smtpHost);
    }
    XString user = login_.user;
    user.trim();
    auto ntlm = std::make_unique<SaslNtlm>(user, login_.password, settings.loginDomain,
                                           ntlmVersion(settings));
    if (settings.channelBinding != ChannelBinding::No) ntlm->bindTo(connection_.channelBinding());
    return ntlm;
}

SaslXoauth2::TokenSource LoginAttempt::tokenSource() const {
    if (!isOAuth2Description(login_.token.utf8())) return {};
    return [this](SecureBuffer& token) { return connection_.oauth2AccessToken(call_, token); };
}

std::string LoginAttempt::userBytes() const {
    return asAnsi() ? login_.user.ansi() : std::string(login_.user.utf8());
}

SecureBuffer LoginAttempt::secretBytes(const XString& secret) const {
    SecureBuffer out;
    if (asAnsi()) {
        std::string ansi = secret.ansi();
        out.append(std::string_view(ansi));
        plat::wipe(ansi.data(), ansi.size());
    } else {
        out.append(secret.utf8());
    }
    return out;
}

Failure logInBy(CallContext& call, SmtpConnImpl& connection, const Login& login,
                AuthMechanism mechanism) {
    const std::string_view name = textsOf(mechanism).name;
    const std::string_view unbound =
        mustBind(connection) ? obstacleToBinding(connection, login, mechanism) : std::string_view();
    if (!unbound.empty()) {
        return fail(call.log, Cause::AuthFailure,
                    "No login was made: the settings file asks for one that is bound to the TLS "
                    "connection (\"channel-binding\" of [login]), and " +
                        std::string(unbound) + "; " + offerOf(connection));
    }
    if (name.empty()) noteNoLogin(call.log, connection, login);
    if (mechanism == AuthMechanism::None) {
        call.log.logData("login_method", "NONE or already authenticated");
        return {};
    }
    if (!name.empty()) call.log.logData("login_method", name);
    if (!name.empty() && !connection.isTls() && connection.settings.onlyEncrypted) {
        return fail(call.log, Cause::AuthFailure,
                    "No login was made: the connection is not encrypted, and the settings file "
                    "asks for that (\"only-encrypted\" of [login]).");
    }
    if (!name.empty() && !connection.isTls()) {
        call.log.logInfo("The connection is not encrypted: others on its way can read this login.");
    }
    Failure failure = LoginAttempt(call, connection, login).run(mechanism);
    if (!failure) connection.noteLogin(name, login.user.utf8());
    return failure;
}

// The one that an order of mechanisms names; None where it cannot be used with this login.
AuthMechanism mechanismNamed(std::string_view name, const Login& login) {
    constexpr std::pair<std::string_view, AuthMechanism> kNames[] = {
        {"SCRAM-SHA-256", AuthMechanism::ScramSha256},
        {"SCRAM-SHA-1", AuthMechanism::ScramSha1},
        {"CRAM-MD5", AuthMechanism::CramMd5},
        {"NTLM", AuthMechanism::Ntlm},
        {"LOGIN", AuthMechanism::Login},
        {"PLAIN", AuthMechanism::Plain},
        {"XOAUTH2", AuthMechanism::Xoauth2},
    };
    for (const auto& [known, mechanism] : kNames) {
        if (!equalsIgnoreCase(known, name)) continue;
        const bool usable =
            mechanism == AuthMechanism::Xoauth2 ? login.haveToken() : login.havePassword();
        return usable ? mechanism : AuthMechanism::None;
    }
    return AuthMechanism::None;
}

// What is wanted, offered and possible, in the order in which it is to be tried.
std::vector<AuthMechanism> candidates(LogBase& log, const SmtpConnImpl& connection,
                                      const Login& login) {
    const auto& wanted = connection.settings.methods;
    if (wanted.empty()) {
        AuthMechanisms offered = smtp::restrictedTo(login.method, connection.capabilities().auth);
        if (mustBind(connection)) {
            offered = {.ntlm = offered.ntlm};
        } else if (!offered.any() && login.havePassword()) {
            noteUnlistedMechanisms(log, offered);
        }
        if (connection.settings.cramMd5InClear && !connection.isTls() && offered.cramMd5) {
            offered.login = offered.plain = false;
        }
        return {smtp::chooseMechanism(offered, login.havePassword(), login.haveToken())};
    }
    std::vector<AuthMechanism> all;
    for (const std::string& name : wanted) {
        const bool offered =
            std::ranges::any_of(connection.capabilities().authNames,
                                [&](const auto& other) { return equalsIgnoreCase(other, name); });
        const AuthMechanism mechanism = mechanismNamed(name, login);
        const bool usable = !mustBind(connection) || mechanism == AuthMechanism::Ntlm;
        if (offered && usable && mechanism != AuthMechanism::None) all.push_back(mechanism);
    }
    if (all.empty()) all.push_back(AuthMechanism::None);
    return all;
}

// The server has the mechanism no longer, or wants another (RFC 4954 section 6); or it is no good
// for this password. A login that was refused is none to be repeated: servers lock users out.
bool mayTryNext(const Failure& failure, const SmtpConnImpl& connection) {
    constexpr int32_t kTooWeak = 534, kOverTlsAlone = 538;
    const int32_t code = failure.replyCode();
    return connection.isConnected() &&
           (failure.is(Cause::NoCredentials) || (code >= 500 && code <= 504) || code == kTooWeak ||
            code == kOverTlsAlone);
}

}  // namespace

Failure smtpAuthenticate(CallContext& call, SmtpConnImpl& connection) {
    const LogContextExitor context(call.log, "smtpAuthenticate");
    if (!connection.isConnected()) {
        return fail(call.log, Cause::ConnectionLost, "Not connected.").at(Stage::Login);
    }
    Login login = loginOf(call.log, connection);
    logServerAndUser(call.log, connection.settings, login);
    if (login.method != "NONE" && login.user.equalsIgnoreCase("default") &&
        login.password.equalsIgnoreCase("default")) {
        call.log.logInfo("Username/password is default/default, therefore using NTLM.");
        login.method = "NTLM";
    }
    if (login.method == "NONE") {
        call.log.logInfo("Not authenticating because SmtpAuthMethod is NONE");
        call.log.logData("smtpAuth.method", "none");
        noteNoLogin(call.log, connection, login);
        return {};
    }
    Failure failure;
    for (const AuthMechanism mechanism : candidates(call.log, connection, login)) {
        failure = logInBy(call, connection, login, mechanism);
        if (!failure || !mayTryNext(failure, connection)) break;
    }
    return failure;
}

}  // namespace tv
