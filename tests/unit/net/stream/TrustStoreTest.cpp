// Where trust anchors come from: a given PEM file, the distribution's bundle, the Windows stores.
#include "net/stream/TrustStore.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>

#include "net/x509/Pem.h"
#include "platform/SysFile.h"
#include "platform/SysTrustRoots.h"
#include "tests/unit/net/NetTestKit.h"

#ifdef _WIN32
#include <windows.h>
// wincrypt.h needs windows.h before it
#include <wincrypt.h>
#endif

namespace tv {
namespace {

using namespace tv::test;
using x509::ChainRule;

// Signed by itself, for anchor.trust.test, from 2000 to 2100.
constexpr char kPem[] =
    "-----BEGIN CERTIFICATE-----\n"
    "MIIBeTCCAR+gAwIBAgIBATAKBggqhkjOPQQDAjAcMRowGAYDVQQDDBFhbmNob3Iu\n"
    "dHJ1c3QudGVzdDAgFw0wMDAxMDEwMDAwMDBaGA8yMTAwMDEwMTAwMDAwMFowHDEa\n"
    "MBgGA1UEAwwRYW5jaG9yLnRydXN0LnRlc3QwWTATBgcqhkjOPQIBBggqhkjOPQMB\n"
    "BwNCAASv6IXiSc3Yk3D16ajN5HwCKG9a/tWIlKRf1imHEtvEvT94BQ0G0UhNSG0q\n"
    "4lb1g8eZ4zPdsx/slLreYt/3OUtSo1AwTjAPBgNVHRMBAf8EBTADAQH/MBwGA1Ud\n"
    "EQQVMBOCEWFuY2hvci50cnVzdC50ZXN0MB0GA1UdDgQWBBQs5HXon8M/SimPkQSE\n"
    "kMvHBKWGlzAKBggqhkjOPQQDAgNIADBFAiBn4P1y7jiwqT0cyELlrvQXRPBFdtgb\n"
    "qv3MaIReVPCLsgIhAPoQaJD3EhKUepD7qBmX/ZUa2o3JZXbUIdq0tfzkKX2S\n"
    "-----END CERTIFICATE-----\n";
constexpr char kHost[] = "anchor.trust.test";
constexpr int64_t kNow = 1795254300;  // 2026-11-21

plat::DerList chainOfOne() {
    return x509::pemCertificates(kPem, 1);
}

ChainRule verdictOn(LogBase& log, const plat::DerList& chain, const char* host, int64_t now,
                    const std::string& file) {
    x509::WorkBudget budget;
    return TrustAnchors(file).verify(log, chain, host, now, budget).broken;
}

TEST(TrustStore, AnchorsFromAFile) {
    const std::string whole = kPem;
    const std::string wanting = "Failed to read the file of trust anchors.";
    const struct {
        const char* name;
        std::string text;  // of the file; "-": there is none
        const char* host;
        int64_t now;
        ChainRule broken;
    } kCases[] = {
        {"trusted", whole, kHost, kNow, ChainRule::None},
        {"between other things", "x\r\n" + whole + whole + "y", kHost, kNow, ChainRule::None},
        {"another host", whole, "other.trust.test", kNow, ChainRule::HostMismatch},
        {"too late", whole, kHost, 4102444801, ChainRule::Expired},
        {"too early", whole, kHost, 946684799, ChainRule::NotYetValid},
        {"empty file", "", kHost, kNow, ChainRule::UnknownIssuer},
        {"cut certificate", whole.substr(0, 300), kHost, kNow, ChainRule::UnknownIssuer},
        {"as long", "?" + whole.substr(1), kHost, kNow, ChainRule::UnknownIssuer},
        {"no file", "-", kHost, kNow, ChainRule::UnknownIssuer},
    };
    const std::string path = "trust-store-test.pem";
    std::map<std::string, std::string> texts;  // by the identity of the anchors
    for (const auto& c : kCases) {
        std::remove(path.c_str());
        if (c.text != "-") {
            std::FILE* file = std::fopen(path.c_str(), "wb");
            ASSERT_NE(file, nullptr);
            std::fwrite(c.text.data(), 1, c.text.size(), file);
            std::fclose(file);
            std::filesystem::last_write_time(path, {});
        }
        EXPECT_EQ(texts.emplace(TrustAnchors(path).identity(), c.text).first->second, c.text)
            << c.name;
        _tvLogger log;
        EXPECT_EQ(verdictOn(log, chainOfOne(), c.host, c.now, path), c.broken) << c.name;
        expectLogged(log, "trustAnchors: " + path);
        EXPECT_EQ(textOf(log).find(wanting) != std::string::npos, c.text == "-") << c.name;
    }
    std::remove(path.c_str());
}

// Stands in for the system's stores and its chain engine.
class FakeTrust final : public plat::SysTrustRoots {
public:
    ~FakeTrust() override { plat::replaceSysTrustRoots(before_); }

    plat::DerList anchors() override { return roots; }
    plat::DerList refused() override { return disallowed; }
    std::vector<std::string> anchorFiles() override { return {}; }
    bool findPath(const plat::DerList&, const std::string& host, uint32_t timeoutMs,
                  plat::DerList& out, std::string& reason) override {
        question = host + " " + std::to_string(timeoutMs);
        out = path;
        reason = "The system says no.";
        return !path.empty();
    }

    plat::DerList roots, disallowed, path;
    std::string question;

private:
    plat::SysTrustRoots* before_ = plat::replaceSysTrustRoots(this);
};

plat::DerList operator+(plat::DerList a, const plat::DerList& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

TEST(TrustStore, TheSystemIsAskedWhereWeFindNoPath) {
    const plat::DerList own = chainOfOne();
    // The same name with another key, another signature that is as good as none, another name.
    plat::DerList namesake = own, rewritten = own, stranger = own;
    const uint8_t behindKey[] = {0xA3, 0x50, 0x30, 0x4E};
    --*(std::search(namesake[0].begin(), namesake[0].end(), behindKey, behindKey + 4) - 1);
    ++rewritten[0].back();
    const std::string_view name = kHost;
    for (auto at = stranger[0].begin(); at != stranger[0].end();) {
        at = std::search(at, stranger[0].end(), name.begin(), name.end());
        if (at != stranger[0].end()) *at = 'b';
    }
    const struct {
        const char* name;
        plat::DerList roots, disallowed, path;
        const char* host;
        ChainRule broken;
        bool asked;
    } kCases[] = {
        {"our own root", own, {}, {}, kHost, ChainRule::None, false},
        {"nobody knows", {}, {}, {}, kHost, ChainRule::UnknownIssuer, true},
        {"the system knows", {}, {}, own, kHost, ChainRule::None, true},
        {"the system knows better", namesake, {}, own, kHost, ChainRule::None, true},
        {"both know a namesake", namesake, {}, {}, kHost, ChainRule::BadSignature, true},
        {"a root that did not sign", {}, {}, own + namesake, kHost, ChainRule::BadSignature, true},
        {"a root of another name", {}, {}, own + stranger, kHost, ChainRule::UnknownIssuer, true},
        {"a path of another", {}, {}, stranger, kHost, ChainRule::UnknownIssuer, true},
        {"for another host", {}, {}, own, "other.trust.test", ChainRule::HostMismatch, false},
        {"disallowed root", own, own, own, kHost, ChainRule::Disallowed, false},
        {"disallowed, signed anew", own, rewritten, own, kHost, ChainRule::Disallowed, false},
        {"disallows another", own, stranger, {}, kHost, ChainRule::None, false},
    };
    for (const auto& c : kCases) {
        FakeTrust trust;
        trust.roots = c.roots;
        trust.disallowed = c.disallowed;
        trust.path = c.path;
        _tvLogger log;
        x509::WorkBudget budget([] { return 700; });
        EXPECT_EQ(TrustAnchors("").verify(log, own, c.host, kNow, budget).broken, c.broken)
            << c.name;
        EXPECT_EQ(trust.question, c.asked ? std::string(kHost) + " 700" : "") << c.name;
    }
}

#ifdef _WIN32

// Puts a certificate into a store of this user as long as it lives; through crypt32 itself. The
// store may give it for some usages alone, whatever the certificate says.
class StoreEntry {
public:
    using Usages = std::vector<std::string>;
    StoreEntry(const wchar_t* store, const std::vector<uint8_t>& der,
               const Usages* usages = nullptr) {
        const HMODULE library = LoadLibraryW(L"crypt32.dll");
        close_ = entry<decltype(close_)>(library, "CertCloseStore");
        remove_ = entry<decltype(remove_)>(library, "CertDeleteCertificateFromStore");
        const auto open = entry<decltype(&CertOpenStore)>(library, "CertOpenStore");
        const auto add = entry<decltype(&CertAddEncodedCertificateToStore)>(
            library, "CertAddEncodedCertificateToStore");
        store_ =
            open(CERT_STORE_PROV_SYSTEM_REGISTRY_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, store);
        const auto control = entry<decltype(&CertControlStore)>(library, "CertControlStore");
        EXPECT_TRUE(store_ &&
                    add(store_, X509_ASN_ENCODING, der.data(), static_cast<DWORD>(der.size()),
                        CERT_STORE_ADD_ALWAYS, &context_) &&
                    (!usages || limitTo(library, *usages)) &&
                    control(store_, 0, CERT_STORE_CTRL_COMMIT, nullptr));
    }
    ~StoreEntry() {
        if (context_) remove_(context_);
        if (store_) close_(store_, 0);
    }
    StoreEntry(const StoreEntry&) = delete;
    StoreEntry& operator=(const StoreEntry&) = delete;

private:
    bool limitTo(HMODULE library, const Usages& usages) {
        std::vector<char*> oids;
        for (const std::string& oid : usages) {
            oids.push_back(const_cast<char*>(oid.c_str()));
        }
        CERT_ENHKEY_USAGE list = {static_cast<DWORD>(oids.size()), oids.data()};
        return entry<decltype(&CertSetEnhancedKeyUsage)>(library, "CertSetEnhancedKeyUsage")(
                   context_, &list) != FALSE;
    }

    template <class Function>
    static Function entry(HMODULE library, const char* name) {
        return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
    }

    decltype(&CertCloseStore) close_ = nullptr;
    decltype(&CertDeleteCertificateFromStore) remove_ = nullptr;
    HCERTSTORE store_ = nullptr;
    PCCERT_CONTEXT context_ = nullptr;
};

TEST(TrustStore, WindowsStores) {
    const auto verdict = [](const plat::DerList& chain, const char* host, std::string& text) {
        _tvLogger log;
        const ChainRule broken = verdictOn(log, chain, host, kNow, "");
        text = textOf(log);
        return broken;
    };
    const auto isAnchor = [](const std::vector<uint8_t>& der) {
        const plat::DerList anchors = plat::sysTrustRoots().anchors();
        return std::find(anchors.begin(), anchors.end(), der) != anchors.end();
    };
    const plat::DerList chain = chainOfOne();
    plat::SysTrustRoots& system = plat::sysTrustRoots();
    plat::DerList path;
    std::string text;
    EXPECT_TRUE(plat::sysTrustRoots().anchorFiles().empty());
    EXPECT_FALSE(isAnchor(chain[0]));
    {
        // The system reads its stores when it is asked first, so this comes first.
        const StoreEntry root(L"ROOT", chain[0]);
        EXPECT_TRUE(system.findPath(chain, kHost, 1000, path, text)) << text;
        EXPECT_EQ(path, chain);
        EXPECT_TRUE(isAnchor(chain[0]));
        EXPECT_EQ(verdict(chain, kHost, text), ChainRule::None) << text;
        EXPECT_EQ(verdict(chain, "other.trust.test", text), ChainRule::HostMismatch);

        const StoreEntry refused(L"Disallowed", chain[0]);
        EXPECT_EQ(verdict(chain, kHost, text), ChainRule::Disallowed);
    }
    EXPECT_FALSE(isAnchor(chain[0]));
    EXPECT_EQ(system.refused(), plat::DerList());
    const struct {
        StoreEntry::Usages usages;
        bool isAnchor;
    } kUsages[] = {{{szOID_PKIX_KP_SERVER_AUTH}, true},
                   {{szOID_PKIX_KP_CLIENT_AUTH, szOID_PKIX_KP_SERVER_AUTH}, true},
                   {{szOID_ANY_ENHANCED_KEY_USAGE}, true},
                   {{szOID_PKIX_KP_CLIENT_AUTH}, false},
                   {{}, false}};
    for (const auto& c : kUsages) {
        const StoreEntry root(L"ROOT", chain[0], &c.usages);
        EXPECT_EQ(isAnchor(chain[0]), c.isAnchor) << testing::PrintToString(c.usages);
    }

    plat::DerList stranger = chain;
    const std::string_view name = "anchor.trust.test";
    for (auto at = stranger[0].begin();;) {
        at = std::search(at, stranger[0].end(), name.begin(), name.end());
        if (at == stranger[0].end()) break;
        *at = 'b';
    }
    EXPECT_EQ(verdict(stranger, "bnchor.trust.test", text), ChainRule::UnknownIssuer);
    EXPECT_NE(text.find("The system does not trust the chain (status "), std::string::npos) << text;
    EXPECT_FALSE(system.findPath({{0x30, 0x03, 1, 1, 1}}, "", 1000, path, text));
    EXPECT_EQ(text, "The system cannot read the certificate.");
    EXPECT_FALSE(system.findPath({}, "", 1000, path, text));
    EXPECT_EQ(text, "The system has no opinion on certificates.");
}

#else

// The first bundle that exists counts, and it holds what it should.
TEST(TrustStore, BundleOfTheDistribution) {
    _tvLogger log;
    EXPECT_TRUE(plat::sysTrustRoots().anchors().empty());
    EXPECT_EQ(verdictOn(log, chainOfOne(), kHost, kNow, ""), ChainRule::UnknownIssuer);
    expectLogged(log, "The system has no opinion on certificates.");
    for (const std::string& path : plat::sysTrustRoots().anchorFiles()) {
        if (!plat::isRegularFile(path)) continue;
        expectLogged(log, "trustAnchors: " + path);
        return;
    }
    GTEST_SKIP() << "this machine has no bundle of trust anchors";
}

#endif

}  // namespace
}  // namespace tv
