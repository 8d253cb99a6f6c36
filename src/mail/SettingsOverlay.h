// What a settings file says, laid over the properties of a host for one operation.
#pragma once

#include <optional>

#include "base/Failure.h"
#include "log/LogBase.h"
#include "mail/smtp/SmtpSettings.h"
#include "net/resolve/NameSource.h"
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
    // Where names come from while this lives; null: from the system.
    const NameSource* names() const { return names_ ? &*names_ : nullptr; }

private:
    void layServer();
    void layOwnName();
    void layLogin();
    void layNames();
    Failure layCertificate(LogBase& log);
    void layMessage();

    SmtpSettings& settings_;
    const settings::Settings* const file_;
    SmtpSettings hosts_;
    std::optional<NameSource> names_;
};

}  // namespace tv
