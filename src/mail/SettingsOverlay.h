// What a settings file says, laid over the properties of a host for one operation.
#pragma once

#include "base/Failure.h"
#include "log/LogBase.h"
#include "mail/smtp/SmtpSettings.h"
#include "settings/Settings.h"

namespace tv {

// The host's own values are back when it goes out of scope.
class SettingsOverlay {
public:
    // file: null where there is none, which changes nothing.
    SettingsOverlay(SmtpSettings& settings, const settings::Settings* file);
    ~SettingsOverlay();
    SettingsOverlay(const SettingsOverlay&) = delete;
    SettingsOverlay& operator=(const SettingsOverlay&) = delete;

    // Logs what is in force. Fails where file and host together contradict themselves.
    Failure lay(LogBase& log);

private:
    void layServer();
    void layLogin();
    Failure layCertificate(LogBase& log);
    void layMessage();

    SmtpSettings& settings_;
    const settings::Settings* const file_;
    SmtpSettings hosts_;
};

}  // namespace tv
