// A mail manager in a network of this process, and the words of the servers it talks to.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "mail/ClsMailMan.h"
#include "mime/ClsEmail.h"
#include "tests/fixtures/FakeNet.h"
#include "tests/fixtures/FakeSystem.h"

namespace tv::test {

using Turns = std::vector<Turn>;

inline const char* const kServer = "10.0.0.1";
inline const char* const kSender = "anna@from.test";
inline const char* const kFirst = "bela@to.test";
inline const char* const kSecond = "cili@to.test";

inline Turn greeting(const std::string& reply = "220 mail.test ready\r\n") {
    return say(reply);
}
inline Turn ehlo(const std::string& reply = "250-mail.test\r\n250 8BITMIME\r\n") {
    return turn("EHLO TESTHOST\r\n", reply);
}
inline Turn ehloPiped() {
    return ehlo("250-mail.test\r\n250 PIPELINING\r\n");
}
inline Turn helo(const std::string& reply = "250 mail.test\r\n") {
    return turn("HELO TESTHOST\r\n", reply);
}
inline Turn mailFrom(const std::string& reply = "250 sender ok\r\n") {
    return turn("MAIL FROM:<anna@from.test>\r\n", reply);
}
inline Turn rcptTo(const std::string& reply = "250 recipient ok\r\n",
                   const std::string& address = kFirst) {
    return turn("RCPT TO:<" + address + ">\r\n", reply);
}
inline Turn data(const std::string& reply = "354 go ahead\r\n") {
    return turn("DATA\r\n", reply);
}
inline Turn message(const std::string& reply = "250 taken\r\n") {
    return upTo("\r\n.\r\n", reply);
}
inline Turn rset(const std::string& reply = "250 reset\r\n") {
    return turn("RSET\r\n", reply);
}
inline Turn quit() {
    return turn("QUIT\r\n", "221 bye\r\n").thenClose();
}

// The server says nothing more, and the connection stands.
inline Turn silence() {
    return upTo("never", "");
}

inline Turns operator+(Turns left, const Turns& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

// Openings and endings that many dialogues share.
inline Turns opened() {
    return {greeting(), ehlo()};
}
inline Turns openedPiped() {
    return {greeting(), ehloPiped()};
}
inline Turns trialTurns() {
    return {greeting(), ehlo(), quit()};
}
inline Turns wholeSend() {
    return opened() + Turns{mailFrom(), rcptTo(), data(), message(), quit()};
}
inline Turns wholeSendPiped() {
    return openedPiped() + Turns{mailFrom(), rcptTo(), data(), message(), quit()};
}

using Properties = std::vector<std::pair<const char*, const char*>>;

struct MailWorld {
    FakeClock clock;
    FakeRandom random;
    FakeHost host;
    FakeNet net{clock};
    ClsMailMan mailMan;
    ClsEmail email;

    explicit MailWorld(const Properties& properties = {}) {
        mailMan.setProperty("SmtpHost", XString(kServer));
        for (const auto& [name, value] : properties) {
            EXPECT_TRUE(mailMan.setProperty(name, XString(value))) << name;
        }
    }

    void compose(const std::vector<std::string>& recipients = {kFirst},
                 const char* sender = kSender) {
        email.put_FromAddress(XString(sender));
        email.put_Subject(XString("Subject"));
        email.SetHtmlBody(XString("<p>Body</p>"));
        for (const std::string& recipient : recipients) {
            EXPECT_TRUE(email.AddTo(XString(), XString(recipient))) << recipient;
        }
    }

    FakeLink& serve(const Turns& turns, int port = 25) {
        FakeLink& link = net.serve(kServer, port, turns);
        link.mayEndEarly = turns.back().expect == silence().expect;
        return link;
    }
    std::string transcript() { return std::string(mailMan.SmtpSessionLog().utf8()); }
    std::string logText() { return std::string(mailMan.lastErrorText().utf8()); }
    std::string word() { return std::string(statusWord(mailMan.lastSendStatus())); }
};

// The message bytes that went over the link, dots stuffed, without the terminator; empty if the
// terminator never came.
inline std::string messageOf(const FakeLink& link) {
    const std::string mark = "DATA\r\n";
    const size_t from = link.fromClient.find(mark);
    const size_t end = link.fromClient.find("\r\n.\r\n");
    if (from == std::string::npos || end == std::string::npos) return {};
    return link.fromClient.substr(from + mark.size(), end - from - mark.size());
}

inline bool contains(std::string_view text, std::string_view wanted) {
    return text.find(wanted) != std::string_view::npos;
}

// "{1234 bytes}" becomes "{N bytes}": sizes are other tests' matter.
inline std::string withoutSizes(const std::string& transcript) {
    std::string out;
    for (size_t i = 0; i < transcript.size(); ++i) {
        out += transcript[i];
        if (transcript[i] != '{') continue;
        size_t end = i + 1;
        while (end < transcript.size() && transcript[end] >= '0' && transcript[end] <= '9') {
            ++end;
        }
        if (end == i + 1) continue;
        out += 'N';
        i = end - 1;
    }
    return out;
}

}  // namespace tv::test
