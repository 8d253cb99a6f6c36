// A message to the server that the user names, with the settings file that counts here.
#include "base/CodePage.h"
#include "base/XString.h"
#include "emailsend/Arguments.h"
#include "platform/SysHost.h"
#include "selftest/Options.h"
#include "selftest/TestLibrary.h"

namespace selftest {
namespace {

using emailsend::Tls;

std::string ansi(const std::string& utf8) {
    return tv::utf8ToCodePageLossy(tv::plat::sysHost().ansiCodePage(), utf8);
}

TEST(OwnServer, takesAMessage) {
    const emailsend::Arguments& arguments = options().server;
    if (arguments.host.empty()) GTEST_SKIP() << "no --host was named";
    emailsend::PlugIn plugIn;
    std::string error;
    ASSERT_TRUE(plugIn.load(emailsend::libraryBesideProgram(), error)) << error;
    plugIn.Initialise();
    plugIn.setSmtpHost(ansi(arguments.host).c_str());
    plugIn.setSmtpPort(arguments.port);
    if (arguments.tls == Tls::Implicit) plugIn.setUseSSL(1);
    if (arguments.tls == Tls::StartTls) plugIn.setStartTls(1);
    plugIn.setSmtpUser(ansi(arguments.user).c_str());
    plugIn.setSmtpPassword(ansi(options().password).c_str());
    plugIn.setSmtpAuthMethod(ansi(arguments.authMethod).c_str());
    plugIn.setLoginDomain(ansi(arguments.domain).c_str());
    if (arguments.ntlmVersion) plugIn.setDefaultNtlmVersion(*arguments.ntlmVersion);
    plugIn.setVerboseLogging();
    plugIn.setFromAddress(arguments.from.c_str());
    for (const std::string& to : arguments.to)
        ASSERT_EQ(plugIn.setRecipient(to.c_str()), 1) << "no recipient: " << to;
    plugIn.setSubject(arguments.subject.empty() ? "Self-test" : arguments.subject.c_str());
    plugIn.setBody("<p>This message was sent to see whether mail goes out.</p>");
    plugIn.setLogo("");
    EXPECT_EQ(plugIn.szBrisko(), 1) << tv::XString::fromHost(plugIn.getLastError(), false).utf8();
}

}  // namespace
}  // namespace selftest
