// Logs in at a server through the system's security package with given credentials, a road that the
// mail manager leaves to its own NTLM.
//
//     login_probe PORT USER PASSWORD DOMAIN
//
// Prints the log and the transcript; the exit code is 0 for a login.
#include <cstdlib>
#include <iostream>

#include "log/tvLogger.h"
#include "mail/sasl/SaslPackage.h"
#include "mail/smtp/SaslExchange.h"
#include "mail/smtp/SmtpConnImpl.h"

int main(int argc, char** argv) {
    if (argc != 5) return 2;
    tv::SmtpConnImpl connection;
    connection.settings.smtpHost.setUtf8("127.0.0.1");
    connection.settings.smtpPort = std::atoi(argv[1]);
    tv::_tvLogger log;
    tv::CallContext call{log};
    tv::SaslPackage package(tv::SaslPackage::Package::Ntlm, tv::XString(argv[2]),
                            tv::XString(argv[3]), tv::XString(argv[4]), tv::XString("127.0.0.1"));
    const bool success = !connection.smtpConnect(call) && !tv::runSasl(call, package, connection);
    std::string text;
    log.getText(text);
    std::cout << text << connection.sessionLog().text() << std::flush;
    return success ? 0 : 1;
}
