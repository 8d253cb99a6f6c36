// What a settings file says. Each value is absent where the file does not say it: then the host
// program's counts.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/NameServer.h"
#include "base/XString.h"

namespace tv::settings {

enum class Profile : uint8_t { Classic, Modern };
enum class Encryption : uint8_t { None, IfOffered, StartTls, Implicit };
enum class Family : uint8_t { Any, Ipv4, Ipv6 };
enum class AngleBrackets : uint8_t { AsNow, Always };
enum class LogoDisposition : uint8_t { AsNow, Inline };
enum class TextFiles : uint8_t { AsNow, Exact };
enum class EmptySubject : uint8_t { Omit, Keep };
enum class MissingAttachment : uint8_t { Send, Refuse };
enum class IdDomain : uint8_t { Computer, Sender };
// In the order of SmtpSettings' own.
enum class ChannelBinding : uint8_t { No, IfPossible, Required };
enum class Trial : uint8_t { Always, First, Never };
// In the order of the protocol's versions.
enum class TlsVersion : uint8_t { Tls10, Tls11, Tls12, Tls13 };

// All text is UTF-8, all times are milliseconds.
struct Settings {
    std::string file;       // its path
    uint64_t revision = 0;  // no other reading of the file has the same
    // "[server] host = mail.example.com", in the file's order; secrets are masked.
    std::vector<std::string> inForce;
    std::vector<std::string> plainSecrets;  // paths of files that hold a secret as it is

    std::optional<Profile> profile;
    bool cramMd5InClear =
        false;  // before LOGIN and PLAIN where nothing is encrypted; by the profile

    std::optional<std::string> host;
    std::optional<int32_t> port;
    std::optional<Encryption> encryption;
    std::optional<std::string> helo;
    std::optional<std::string> localAddress;  // numeric
    std::optional<Family> family;
    std::optional<Trial> trial;
    std::optional<bool> reuse;
    std::optional<uint32_t> connectTimeoutMs;
    std::optional<uint32_t> idleTimeoutMs;
    std::optional<uint32_t> acceptanceTimeoutMs;
    std::optional<uint32_t> totalTimeoutMs;

    std::optional<std::string> user;
    std::optional<XString> password;
    std::optional<XString> oauth2;     // the description itself
    std::vector<std::string> methods;  // names of SASL mechanisms, in any case
    std::optional<std::string> domain;
    std::optional<int32_t> ntlm;
    std::optional<ChannelBinding> channelBinding;
    std::optional<bool> onlyEncrypted;

    std::optional<bool> verify;
    std::optional<std::string> roots;      // path
    std::optional<std::string> rootsAlso;  // path
    std::vector<std::string> pins;         // SHA-256 of the public key, 32 bytes each

    std::optional<TlsVersion> lowest;
    std::optional<TlsVersion> highest;
    std::optional<bool> oldSuites;

    std::optional<std::string> from;  // "name <address>" or an address, as in fromAlways, replyTo
    std::optional<std::string> fromAlways;
    std::optional<std::string> envelopeSender;
    std::optional<std::string> replyTo;
    std::vector<std::string> bcc;
    std::optional<bool> textAlternative;
    std::optional<IdDomain> messageIdDomain;
    std::optional<AngleBrackets> angleBrackets;
    std::optional<LogoDisposition> logoDisposition;
    std::optional<TextFiles> textFiles;
    std::optional<EmptySubject> emptySubject;
    std::optional<MissingAttachment> missingAttachment;
    std::vector<std::string> fields;  // "Name: value"
    std::optional<bool> checkSize;
    std::optional<bool> allRecipients;
    std::vector<std::string> deliveryReport;  // words of NOTIFY (RFC 3461 section 4.1), any case

    std::vector<NameServer> servers;
    std::optional<std::string> hosts;  // path

    std::optional<std::string> sentMail;  // path; empty: none
    std::optional<std::string> sends;     // path
    std::optional<uint64_t> logSize;      // bytes
    std::optional<std::string> failures;  // path of a folder
    std::optional<uint32_t> keep;
    std::optional<std::string> debug;  // path
    std::optional<bool> messageBox;
    std::optional<bool> firstLine;

    std::optional<std::string> testFolder;  // path
    std::optional<std::string> redirect;
};

}  // namespace tv::settings
