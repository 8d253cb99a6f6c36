#include "log/LogContextExitor.h"
#include "mail/ClsMailMan.h"

namespace tv {

bool ClsMailMan::VerifySmtpConnection(ProgressMonitor* monitor) {
    Operation operation(*this, "VerifySmtpConnection");
    LogBase& log = operation.log();
    correctSettings(log);
    SmtpConnImpl trial;
    trial.settings = smtp_.settings;
    trial.settings.userName.clear();
    trial.settings.password.clear();
    trial.settings.oauth2Token.clear();
    trial.lendTlsSessions(smtp_.tlsSessions());
    SocketParams params;
    params.setMonitor(monitor);
    const LogContextExitor context(log, "initSmtp");
    return operation.finish(trial.smtpConnectAndAuthenticate(true, params, log));
}

}  // namespace tv
