// What a host has set: how to reach the server, how to log in, how to send.
#pragma once

#include <cstdint>

#include "base/XString.h"

namespace tv {

struct SmtpSettings {
    SmtpSettings() {
        password.markSecret();
        oauth2Token.markSecret();
    }

    XString smtpHost;
    int32_t smtpPort = 25;
    bool smtpSsl = false;  // TLS from the first byte
    bool startTls = false;
    bool startTlsIfPossible = true;  // upgrade when the server offers it, go on in clear otherwise
    bool requireSslCertVerify = false;
    XString tlsProtocol;       // a version policy; empty: TLS 1.0 to 1.3
    XString trustAnchorsFile;  // PEM; empty: the system's anchors
    bool autoFix = true;

    XString heloHostname;  // empty: the computer name
    uint32_t connectTimeoutMs = 30000;
    uint32_t idleTimeoutMs = 30000;
    uint32_t sendChunkSize = 32767;
    bool autoReset = false;  // RSET before a connection is used again

    XString authMethod;  // upper case; empty: chosen from what the server offers
    XString userName;
    XString password;
    XString loginDomain;
    XString oauth2Token;           // or the description of how to get one
    bool oauth2PlainHttp = false;  // no property reaches it: for tests alone

    bool autoMessageId = true;
    bool pipelining = true;
    bool requireAllRecipients = false;
    XString dsnRet;
    XString dsnEnvid;
    XString dsnNotify;
    XString sentMailLogFile;  // path; empty: none
    uint32_t retryWaitMs = 500;
};

}  // namespace tv
