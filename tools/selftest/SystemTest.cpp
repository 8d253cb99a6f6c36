// What Windows itself has to give: certificates to trust and an opinion on them, and a login as the
// user who is logged on. Nothing is written into its stores, and no domain is asked.
#include <gtest/gtest.h>

#include "base/Random.h"
#include "net/x509/X509Cert.h"
#include "platform/IpAddress.h"
#include "platform/SysNameServers.h"
#include "platform/SysProtect.h"
#include "platform/SysSecurityPackage.h"
#include "platform/SysTrustRoots.h"
#include "selftest/SystemFacts.h"
#include "tests/fixtures/Dialogue.h"

namespace selftest {
namespace {

using tv::plat::DerList;

TEST(CertificateStore, rootsCanBeReadAndTheSystemTrustsThem) {
    tv::plat::SysTrustRoots& system = tv::plat::sysTrustRoots();
    const DerList roots = system.anchors();
    size_t readable = 0, trusted = 0;
    std::string reason, reasons;
    for (const auto& der : roots) {
        tv::x509::Certificate certificate;
        DerList path;
        readable += tv::x509::parseCertificate(der, certificate) ? 1U : 0U;
        // Expired ones are kept, too: not each of them has to hold.
        if (trusted == 0 && system.findPath({der}, "", 1000, path, reason)) ++trusted;
        if (trusted == 0) reasons += reason + "\n";
    }
    for (const auto& der : system.refused())
        EXPECT_FALSE(der.empty());
    if (roots.empty() && isWine()) GTEST_SKIP() << "Wine has no root certificates here";
    EXPECT_GT(roots.size(), 0U);
    EXPECT_GT(2 * readable, roots.size()) << "of " << roots.size() << " roots";
    EXPECT_EQ(trusted, 1U) << reasons;
}

TEST(CertificateStore, whatIsNoCertificateIsRefused) {
    DerList path;
    std::string reason;
    EXPECT_FALSE(
        tv::plat::sysTrustRoots().findPath({{0x30, 0x03, 1, 1, 1}}, "", 1000, path, reason));
    EXPECT_EQ(reason, "The system cannot read the certificate.");
}

// The first message of each: as whoever is logged on, and by name and password. What a server would
// answer needs an account; that is for a message to one's own server.
TEST(SecurityPackages, makeTheFirstMessage) {
    using State = tv::plat::SecurityExchange::State;
    const tv::plat::SecurityIdentity named = {"anna", "secret", "OFFICE"};
    const tv::plat::SecurityIdentity* const identities[] = {nullptr, &named};
    for (const auto* identity : identities) {
        std::string reason;
        std::vector<uint8_t> message;
        const auto exchange =
            tv::plat::sysSecurity().begin("NTLM", "SMTP/mail.test", identity, reason);
        if (!exchange && isWine()) GTEST_SKIP() << "Wine without ntlm_auth: " << reason;
        ASSERT_TRUE(exchange) << reason;
        const State state = exchange->next({}, message, reason);
        if (state == State::Failed && isWine())
            GTEST_SKIP() << "Wine without ntlm_auth: " << reason;
        ASSERT_EQ(state, State::Continue) << reason;
        const std::string text(message.begin(), message.end());
        EXPECT_TRUE(text.starts_with(std::string_view("NTLMSSP\0\1\0\0\0", 12)));
    }
    std::string reason;
    EXPECT_FALSE(tv::plat::sysSecurity().begin("no such package", "", nullptr, reason));
    EXPECT_FALSE(reason.empty());
}

TEST(RandomSource, givesWhatNobodyHadBefore) {
    uint8_t first[32] = {}, second[32] = {};
    EXPECT_TRUE(tv::randomBytes(first) && tv::randomBytes(second));
    EXPECT_FALSE(std::equal(std::begin(first), std::end(first), second));
}

TEST(ProtectedSecrets, comeBackOnThisMachine) {
    std::string blob, secret;
    ASSERT_TRUE(tv::plat::protectForMachine("secret \xC3\xA1", blob));
    EXPECT_FALSE(tv::test::contains(blob, "secret"));
    EXPECT_TRUE(tv::plat::unprotectOfMachine(blob, secret));
    EXPECT_EQ(secret, "secret \xC3\xA1");
}

TEST(NameServers, canBeAskedFor) {
    std::vector<std::string> servers;
    std::string domain, reason;
    EXPECT_TRUE(tv::plat::sysNameServers().list(servers, domain, reason)) << reason;
    for (const std::string& server : servers)
        EXPECT_TRUE(tv::plat::parseIp(server)) << server;
}

}  // namespace
}  // namespace selftest
