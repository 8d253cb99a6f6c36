// A mail manager in a network of this process, credentials that must never show, and the security
// package that the system may have.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/Ascii.h"
#include "mail/ClsMailMan.h"
#include "mime/ClsEmail.h"
#include "platform/SysSecurityPackage.h"
#include "tests/fixtures/Dialogue.h"
#include "tests/fixtures/FakeNet.h"
#include "tests/fixtures/FakeSystem.h"
#include "tests/fixtures/Record.h"

namespace tv::test {

inline const char* const kServer = "10.0.0.1";
inline const char* const kSender = "anna@from.test";
inline const char* const kFirst = "bela@to.test";
inline const char* const kSecond = "cili@to.test";

using Properties = std::vector<std::pair<const char*, const char*>>;

// A system with one security package at most. The first token tells what was asked for, the others
// what they answer. To "more" there is a further token, to "no" none.
class FakeSecurity final : public plat::SysSecurity {
public:
    ~FakeSecurity() override { plat::replaceSysSecurity(before_); }

    std::unique_ptr<plat::SecurityExchange> begin(std::string_view package,
                                                  const std::string& target,
                                                  const plat::SecurityIdentity* identity,
                                                  std::string& error) override {
        std::string asked = std::string(package) + " " + target + " ";
        asked += identity ? std::string(identity->user) + "@" + std::string(identity->domain)
                          : "logged on";
        error = "none: " + asked;
        if (package != available) return nullptr;
        return std::make_unique<Exchange>(asked);
    }

    std::string available;

private:
    struct Exchange final : plat::SecurityExchange {
        explicit Exchange(std::string asked) : first(std::move(asked)) {}
        State next(std::span<const uint8_t> in, std::vector<uint8_t>& out, std::string&) override {
            const std::string challenge(in.begin(), in.end());
            const std::string token = challenge.empty() ? first : "answer to " + challenge;
            out.assign(token.begin(), token.end());
            if (challenge == "no") return State::Failed;
            return challenge.empty() || challenge == "more" ? State::Continue : State::Done;
        }
        std::string first;
    };

    plat::SysSecurity* before_ = plat::replaceSysSecurity(this);
};

// What the application is told, and when it says stop.
struct Watcher final : ProgressMonitor {
    bool abortRequested() override { return stops(); }
    void progress(uint64_t done, uint64_t total) override {
        EXPECT_LE(done, total);
        progressed.push_back(done);
    }
    void textEvent(std::string_view name, std::string_view text) override {
        if (text == noMemoryAt) throw std::bad_alloc();
        events += std::string(name) + " " + std::string(text) + "\n";
    }
    uint32_t heartbeatMs() const override { return heartbeat; }

    std::function<bool()> stops = [] { return false; };
    std::string events, noMemoryAt = "nowhere";
    std::vector<uint64_t> progressed;
    uint32_t heartbeat = 0;
};

struct MailWorld {
    FakeClock clock;
    FakeRandom random;
    FakeHost host;
    FakeSecurity security;
    FakeNet net{clock};
    ClsMailMan mailMan;
    ClsEmail email;

    explicit MailWorld(const Properties& properties = {}) {
        set("SmtpHost", kServer);
        for (const auto& [name, value] : properties)
            set(name, value);
    }
    ~MailWorld() { record(word() + '\n' + transcript() + logText()); }

    void compose(const std::vector<std::string>& recipients = {kFirst},
                 const std::string& sender = kSender) {
        email.put_FromAddress(XString(sender));
        email.put_Subject(XString("Subject"));
        email.SetHtmlBody(XString("<p>Body</p>"));
        for (const std::string& recipient : recipients)
            EXPECT_TRUE(email.AddTo(XString(), XString(recipient))) << recipient;
    }
    FakeLink& serve(const Turns& turns, int port = 25) {
        FakeLink& link = net.serve(kServer, port, turns);
        link.mayEndEarly = turns.back().expect == silence().expect;
        return link;
    }
    FakeLink& serve(const std::string& steps, int port = 25) { return serve(script(steps), port); }
    bool send(ProgressMonitor* monitor = nullptr) { return mailMan.SendEmail(email, monitor); }
    void set(std::string_view name, std::string_view value) {
        EXPECT_TRUE(mailMan.setProperty(name, XString(value))) << name;
    }

    std::string transcript() { return std::string(mailMan.SmtpSessionLog().utf8()); }
    std::string logText() { return std::string(mailMan.lastErrorText().utf8()); }
    std::string word() { return std::string(mailMan.lastSendStatus()); }
};

// Neither "hidden-word" and "hidden-token" nor what travels of them, at any place of a longer text
// in base64; nor the last words of CRAM-MD5, NTLM and the security package.
inline void expectNothingShown(std::string_view text) {
    for (const char* secret : {"hidden-word", "hidden-token", "aGlkZGVuL", "hpZGRlbi", "oaWRkZW4t",
                               "MzN2YxNTc5OGFiMzc1ZDJm", "TlRMTVNTUAAD", "YW5zd2VyIHRv"})
        EXPECT_FALSE(contains(text, secret)) << secret << "\n" << text;
}

// The message bytes that went over the link, dots stuffed, without the terminator; empty if the
// terminator never came.
inline std::string messageOf(const FakeLink& link) {
    const std::string mark = "DATA\r\n";
    const size_t from = link.fromClient.find(mark);
    const size_t end = link.fromClient.find("\r\n.\r\n");
    if (from == std::string::npos || end == std::string::npos) return {};
    return link.fromClient.substr(from + mark.size(), end - from - mark.size());
}

}  // namespace tv::test
