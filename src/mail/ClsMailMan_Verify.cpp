// The trial: a connection of its own with the same settings but no secrets, greeted and closed.
#include <optional>

#include "log/LogContextExitor.h"
#include "mail/ClsMailMan.h"
#include "mail/SettingsOverlay.h"
#include "net/stream/TotalTimeout.h"
#include "platform/SysClock.h"

namespace tv {

bool ClsMailMan::VerifySmtpConnection(ProgressMonitor* monitor, const ClsEmail* email) {
    Operation operation(*this, "VerifySmtpConnection");
    LogBase& log = operation.log();
    const uint64_t startMs = plat::sysClock().tickMs();
    SettingsOverlay overlay(smtp_.settings, file_.get());
    SmtpConnImpl trial;
    trialFailure_ = overlay.lay(log);
    if (!trialFailure_) {
        CallContext call(log);
        call.setMonitor(monitor);
        call.names = overlay.names();
        trialFailure_ = tryConnection(call, trial);
    }
    trialMs_ = trialFailure_ ? 0 : plat::sysClock().tickMs() - startMs;
    if (trialFailure_ && email) recordUnsent(log, *email, trial.peer(), trialFailure_, startMs);
    return operation.finish(!trialFailure_);
}

Failure ClsMailMan::tryConnection(CallContext& call, SmtpConnImpl& trial) {
    correctSettings(call.log);
    trial.settings = smtp_.settings;
    trial.settings.userName.clear();
    trial.settings.password.clear();
    trial.settings.oauth2Token.clear();
    trial.lendTlsSessions(smtp_.tlsSessions());
    std::optional<TotalTimeout> limit;
    if (const uint32_t ms = trial.settings.totalTimeoutMs; ms > 0) limit.emplace(call, ms);
    const LogContextExitor context(call.log, "initSmtp");
    return trial.smtpConnectAndAuthenticate(call, true);
}

}  // namespace tv
