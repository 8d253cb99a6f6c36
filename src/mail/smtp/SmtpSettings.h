// What a host has set: how to reach the server, how to log in, how to send.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/XString.h"
#include "platform/IpAddress.h"

namespace tv {

// Whether a login holds for the TLS connection it is made over and for no other.
enum class ChannelBinding : uint8_t { No, IfPossible, Required };

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
    XString tlsProtocol;                  // a version policy; empty: TLS 1.0 to 1.3
    bool oldSuites = true;                // those that TlsOptions calls so
    XString trustAnchorsFile;             // PEM; empty: the system's anchors
    XString furtherAnchorsFile;           // PEM; counts besides those
    std::vector<std::string> pinnedKeys;  // SHA-256 of SubjectPublicKeyInfo; empty: any key
    bool autoFix = true;
    bool fixPort = true;        // autoFix may change the port
    bool fixEncryption = true;  // autoFix may change smtpSsl and startTls

    XString heloHostname;      // empty: the computer name
    bool heloAddress = false;  // or the address that the connection comes from
    XString localAddress;      // numeric; empty: the system chooses
    std::optional<plat::AddressFamily> onlyFamily;
    uint32_t connectTimeoutMs = 30000;
    uint32_t idleTimeoutMs = 30000;
    uint32_t acceptanceTimeoutMs = 0;  // idle time-out of the reply to a message; 0: as the others
    uint32_t totalTimeoutMs = 0;       // of a send; 0: none
    uint32_t sendChunkSize = 32767;
    bool autoReset = false;  // RSET before a connection is used again

    XString authMethod;                // upper case; empty: chosen from what the server offers
    std::vector<std::string> methods;  // in the order to be tried; empty: by authMethod
    bool cramMd5InClear = false;       // before LOGIN and PLAIN where nothing is encrypted
    XString userName;
    XString password;
    XString loginDomain;
    std::optional<int32_t> ntlmVersion;  // as setDefaultNtlmVersion; nothing: the process's default
    bool onlyEncrypted = false;          // a login in clear is refused
    ChannelBinding channelBinding = ChannelBinding::No;
    XString oauth2Token;           // or the description of how to get one
    bool oauth2PlainHttp = false;  // no property reaches it: for tests alone

    bool autoMessageId = true;
    bool pipelining = true;
    bool requireAllRecipients = false;
    // With PIPELINING, too: DATA waits for the replies to all recipients.
    bool dataAfterRecipients = false;
    bool heedSizeLimit = false;  // what is larger than the server announced is not begun
    bool heedLimits = false;     // of recipients and transactions (RFC 9422)
    XString dsnRet;
    XString dsnEnvid;
    XString dsnNotify;
    XString sentMailLogFile;  // path; empty: none
    uint32_t retryWaitMs = 500;
    // Counts the settings files that were laid over these; 0: none. What was made under another one
    // (connection, TLS session, token) is not used again.
    uint64_t revision = 0;
};

}  // namespace tv
