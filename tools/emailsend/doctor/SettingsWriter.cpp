// Key by key, each value so that the parser reads it back as it was.
#include "emailsend/doctor/SettingsWriter.h"

#include "base/Ascii.h"

namespace emailsend::doctor {
namespace {

// In quotes where blanks at the ends or a quote in front would not come back. By the character: the
// value may be a password, of which no copy is left.
void addWritten(std::string& text, std::string_view value) {
    const bool isPlain = tv::trimmed(value).size() == value.size() && !value.starts_with('"');
    if (isPlain) {
        text += value;
        return;
    }
    text += '"';
    for (const char c : value) {
        text.append(c == '"' ? 2 : 1, c);
    }
    text += '"';
}

void add(std::string& text, const char* key, std::string_view value) {
    if (value.empty()) return;
    text.append(key).append(" = ");
    addWritten(text, value);
    text += '\n';
}

std::string_view lowestOf(tv::tls::Version version) {
    // "TLS 1.3" without its front.
    return tv::tls::versionName(version).substr(4);
}

void addCertificate(const Strictest& seen, std::string& text) {
    text += "\n[certificate]\n";
    if (seen.verified) {
        text += "verify = yes\n";
        add(text, "roots", seen.roots);
        add(text, "roots-also", seen.rootsAlso);
    } else {
        text += "; What was seen: ask who looks after the server whether it is the server's.\n";
        add(text, "pin", seen.pin);
    }
}

}  // namespace

std::string settingsText(const Strictest& seen) {
    const bool isTls = seen.version != tv::tls::Version::None;
    std::string text;
    // Text that grows leaves copies behind, of the password, too.
    text.reserve(size_t{1} << 16);
    text += "; The strictest settings that worked when emailsend doctor looked.\n[server]\n";
    add(text, "host", seen.host);
    add(text, "port", std::to_string(seen.port));
    add(text, "encryption", !isTls ? "if-offered" : seen.implicitTls ? "implicit" : "starttls");
    add(text, "helo", seen.helo);
    if (!seen.user.empty()) {
        text += "\n[login]\n";
        add(text, "user", seen.user);
        add(text, "password-file", seen.passwordFile);
        if (seen.passwordFile.empty()) add(text, "password", seen.password.utf8());
        add(text, "methods", seen.method);
        add(text, "domain", seen.domain);
        add(text, "ntlm", seen.ntlm);
        add(text, "channel-binding", seen.channelBinding);
        add(text, "only-encrypted", isTls ? "yes" : "no");
    }
    if (!seen.nameServers.empty() || !seen.hosts.empty()) text += "\n[names]\n";
    add(text, "servers", seen.nameServers);
    add(text, "hosts", seen.hosts);
    if (!isTls) return text;
    addCertificate(seen, text);
    text += "\n[tls]\n";
    add(text, "lowest", lowestOf(seen.version));
    add(text, "old-suites", seen.oldSuite ? "yes" : "no");
    return text;
}

}  // namespace emailsend::doctor
