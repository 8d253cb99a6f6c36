// The trial: a connection of its own with the same settings but no secrets, greeted and closed.
#include "log/LogContextExitor.h"
#include "mail/ClsMailMan.h"
#include "mail/SettingsOverlay.h"

namespace tv {

bool ClsMailMan::VerifySmtpConnection(ProgressMonitor* monitor) {
    Operation operation(*this, "VerifySmtpConnection");
    LogBase& log = operation.log();
    SettingsOverlay overlay(smtp_.settings, file_.get());
    if (overlay.lay(log)) return operation.finish(false);
    correctSettings(log);
    SmtpConnImpl trial;
    trial.settings = smtp_.settings;
    trial.settings.userName.clear();
    trial.settings.password.clear();
    trial.settings.oauth2Token.clear();
    trial.lendTlsSessions(smtp_.tlsSessions());
    CallContext call(log);
    call.setMonitor(monitor);
    call.names = overlay.names();
    const LogContextExitor context(log, "initSmtp");
    return operation.finish(!trial.smtpConnectAndAuthenticate(call, true));
}

}  // namespace tv
