#include "platform/SysTrustRoots.h"

#define CERT_CHAIN_PARA_HAS_EXTRA_FIELDS  // the time-out of dwUrlRetrievalTimeout
#include <windows.h>
// wincrypt.h needs windows.h before it
#include <wincrypt.h>

#include <algorithm>

namespace tv::plat {
namespace {

template <class Function>
Function function(HMODULE library, const char* name) {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

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
    bool usable = false;

    Crypt32() {
        wchar_t path[MAX_PATH + 16];
        const UINT size = GetSystemDirectoryW(path, MAX_PATH);
        if (size == 0 || size >= MAX_PATH) return;
        const HMODULE library = LoadLibraryW((std::wstring(path, size) + L"\\crypt32.dll").c_str());
        if (!library) return;
        openStore = function<decltype(openStore)>(library, "CertOpenSystemStoreW");
        closeStore = function<decltype(closeStore)>(library, "CertCloseStore");
        next = function<decltype(next)>(library, "CertEnumCertificatesInStore");
        createContext = function<decltype(createContext)>(library, "CertCreateCertificateContext");
        freeContext = function<decltype(freeContext)>(library, "CertFreeCertificateContext");
        openMemoryStore = function<decltype(openMemoryStore)>(library, "CertOpenStore");
        add = function<decltype(add)>(library, "CertAddEncodedCertificateToStore");
        buildChain = function<decltype(buildChain)>(library, "CertGetCertificateChain");
        freeChain = function<decltype(freeChain)>(library, "CertFreeCertificateChain");
        usable = openStore && closeStore && next && createContext && freeContext &&
                 openMemoryStore && add && buildChain && freeChain;
    }
};

const Crypt32& crypt32() {
    static const Crypt32& library = *new Crypt32;
    return library;
}

DerList certificatesIn(const wchar_t* name) {
    const Crypt32& c = crypt32();
    DerList out;
    const HCERTSTORE store = c.openStore(0, name);
    if (!store) return out;
    PCCERT_CONTEXT certificate = nullptr;
    while ((certificate = c.next(store, certificate)) != nullptr) {
        out.emplace_back(certificate->pbCertEncoded,
                         certificate->pbCertEncoded + certificate->cbCertEncoded);
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

// Of any chain that the system built, its anchor included.
bool holdsDisallowed(const CERT_CHAIN_CONTEXT& built) {
    const DerList refused = certificatesIn(L"Disallowed");
    for (DWORD i = 0; i < built.cChain; ++i) {
        const CERT_SIMPLE_CHAIN& chain = *built.rgpChain[i];
        for (DWORD k = 0; k < chain.cElement; ++k) {
            const CERT_CONTEXT& c = *chain.rgpElement[k]->pCertContext;
            const std::vector<uint8_t> der(c.pbCertEncoded, c.pbCertEncoded + c.cbCertEncoded);
            if (std::find(refused.begin(), refused.end(), der) != refused.end()) return true;
        }
    }
    return false;
}

bool judge(PCCERT_CONTEXT leaf, HCERTSTORE extras, uint32_t timeoutMs, std::string& reason) {
    const Crypt32& c = crypt32();
    CERT_CHAIN_PARA parameters = {};
    parameters.cbSize = sizeof parameters;
    parameters.dwUrlRetrievalTimeout = timeoutMs;
    PCCERT_CHAIN_CONTEXT built = nullptr;
    if (!c.buildChain(nullptr, leaf, nullptr, extras, &parameters, 0, nullptr, &built)) {
        reason = "The system could not build a chain.";
        return false;
    }
    const DWORD errors = built->TrustStatus.dwErrorStatus;
    const bool disallowed = holdsDisallowed(*built);
    c.freeChain(built);
    if (disallowed) {
        reason = "The system disallows a certificate of the chain.";
        return false;
    }
    if (errors == CERT_TRUST_NO_ERROR) return true;
    reason = "The system does not trust the chain (status " + std::to_string(errors) + ").";
    return false;
}

}  // namespace

DerList systemTrustAnchors() {
    if (!crypt32().usable) return {};
    DerList roots = certificatesIn(L"ROOT");
    const DerList refused = certificatesIn(L"Disallowed");
    const auto isRefused = [&](const std::vector<uint8_t>& der) {
        return std::find(refused.begin(), refused.end(), der) != refused.end();
    };
    roots.erase(std::remove_if(roots.begin(), roots.end(), isRefused), roots.end());
    return roots;
}

std::vector<std::string> trustAnchorFiles() {
    return {};
}

bool systemTrustsChain(const DerList& chain, uint32_t timeoutMs, std::string& reason) {
    const Crypt32& c = crypt32();
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
    const bool trusted = judge(leaf, extras, timeoutMs, reason);
    if (extras) c.closeStore(extras, 0);
    c.freeContext(leaf);
    return trusted;
}

}  // namespace tv::plat
