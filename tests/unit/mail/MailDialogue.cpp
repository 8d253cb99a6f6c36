#include "tests/unit/mail/MailDialogue.h"

namespace tv::test {

MailWorld::MailWorld(const Properties& properties) {
    mailMan.setProperty("SmtpHost", XString(kServer));
    for (const auto& [name, value] : properties) {
        EXPECT_TRUE(mailMan.setProperty(name, XString(value))) << name;
    }
}

void MailWorld::compose(const std::vector<std::string>& recipients, const char* sender) {
    email.put_FromAddress(XString(sender));
    email.put_Subject(XString("Subject"));
    email.SetHtmlBody(XString("<p>Body</p>"));
    for (const std::string& recipient : recipients) {
        EXPECT_TRUE(email.AddTo(XString(), XString(recipient))) << recipient;
    }
}

FakeLink& MailWorld::serve(const Turns& turns, int port) {
    FakeLink& link = net.serve(kServer, port, turns);
    link.mayEndEarly = turns.back().expect == silence().expect;
    return link;
}

std::string messageOf(const FakeLink& link) {
    const std::string mark = "DATA\r\n";
    const size_t from = link.fromClient.find(mark);
    const size_t end = link.fromClient.find("\r\n.\r\n");
    if (from == std::string::npos || end == std::string::npos) return {};
    return link.fromClient.substr(from + mark.size(), end - from - mark.size());
}

}  // namespace tv::test
