// What the steps of the walk share: what is asked, what has been found so far.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/XString.h"
#include "emailsend/PlugIn.h"
#include "emailsend/doctor/Observer.h"
#include "emailsend/doctor/Options.h"
#include "emailsend/doctor/Report.h"
#include "mail/SettingsOverlay.h"
#include "mail/smtp/SmtpConnImpl.h"
#include "mail/smtp/SmtpSettings.h"
#include "net/tls/Handshake.h"
#include "platform/IpAddress.h"
#include "settings/Settings.h"

namespace emailsend::doctor {

// A port of the server and what was seen there.
struct Endpoint {
    int32_t port = 0;
    tv::SmtpSettings settings;  // by which it was reached
    bool greeted = false;       // and introduced
    bool distrusted = false;    // its certificate does not do for what the settings file asks
    tv::SmtpCapabilities offer;
    std::optional<tv::tls::Negotiated> tls;  // nothing: in clear
    bool trusted = false;                    // by the chain of its certificate
    std::string pin;                         // of its key, as the settings file has it
    std::string method;                      // of the login that stood; empty: none
    std::shared_ptr<tv::TlsSessionSlot> sessions;
};

struct Walk {
    const Options& options;
    const tv::XString& password;
    Report& report;
    std::string library;
    PlugIn plugIn = {};
    bool hasLibrary = false;
    bool settingsUsable = true;
    std::shared_ptr<const tv::settings::Settings> file = nullptr;
    tv::SmtpSettings settings = {};                          // as a send would have them
    std::unique_ptr<tv::SettingsOverlay> overlay = nullptr;  // lies over them
    std::vector<tv::plat::IpAddress> addresses = {};
    std::vector<Endpoint> endpoints = {};
    bool abandoned = false;  // a step still runs: the process must end by endNow

    uint32_t limitMs() const {
        return options.limitMs > 0 ? options.limitMs : settings.idleTimeoutMs;
    }
    // Where names come from; null: from the system.
    const tv::NameSource* names() const { return overlay ? overlay->names() : nullptr; }
    bool logsIn() const { return !settings.userName.empty(); }
    // For what the observer watches.
    tv::CallContext call(Observer& observer) const {
        tv::CallContext call(observer);
        call.setMonitor(&observer);
        call.names = names();
        return call;
    }
};

// Each step finds out, reports, and leaves what those behind it need. False where nothing that
// comes behind makes sense.
void findLibrary(Walk& walk);
bool findHost(Walk& walk);
bool findAddresses(Walk& walk);
// Each address on a port; false where none takes a connection.
bool tryAddresses(Walk& walk, int32_t port);
// Greeting, EHLO, TLS and what the server offers.
void lookAt(Walk& walk, int32_t port);
// Of the endpoint's TLS: whose it is, what verification says of it, its pin.
void judgeCertificate(Walk& walk, Endpoint& endpoint);
// The one that a message would best go through; null where none serves.
Endpoint* bestEndpoint(Walk& walk);
// A second connection: resumption, the login, the envelope. False where one of them failed.
bool useEndpoint(Walk& walk, Endpoint& endpoint);
// Of the test message and the envelope.
std::string senderOf(const Walk& walk);
bool sendTestMessage(Walk& walk, const Endpoint& endpoint);
void writeSettings(Walk& walk, const Endpoint& endpoint);

}  // namespace emailsend::doctor
