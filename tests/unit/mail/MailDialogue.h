// A mail manager in a network of this process, and the words of the servers it talks to.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "mail/ClsMailMan.h"
#include "mime/ClsEmail.h"
#include "tests/fixtures/Dialogue.h"
#include "tests/fixtures/FakeNet.h"
#include "tests/fixtures/FakeSystem.h"
#include "tests/fixtures/Record.h"

namespace tv::test {

inline const char* const kServer = "10.0.0.1";
inline const char* const kSender = "anna@from.test";
inline const char* const kFirst = "bela@to.test";
inline const char* const kSecond = "cili@to.test";

inline Turns wholeSend() {
    return script("whole");
}
inline Turns wholeSendPiped() {
    return script("whole-piped");
}

using Properties = std::vector<std::pair<const char*, const char*>>;

struct MailWorld {
    FakeClock clock;
    FakeRandom random;
    FakeHost host;
    FakeNet net{clock};
    ClsMailMan mailMan;
    ClsEmail email;

    explicit MailWorld(const Properties& properties = {});
    ~MailWorld() { record(word() + '\n' + transcript() + logText()); }

    void compose(const std::vector<std::string>& recipients = {kFirst},
                 const char* sender = kSender);
    FakeLink& serve(const Turns& turns, int port = 25);
    FakeLink& serve(const char* steps, int port = 25) { return serve(script(steps), port); }
    bool send() { return mailMan.SendEmail(email); }
    void set(const char* name, std::string_view value) {
        mailMan.setProperty(name, XString(value));
    }

    std::string transcript() { return std::string(mailMan.SmtpSessionLog().utf8()); }
    std::string logText() { return std::string(mailMan.lastErrorText().utf8()); }
    std::string word() { return std::string(mailMan.lastSendStatus()); }
};

// The message bytes that went over the link, dots stuffed, without the terminator; empty if the
// terminator never came.
std::string messageOf(const FakeLink& link);

}  // namespace tv::test
