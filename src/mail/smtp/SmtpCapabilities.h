// What a server says it can do: the extensions and login mechanisms of its EHLO reply.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "mail/smtp/SmtpResponse.h"

namespace tv {

struct AuthMechanisms {
    bool cramMd5 = false;
    bool anonymous = false;
    bool plain = false;
    bool login = false;
    bool digestMd5 = false;
    bool gssapi = false;
    bool kerberosV4 = false;
    bool ntlm = false;
    bool msn = false;
    bool xoauth2 = false;

    bool any() const;
    bool operator==(const AuthMechanisms&) const = default;
};

struct SmtpCapabilities {
    bool hasStartTls = false;
    bool hasPipelining = false;
    bool hasSmtpUtf8 = false;
    bool hasDsn = false;
    uint64_t sizeLimit = 0;              // bytes of a message (RFC 1870); 0: none announced
    uint64_t recipientLimit = 0;         // of a transaction (RFC 9422, RCPTMAX); 0: none announced
    uint64_t transactionLimit = 0;       // of a connection (MAILMAX); 0: none announced
    bool authWithoutMechanisms = false;  // "AUTH" alone: the server takes no login
    AuthMechanisms auth;
    std::vector<std::string> authNames;  // all that stand behind AUTH, for people; 20 at most

    bool operator==(const SmtpCapabilities&) const = default;
};

namespace smtp {

// Adds what the lines announce; nothing but the size limit is ever taken back. Returns the lines
// too short to be one.
std::vector<std::string_view> addEhloReply(const SmtpResponse& reply, SmtpCapabilities& found);

// The mechanisms that a configured method (upper case) leaves: its own alone, whatever the server
// announced; those announced where the method is empty or unknown.
AuthMechanisms restrictedTo(std::string_view method, const AuthMechanisms& announced);

}  // namespace smtp

}  // namespace tv
