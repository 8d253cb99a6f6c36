// A message through the library's exports to a server of this program, plain and over TLS.
#include "selftest/ServerKeys.h"
#include "selftest/SmtpSink.h"
#include "selftest/TestLibrary.h"
#include "tests/fixtures/Dialogue.h"

namespace selftest {
namespace {

struct Row {
    const char* name;
    Security security;
    const char* settings;
};

// With its certificate as the only one to trust: the chain and the signature have to hold.
constexpr char kImplicit[] =
    "[server]\nencryption = implicit\n[certificate]\nverify = yes\nroots = ";
constexpr char kStartTls[] =
    "[server]\nencryption = starttls\n[certificate]\nverify = yes\nroots = ";

class Send : public TestLibrary, public testing::WithParamInterface<Row> {};

INSTANTIATE_TEST_SUITE_P(, Send,
                         testing::Values(Row{"plain", Security::Plain, ""},
                                         Row{"tls13", Security::ImplicitTls13, kImplicit},
                                         Row{"tls12", Security::StartTls12, kStartTls}),
                         [](const auto& row) { return row.param.name; });

TEST_P(Send, arrivesWhole) {
    const SmtpSink sink(GetParam().security);
    ASSERT_NE(sink.port(), 0) << "no server on 127.0.0.1";
    const std::string root = writeFile("root.pem", kServerCertificate);
    useSettings(*GetParam().settings ? GetParam().settings + root + "\n" : "");
    std::string attachment;
    for (int i = 0; i < 20000; ++i)
        attachment += std::to_string(i) + "\r\n";
    plugIn.Initialise();
    plugIn.setSmtpHost("127.0.0.1");
    plugIn.setSmtpPort(sink.port());
    plugIn.setFromAddress("anna@from.test");
    ASSERT_EQ(plugIn.setRecipient("bela@to.test"), 1);
    ASSERT_EQ(plugIn.setBCC("cili@to.test"), 1);
    plugIn.setSubject("Self-test");
    plugIn.setBody("<p>Body of the self-test</p>");
    plugIn.setLogo("");
    plugIn.setAttachment(writeFile("numbers.txt", attachment).c_str());

    EXPECT_EQ(plugIn.szBrisko(), 1) << plugIn.getLastError();
    EXPECT_EQ(sink.complaints(), std::vector<std::string>());
    const std::vector<std::string> messages = sink.messages();
    ASSERT_EQ(messages.size(), 1U);
    for (const char* part : {"MAIL FROM:<anna@from.test>", "RCPT TO:<bela@to.test>",
                             "RCPT TO:<cili@to.test>", "\r\nSubject: Self-test\r\n",
                             "<p>Body of the self-test</p>", "\r\n0\r\n1\r\n", "\r\n19999\r\n"})
        EXPECT_TRUE(tv::test::contains(messages[0], part)) << part << "\n"
                                                           << messages[0].substr(0, 4000);
}

}  // namespace
}  // namespace selftest
