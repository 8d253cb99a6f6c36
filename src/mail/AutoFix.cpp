// The corrections, port by port, and flags that contradict each other. Each tells what it did.
#include "mail/AutoFix.h"

namespace tv::smtp {
namespace {

using Lines = std::vector<std::string_view>;

constexpr std::string_view kPrevention = "To prevent auto-fix, set the AutoFix property = False/0";

// Public mail services whose port 587 speaks nothing but STARTTLS.
constexpr std::string_view kStartTlsServices[] = {"gmail.com", "office365.com", "outlook.com",
                                                  "yahoo.com", "mail.me.com"};

bool isStartTlsService(std::string_view host) {
    for (const std::string_view fragment : kStartTlsServices) {
        if (host.find(fragment) != std::string_view::npos) return true;
    }
    return false;
}

void tell(Lines& lines, std::string_view text) {
    lines.push_back(text);
    lines.push_back(kPrevention);
}

void fixPort25(SmtpSettings& settings, Lines& lines) {
    if (settings.smtpSsl) {
        tell(lines, "AutoFix: SMTP port 25 is typically for unencrypted or explicit SSL/TLS.");
    }
    settings.smtpSsl = false;
}

void fixPort465(SmtpSettings& settings, Lines& lines) {
    if (settings.smtpSsl && !settings.startTls) return;
    tell(lines, "AutoFix: SMTP port 465 is typically for implicit SSL/TLS.");
    settings.startTls = false;
    settings.smtpSsl = true;
}

void fixPort587(SmtpSettings& settings, Lines& lines) {
    if (!isStartTlsService(settings.smtpHost.utf8())) return;
    if (settings.smtpSsl || !settings.startTls) {
        tell(lines, "AutoFix: SMTP port 587 requires explicit SSL/TLS for this mail server.");
    }
    settings.smtpSsl = false;
    settings.startTls = true;
}

}  // namespace

std::vector<std::string_view> autoFix(SmtpSettings& settings) {
    Lines lines;
    if (!settings.fixEncryption) return lines;  // all but the first step follow from the port
    switch (settings.smtpPort) {
        case 110:
            if (!settings.fixPort) break;
            tell(lines, "AutoFix: Port 110 is for POP3.  Using port 25 for SMTP.");
            settings.smtpPort = 25;
            fixPort25(settings, lines);
            break;
        case 143:
            if (!settings.fixPort) break;
            tell(lines, "AutoFix: Port 143 is for IMAP.  Using port 25 for SMTP.");
            settings.smtpPort = 25;
            fixPort25(settings, lines);
            break;
        case 25:
            fixPort25(settings, lines);
            break;
        case 465:
            fixPort465(settings, lines);
            break;
        case 587:
            fixPort587(settings, lines);
            break;
        default:
            break;
    }
    return lines;
}

void settleTlsFlags(SmtpSettings& settings) {
    if (!settings.smtpSsl || !settings.startTls) return;
    if (settings.smtpPort == 465) {
        settings.startTls = false;
    } else {
        settings.smtpSsl = false;
    }
}

}  // namespace tv::smtp
