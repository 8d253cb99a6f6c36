// The text of a settings file from what was seen to work. Pure.
#pragma once

#include <cstdint>
#include <string>

#include "base/XString.h"
#include "net/tls/TlsTypes.h"

namespace emailsend::doctor {

struct Strictest {
    std::string host;
    int32_t port = 0;
    bool implicitTls = false;
    tv::tls::Version version = tv::tls::Version::None;  // None: in clear
    bool oldSuite = false;
    bool verified = false;  // by the chain; else by the pin
    std::string roots;      // the anchors of that; empty: the system's
    std::string rootsAlso;
    std::string pin;
    std::string nameServers;  // as the file has them; empty: the system's
    std::string hosts;
    std::string helo;    // empty: the computer's name
    std::string user;    // empty: no login
    std::string method;  // of the login; empty: as the server offers
    std::string domain;
    std::string ntlm;  // version; empty: the host program's
    std::string channelBinding;
    std::string passwordFile;
    tv::XString password;  // where there is no such file
};

std::string settingsText(const Strictest& seen);

}  // namespace emailsend::doctor
