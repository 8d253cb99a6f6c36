#include "mail/SmtpAuth.h"

#include <string>

#include "log/LogContextExitor.h"
#include "mail/SmtpConnImpl.h"

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

// The method that the settings come down to, in upper case.
std::string effectiveMethod(const SmtpConnImpl& connection, LogBase& log) {
    const SmtpSettings& settings = connection.settings;
    const bool noUser = settings.userName.empty();
    const bool noSecret = settings.password.empty() && settings.oauth2Token.empty();
    if (settings.userName.equalsIgnoreCase("default") &&
        settings.password.equalsIgnoreCase("default")) {
        log.logInfo("Username/password is default/default, therefore using NTLM.");
        return "NTLM";
    }
    // NTLM without credentials stands for the user who is logged on.
    if (settings.authMethod.equalsIgnoreCase("NTLM")) return "NTLM";
    if (noUser) log.logInfo("No SMTP login provided.");
    if (noSecret) log.logInfo("No SMTP password or OAuth2 access token provided.");
    if (noUser || noSecret) {
        log.logInfo("Skipping SMTP authentication because no login/password provided.");
        return "NONE";
    }
    // A server that writes "AUTH" without a mechanism takes no login.
    if (settings.authMethod.empty() && connection.capabilities().authWithoutMechanisms) {
        return "NONE";
    }
    return std::string(settings.authMethod.utf8());
}

void logServerAndUser(const SmtpSettings& settings, LogBase& log) {
    log.logDataX("smtp_host", settings.smtpHost);
    log.logDataLong("smtp_port", settings.smtpPort);
    if (!settings.loginDomain.empty()) log.logDataX("domain", settings.loginDomain);
    log.logData("smtp_user", settings.userName.empty() ? "NULL" : settings.userName.utf8());
    if (!settings.authMethod.empty()) log.logDataX("auth-method", settings.authMethod);
}

void noteUnlistedMechanisms(AuthMechanisms& offered, LogBase& log) {
    log.logInfo("This SMTP server did not list authentication methods.");
    if (log.hasOption("SmtpForceLoginMethod")) {
        log.logInfo("Defaulting to LOGIN authentication method.");
        offered.login = true;
        return;
    }
    log.logInfo("Perhaps this server controls access by IP address.");
    log.logInfo("Defaulting to no explicit authentication...");
}

struct MechanismTexts {
    std::string_view name;     // empty: recognised, never spoken
    std::string_view refusal;  // what the log says when it fails
};

MechanismTexts textsOf(AuthMechanism mechanism) {
    switch (mechanism) {
        case AuthMechanism::Xoauth2:
            return {"XOAUTH2", "Failed to login using XOAUTH2 method"};
        case AuthMechanism::Login:
            return {"LOGIN", "Failed to login using LOGIN method"};
        case AuthMechanism::Ntlm:
            return {"NTLM", "Failed to login using NTLM method"};
        case AuthMechanism::Msn:
            return {"MSN", "Failed to login using MSN method"};
        case AuthMechanism::CramMd5:
            return {"CRAM_MD5", "Failed to login using CRAM-MD5 method"};
        case AuthMechanism::Plain:
            return {"PLAIN", "Failed to login using PLAIN method"};
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

// The mechanisms themselves are not there yet: no AUTH is sent, and the send fails.
bool logIn(SmtpConnImpl& connection, AuthMechanism mechanism, LogBase& log) {
    const MechanismTexts texts = textsOf(mechanism);
    if (!texts.name.empty()) log.logData("login_method", texts.name);
    log.logError(texts.refusal);
    log.logData("smtpAuth.error", statusWord(SmtpStatus::AuthFailure));
    connection.fail(SmtpStatus::AuthFailure,
                    texts.name.empty() ? std::string(texts.refusal) + "."
                                       : "Logging in with " + std::string(texts.name) +
                                             " is not possible yet; nothing was sent.",
                    log);
    return false;
}

}  // namespace

bool smtpAuthenticate(SmtpConnImpl& connection, SocketParams&, LogBase& log) {
    const LogContextExitor context(log, "smtpAuthenticate");
    const SmtpSettings& settings = connection.settings;
    if (!connection.isConnected()) {
        connection.fail(SmtpStatus::ConnectionLost, "Not connected.", log);
        return false;
    }
    connection.clearLastReply();
    const std::string method = effectiveMethod(connection, log);
    logServerAndUser(settings, log);
    if (method == "NONE") {
        log.logInfo("Not authenticating because SmtpAuthMethod is NONE");
        log.logData("smtpAuth.method", "none");
        return true;
    }
    const bool impliedUser = method == "NTLM";
    const bool haveUser = impliedUser || !settings.userName.empty();
    const bool havePassword = haveUser && (impliedUser || !settings.password.empty());
    const bool haveToken = haveUser && !settings.oauth2Token.empty();
    AuthMechanisms offered = smtp::restrictedTo(method, connection.capabilities().auth);
    if (!offered.any() && havePassword) noteUnlistedMechanisms(offered, log);
    const AuthMechanism mechanism = smtp::chooseMechanism(offered, havePassword, haveToken);
    if (mechanism == AuthMechanism::None) {
        log.logData("login_method", "NONE or already authenticated");
        return true;
    }
    return logIn(connection, mechanism, log);
}

}  // namespace tv
