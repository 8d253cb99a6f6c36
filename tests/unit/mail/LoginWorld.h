// What the tests of logins share: credentials that must never show, and the check that they do not.
#pragma once

#include "base/Base64.h"
#include "platform/SysSecurityPackage.h"
#include "tests/unit/mail/MailDialogue.h"

namespace tv::test {

// In base64 "tester" is dGVzdGVy, the password aGlkZGVuLXdvcmQ=.
inline const char* const kPassword = "hidden-word";
inline const char* const kToken = "hidden-token";

inline Properties withPassword(const Properties& more = {}) {
    Properties all = {{"SmtpUsername", "tester"}, {"SmtpPassword", kPassword}};
    all.insert(all.end(), more.begin(), more.end());
    return all;
}
inline Properties withToken(const Properties& more = {}) {
    Properties all = {{"SmtpUsername", "tester"}, {"OAuth2AccessToken", kToken}};
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

inline Turns offering(const std::string& mechanisms) {
    return script("greet; ehlo 250-mail.test|250 AUTH " + mechanisms);
}

// Neither the secrets nor what travels of them; every test of a login ends with this.
inline void expectNothingShown(MailWorld& world) {
    for (const std::string& text : {world.logText(), world.transcript()}) {
        for (const char* secret :
             {kPassword, kToken, "aGlkZGVuLXdvcmQ", "hpZGRlbi13b3Jk", "oaWRkZW4td29yZ",
              "aGlkZGVuLXRva2Vu", "hpZGRlbi10b2tlb", "oaWRkZW4tdG9rZW", "ZTQ5M2YxNTc5OGFiMzc1ZDJm",
              "MzN2YxNTc5OGFiMzc1ZDJm"}) {
            EXPECT_FALSE(contains(text, secret)) << secret << "\n" << text;
        }
    }
}

// A system with security packages, whose tokens are texts.
class FakeSecurity final : public plat::SysSecurity {
public:
    ~FakeSecurity() override { plat::replaceSysSecurity(before_); }

    std::unique_ptr<plat::SecurityExchange> begin(std::string_view package,
                                                  const std::string& target,
                                                  const plat::SecurityIdentity* identity,
                                                  std::string& error) override {
        asked.push_back(std::string(package) + " " + target);
        users.push_back(identity ? std::string(identity->user) : "logged on");
        error = "no such package";
        if (package != available) return nullptr;
        ++open;
        return std::make_unique<Exchange>(*this);
    }

    std::string available;            // package
    std::vector<std::string> tokens;  // one for each step; the last one ends
    bool fails = false;               // after the last token instead
    std::vector<std::string> asked, users, challenges;
    int open = 0;

private:
    struct Exchange final : plat::SecurityExchange {
        explicit Exchange(FakeSecurity& security) : owner(security) {}
        ~Exchange() override { --owner.open; }
        State next(std::span<const uint8_t> in, std::vector<uint8_t>& out,
                   std::string& error) override {
            owner.challenges.emplace_back(in.begin(), in.end());
            if (at == owner.tokens.size()) {
                error = "no logon";
                return State::Failed;
            }
            const std::string& token = owner.tokens[at++];
            out.assign(token.begin(), token.end());
            return at == owner.tokens.size() && !owner.fails ? State::Done : State::Continue;
        }
        FakeSecurity& owner;
        size_t at = 0;
    };

    plat::SysSecurity* before_ = plat::replaceSysSecurity(this);
};

}  // namespace tv::test
