// Where trust anchors come from: a given PEM file, the distribution's bundle, the Windows stores.
#include "net/stream/TrustStore.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>

#include "net/x509/Pem.h"
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
using plat::DerList;
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
const std::string kHost = "anchor.trust.test";
constexpr int64_t kNow = 1795254300;  // 2026-11-21

const DerList& chain() {
    static const DerList chain = x509::pemCertificates(kPem, 1);
    return chain;
}

// For bnchor.trust.test.
DerList stranger() {
    const std::string der =
        replaceAll({reinterpret_cast<const char*>(chain()[0].data()), chain()[0].size()}, kHost,
                   "bnchor.trust.test");
    return {{der.begin(), der.end()}};
}

ChainRule verdictOn(LogBase& log, const DerList& certificates, std::string_view host,
                    const std::string& file) {
    x509::WorkBudget budget([] { return 700; });
    return TrustAnchors(file).verify(log, certificates, host, kNow, budget).broken;
}

// Stands in for the system's stores and its chain engine.
class FakeTrust final : public StandIn<plat::SysTrustRoots> {
public:
    DerList anchors() override { return roots; }
    DerList refused() override { return disallowed; }
    std::vector<std::string> anchorFiles() override { return files; }
    bool findPath(const DerList&, const std::string& host, uint32_t timeoutMs, DerList& out,
                  std::string& reason) override {
        question = host + " " + std::to_string(timeoutMs);
        out = path;
        reason = "The system says no.";
        return !path.empty();
    }

    DerList roots, disallowed, path;
    std::vector<std::string> files;
    std::string question;
};

TEST(TrustStore, anchorsFromAFile) {
    const std::string whole = kPem;
    const struct {
        const char* name;
        std::string text;  // of the file; "-": there is none
        ChainRule broken;
    } kCases[] = {
        {"trusted", whole, ChainRule::None},
        {"as long, but other bytes", "?" + whole.substr(1), ChainRule::UnknownIssuer},
        {"between other things", "x\r\n" + whole + whole + "y", ChainRule::None},
        {"empty file", "", ChainRule::UnknownIssuer},
        {"cut certificate", whole.substr(0, 300), ChainRule::UnknownIssuer},
        {"no file", "-", ChainRule::UnknownIssuer},
    };
    const std::string path = "trust-store-test.pem";
    std::set<std::string> identities;
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        std::remove(path.c_str());
        const bool hasFile = c.text != "-";
        if (hasFile) {
            std::ofstream(path, std::ios::binary) << c.text;
            std::filesystem::last_write_time(path, {});
        }
        EXPECT_TRUE(identities.insert(TrustAnchors(path).identity()).second);
        // As the file that was given; or as the first there is of those that the system names.
        for (const bool given : {true, false}) {
            FakeTrust trust;
            trust.files = {"none.pem", path, "none.pem"};
            _tvLogger log;
            EXPECT_EQ(verdictOn(log, chain(), kHost, given ? path : ""), c.broken);
            expectLogged(log, given || hasFile ? "trustAnchors: " + path : "!trustAnchors");
            expectLogged(log, given && !hasFile ? "Failed to read the file of trust anchors."
                                                : "!Failed to read");
            EXPECT_EQ(trust.question.empty(), given || c.broken == ChainRule::None);
        }
    }
    std::remove(path.c_str());
}

TEST(TrustStore, theSystemIsAskedWhereWeFindNoPath) {
    const DerList own = chain(), none, other = stranger();
    // The same name with another key.
    DerList namesake = own, both = own;
    const uint8_t behindKey[] = {0xA3, 0x50, 0x30, 0x4E};
    --*(std::search(namesake[0].begin(), namesake[0].end(), behindKey, behindKey + 4) - 1);
    both.push_back(namesake[0]);
    using enum ChainRule;
    const struct {
        const char* name;
        const DerList &roots, &disallowed, &path;
        std::string host;
        ChainRule broken;
        bool asked;
    } kCases[] = {
        {"nobody knows", none, none, none, kHost, UnknownIssuer, true},
        {"the system knows", none, none, own, kHost, None, true},
        {"a host with a dot", none, none, own, kHost + ".", None, true},
        {"the system knows better", namesake, none, own, kHost, None, true},
        {"both know a namesake", namesake, none, none, kHost, BadSignature, true},
        {"a root that did not sign", none, none, both, kHost, BadSignature, true},
        {"a path of another", none, none, other, kHost, UnknownIssuer, true},
        {"for another host", none, none, own, "other.trust.test", HostMismatch, false},
        {"disallowed root", own, own, own, kHost, Disallowed, false},
        {"disallows another", own, other, none, kHost, None, false},
    };
    for (const auto& c : kCases) {
        FakeTrust trust;
        trust.roots = c.roots;
        trust.disallowed = c.disallowed;
        trust.path = c.path;
        _tvLogger log;
        EXPECT_EQ(verdictOn(log, own, c.host, ""), c.broken) << c.name;
        EXPECT_EQ(trust.question, c.asked ? kHost + " 700" : "") << c.name;
    }
}

#ifdef _WIN32

template <class Function>
Function entry(const char* name) {
    static const HMODULE library = LoadLibraryW(L"crypt32.dll");
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

// Puts the certificate into a store of this user as long as it lives; through crypt32 itself. The
// store may give it for some usages alone, whatever the certificate says.
class StoreEntry {
public:
    explicit StoreEntry(const wchar_t* store, const std::vector<const char*>* usages = nullptr) {
        store_ = entry<decltype(&CertOpenStore)>("CertOpenStore")(
            CERT_STORE_PROV_SYSTEM_REGISTRY_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, store);
        const auto add =
            entry<decltype(&CertAddEncodedCertificateToStore)>("CertAddEncodedCertificateToStore");
        EXPECT_TRUE(add(store_, X509_ASN_ENCODING, chain()[0].data(),
                        static_cast<DWORD>(chain()[0].size()), CERT_STORE_ADD_ALWAYS, &context_));
        if (usages) {
            CERT_ENHKEY_USAGE list = {static_cast<DWORD>(usages->size()),
                                      const_cast<char**>(usages->data())};
            const auto limit = entry<decltype(&CertSetEnhancedKeyUsage)>("CertSetEnhancedKeyUsage");
            EXPECT_TRUE(limit(context_, &list));
        }
        const auto control = entry<decltype(&CertControlStore)>("CertControlStore");
        EXPECT_TRUE(control(store_, 0, CERT_STORE_CTRL_COMMIT, nullptr));
    }
    ~StoreEntry() {
        entry<decltype(&CertDeleteCertificateFromStore)>("CertDeleteCertificateFromStore")(
            context_);
        entry<decltype(&CertCloseStore)>("CertCloseStore")(store_, 0);
    }
    StoreEntry(const StoreEntry&) = delete;
    StoreEntry& operator=(const StoreEntry&) = delete;

private:
    HCERTSTORE store_ = nullptr;
    PCCERT_CONTEXT context_ = nullptr;
};

TEST(TrustStore, windowsStores) {
    plat::SysTrustRoots& system = plat::sysTrustRoots();
    DerList path;
    std::string text;
    const auto verdict = [&](const DerList& certificates, const std::string& host) {
        _tvLogger log;
        const ChainRule broken = verdictOn(log, certificates, host, "");
        text = textOf(log);
        return broken;
    };
    const auto isAnchor = [&] {
        const DerList anchors = system.anchors();
        return std::find(anchors.begin(), anchors.end(), chain()[0]) != anchors.end();
    };
    EXPECT_TRUE(system.anchorFiles().empty());
    EXPECT_FALSE(isAnchor());
    {
        // The system reads its stores when it is asked first, so this comes first.
        const StoreEntry root(L"ROOT");
        EXPECT_TRUE(system.findPath(chain(), kHost, 1000, path, text)) << text;
        EXPECT_EQ(path, chain());
        EXPECT_TRUE(isAnchor());
        EXPECT_EQ(verdict(chain(), kHost), ChainRule::None) << text;
        const StoreEntry refused(L"Disallowed");
        EXPECT_EQ(verdict(chain(), kHost), ChainRule::Disallowed);
    }
    EXPECT_FALSE(isAnchor());
    EXPECT_EQ(system.refused(), DerList());
    const std::vector<const char*> kUsages[] = {
        {szOID_PKIX_KP_SERVER_AUTH},
        {szOID_PKIX_KP_CLIENT_AUTH, szOID_PKIX_KP_SERVER_AUTH},
        {szOID_ANY_ENHANCED_KEY_USAGE},
        {szOID_PKIX_KP_CLIENT_AUTH},
        {}};
    for (const auto& usages : kUsages) {
        const StoreEntry root(L"ROOT", &usages);
        EXPECT_EQ(isAnchor(), &usages < kUsages + 3) << testing::PrintToString(usages);
    }
    EXPECT_EQ(verdict(stranger(), "bnchor.trust.test"), ChainRule::UnknownIssuer);
    EXPECT_NE(text.find("The system does not trust the chain (status "), std::string::npos) << text;
    EXPECT_FALSE(system.findPath({{0x30, 0x03, 1, 1, 1}}, "", 1000, path, text));
    EXPECT_EQ(text, "The system cannot read the certificate.");
    EXPECT_FALSE(system.findPath({}, "", 1000, path, text));
    EXPECT_EQ(text, "The system has no opinion on certificates.");
}

#else

TEST(TrustStore, noStoresElsewhere) {
    _tvLogger log;
    EXPECT_TRUE(plat::sysTrustRoots().anchors().empty());
    EXPECT_EQ(verdictOn(log, chain(), kHost, ""), ChainRule::UnknownIssuer);
    expectLogged(log, "The system has no opinion on certificates.");
}

#endif

}  // namespace
}  // namespace tv
