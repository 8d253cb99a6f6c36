// The stores of crypt32 and its chain engine. What a root may be used for is asked of the store;
// what the engine says of a chain is asked for a TLS server.
#include "platform/SysTrustRoots.h"

#define CERT_CHAIN_PARA_HAS_EXTRA_FIELDS  // the time-out of dwUrlRetrievalTimeout
#include <windows.h>
// wincrypt.h needs windows.h before it
#include <wincrypt.h>

#include <algorithm>
#include <iterator>
#include <string_view>

#include "platform/HexNumber.h"
#include "platform/Replaceable.h"
#include "platform/SysLibrary.h"
#include "platform/win32/WidePath.h"

namespace tv::plat {
namespace {

// Conditions under which Windows takes a root: distrusted from a date on or for usages, taken for
// certificates issued before a date. Older headers have no names for them.
constexpr DWORD kConditions[] = {104, 122, 126, 127};

// crypt32, from the system folder and never unloaded.
struct Crypt32 {
    decltype(&CertOpenSystemStoreW) openStore = nullptr;
    decltype(&CertCloseStore) closeStore = nullptr;
    decltype(&CertEnumCertificatesInStore) next = nullptr;
    decltype(&CertCreateCertificateContext) createContext = nullptr;
    decltype(&CertFreeCertificateContext) freeContext = nullptr;
    decltype(&CertOpenStore) openMemoryStore = nullptr;
    decltype(&CertAddEncodedCertificateToStore) add = nullptr;
    decltype(&CertGetCertificateChain) buildChain = nullptr;
    decltype(&CertFreeCertificateChain) freeChain = nullptr;
    decltype(&CertVerifyCertificateChainPolicy) judgeChain = nullptr;
    decltype(&CertGetEnhancedKeyUsage) usages = nullptr;
    decltype(&CertGetCertificateContextProperty) property = nullptr;
    bool usable = false;

    Crypt32() {
        auto& library = *new SysLibrary;
        std::string reason;
        if (!library.open(inSystemFolder(L"\\crypt32.dll"), reason)) return;
        library.find("CertOpenSystemStoreW", openStore);
        library.find("CertCloseStore", closeStore);
        library.find("CertEnumCertificatesInStore", next);
        library.find("CertCreateCertificateContext", createContext);
        library.find("CertFreeCertificateContext", freeContext);
        library.find("CertOpenStore", openMemoryStore);
        library.find("CertAddEncodedCertificateToStore", add);
        library.find("CertGetCertificateChain", buildChain);
        library.find("CertFreeCertificateChain", freeChain);
        library.find("CertVerifyCertificateChainPolicy", judgeChain);
        library.find("CertGetEnhancedKeyUsage", usages);
        library.find("CertGetCertificateContextProperty", property);
        usable = openStore && closeStore && next && createContext && freeContext &&
                 openMemoryStore && add && buildChain && freeChain && judgeChain && usages &&
                 property;
    }
};

const Crypt32& crypt32() {
    static const Crypt32& library = *new Crypt32;
    return library;
}

std::vector<uint8_t> derOf(const CERT_CONTEXT& certificate) {
    return {certificate.pbCertEncoded, certificate.pbCertEncoded + certificate.cbCertEncoded};
}

// Of the certificate's extension and of the store's own list, what both allow. An empty result with
// CRYPT_E_NOT_FOUND means that neither limits anything, without it that nothing is left.
bool isForServers(PCCERT_CONTEXT certificate) {
    const Crypt32& c = crypt32();
    const auto nothingLimits = [] {
        return GetLastError() == static_cast<DWORD>(CRYPT_E_NOT_FOUND);
    };
    DWORD size = 0;
    if (!c.usages(certificate, 0, nullptr, &size)) return nothingLimits();
    std::vector<CERT_ENHKEY_USAGE> buffer(size / sizeof(CERT_ENHKEY_USAGE) + 1);
    CERT_ENHKEY_USAGE& usages = buffer.front();
    SetLastError(ERROR_SUCCESS);
    if (!c.usages(certificate, 0, &usages, &size) || usages.cUsageIdentifier == 0) {
        return nothingLimits();
    }
    return std::any_of(
        usages.rgpszUsageIdentifier, usages.rgpszUsageIdentifier + usages.cUsageIdentifier,
        [](std::string_view oid) {
            return oid == szOID_PKIX_KP_SERVER_AUTH || oid == szOID_ANY_ENHANCED_KEY_USAGE;
        });
}

bool hasCondition(PCCERT_CONTEXT certificate) {
    return std::any_of(std::begin(kConditions), std::end(kConditions), [&](DWORD id) {
        DWORD size = 0;
        return crypt32().property(certificate, id, nullptr, &size) != FALSE;
    });
}

template <class Wanted>
DerList certificatesIn(const wchar_t* name, Wanted wanted) {
    const Crypt32& c = crypt32();
    DerList out;
    if (!c.usable) return out;
    const HCERTSTORE store = c.openStore(0, name);
    if (!store) return out;
    PCCERT_CONTEXT certificate = nullptr;
    while ((certificate = c.next(store, certificate)) != nullptr) {
        if (wanted(certificate)) out.push_back(derOf(*certificate));
    }
    c.closeStore(store, 0);
    return out;
}

// The certificates behind the first one, as a store that the chain engine may draw from.
HCERTSTORE storeOfExtras(const DerList& chain) {
    const Crypt32& c = crypt32();
    const HCERTSTORE store = c.openMemoryStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr);
    for (size_t i = 1; store && i < chain.size(); ++i) {
        c.add(store, X509_ASN_ENCODING, chain[i].data(), static_cast<DWORD>(chain[i].size()),
              CERT_STORE_ADD_ALWAYS, nullptr);
    }
    return store;
}

// CertVerifyCertificateChainPolicy for a TLS server; 0 where it has nothing against the chain.
DWORD sslPolicyError(PCCERT_CHAIN_CONTEXT built, const std::string& host) {
    std::wstring name(host.begin(), host.end());
    SSL_EXTRA_CERT_CHAIN_POLICY_PARA server = {};
    server.cbSize = sizeof server;
    server.dwAuthType = AUTHTYPE_SERVER;
    server.pwszServerName = name.empty() ? nullptr : name.data();
    CERT_CHAIN_POLICY_PARA parameters = {};
    parameters.cbSize = sizeof parameters;
    parameters.pvExtraPolicyPara = &server;
    CERT_CHAIN_POLICY_STATUS status = {};
    status.cbSize = sizeof status;
    if (!crypt32().judgeChain(CERT_CHAIN_POLICY_SSL, built, &parameters, &status)) {
        return GetLastError();
    }
    return status.dwError;
}

PCCERT_CHAIN_CONTEXT buildChain(PCCERT_CONTEXT leaf, HCERTSTORE extras, uint32_t timeoutMs) {
    char serverAuth[] = szOID_PKIX_KP_SERVER_AUTH;
    LPSTR usages[] = {serverAuth};
    CERT_CHAIN_PARA parameters = {};
    parameters.cbSize = sizeof parameters;
    parameters.RequestedUsage.dwType = USAGE_MATCH_TYPE_AND;
    parameters.RequestedUsage.Usage = {1, usages};
    parameters.dwUrlRetrievalTimeout = timeoutMs;
    PCCERT_CHAIN_CONTEXT built = nullptr;
    return crypt32().buildChain(nullptr, leaf, nullptr, extras, &parameters, 0, nullptr, &built)
               ? built
               : nullptr;
}

// Copies the path out of a chain that the system trusts.
bool takePath(PCCERT_CHAIN_CONTEXT built, const std::string& host, DerList& path,
              std::string& reason) {
    const DWORD errors = built->TrustStatus.dwErrorStatus;
    const DWORD policyError = sslPolicyError(built, host);
    if (errors != CERT_TRUST_NO_ERROR || policyError != 0 || built->cChain == 0) {
        reason = "The system does not trust the chain (status 0x" + hexNumber(errors) +
                 ", policy 0x" + hexNumber(policyError) + ").";
        return false;
    }
    const CERT_SIMPLE_CHAIN& chain = *built->rgpChain[0];
    for (DWORD i = 0; i < chain.cElement; ++i) {
        path.push_back(derOf(*chain.rgpElement[i]->pCertContext));
    }
    return true;
}

class WindowsStores final : public SysTrustRoots {
public:
    DerList anchors() override {
        return certificatesIn(L"ROOT", [](PCCERT_CONTEXT certificate) {
            return isForServers(certificate) && !hasCondition(certificate);
        });
    }
    DerList refused() override {
        return certificatesIn(L"Disallowed", [](PCCERT_CONTEXT) { return true; });
    }
    std::vector<std::string> anchorFiles() override { return {}; }
    bool findPath(const DerList& chain, const std::string& host, uint32_t timeoutMs, DerList& path,
                  std::string& reason) override;
};

bool WindowsStores::findPath(const DerList& chain, const std::string& host, uint32_t timeoutMs,
                             DerList& path, std::string& reason) {
    const Crypt32& c = crypt32();
    path.clear();
    if (!c.usable || chain.empty()) {
        reason = "The system has no opinion on certificates.";
        return false;
    }
    const PCCERT_CONTEXT leaf =
        c.createContext(X509_ASN_ENCODING, chain[0].data(), static_cast<DWORD>(chain[0].size()));
    if (!leaf) {
        reason = "The system cannot read the certificate.";
        return false;
    }
    const HCERTSTORE extras = storeOfExtras(chain);
    const PCCERT_CHAIN_CONTEXT built = buildChain(leaf, extras, timeoutMs);
    if (!built) reason = "The system could not build a chain.";
    const bool found = built && takePath(built, host, path, reason);
    if (built) c.freeChain(built);
    if (extras) c.closeStore(extras, 0);
    c.freeContext(leaf);
    return found;
}

}  // namespace

SysTrustRoots& sysTrustRoots() {
    return Replaceable<SysTrustRoots>::get<WindowsStores>();
}

}  // namespace tv::plat
