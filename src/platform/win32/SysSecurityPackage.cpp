// Login exchanges by the packages of Windows (SSPI), with every handle released and the password
// wiped.
#include "platform/SysSecurityPackage.h"

#define SECURITY_WIN32
#include <windows.h>
// security.h needs windows.h before it
#include <security.h>

#include "platform/Replaceable.h"
#include "platform/SysLibrary.h"
#include "platform/SysWipe.h"
#include "platform/win32/WidePath.h"

namespace tv::plat {
namespace {

// secur32, from the system folder and never unloaded.
struct Secur32 {
    decltype(&QuerySecurityPackageInfoW) queryPackage = nullptr;
    decltype(&AcquireCredentialsHandleW) acquire = nullptr;
    decltype(&InitializeSecurityContextW) initialize = nullptr;
    decltype(&CompleteAuthToken) complete = nullptr;
    decltype(&DeleteSecurityContext) deleteContext = nullptr;
    decltype(&FreeCredentialsHandle) freeCredentials = nullptr;
    decltype(&FreeContextBuffer) freeBuffer = nullptr;
    bool usable = false;

    Secur32() {
        auto& library = *new SysLibrary;
        std::string reason;
        if (!library.open(inSystemFolder(L"\\secur32.dll"), reason)) return;
        library.find("QuerySecurityPackageInfoW", queryPackage);
        library.find("AcquireCredentialsHandleW", acquire);
        library.find("InitializeSecurityContextW", initialize);
        library.find("CompleteAuthToken", complete);
        library.find("DeleteSecurityContext", deleteContext);
        library.find("FreeCredentialsHandle", freeCredentials);
        library.find("FreeContextBuffer", freeBuffer);
        usable =
            queryPackage && acquire && initialize && deleteContext && freeCredentials && freeBuffer;
    }
};

const Secur32& secur32() {
    static const Secur32& library = *new Secur32;
    return library;
}

std::string statusText(const char* step, SECURITY_STATUS status) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text = std::string(step) + ": 0x";
    for (int shift = 28; shift >= 0; shift -= 4) {
        text += kDigits[(static_cast<uint32_t>(status) >> shift) & 15];
    }
    return text;
}

// The identity in the form that the packages read; wiped on destruction.
class WideIdentity {
public:
    explicit WideIdentity(const SecurityIdentity& identity)
        : user_(widen(identity.user)),
          password_(widen(identity.password)),
          domain_(widen(identity.domain)) {
        data_.User = text(user_);
        data_.UserLength = static_cast<unsigned long>(user_.size());
        data_.Password = text(password_);
        data_.PasswordLength = static_cast<unsigned long>(password_.size());
        data_.Domain = text(domain_);
        data_.DomainLength = static_cast<unsigned long>(domain_.size());
        data_.Flags = SEC_WINNT_AUTH_IDENTITY_UNICODE;
    }
    ~WideIdentity() { wipe(password_.data(), password_.size() * sizeof(wchar_t)); }
    WideIdentity(const WideIdentity&) = delete;
    WideIdentity& operator=(const WideIdentity&) = delete;

    SEC_WINNT_AUTH_IDENTITY_W* data() { return &data_; }

private:
    static unsigned short* text(std::wstring& from) {
        return reinterpret_cast<unsigned short*>(from.data());
    }

    std::wstring user_;
    std::wstring password_;
    std::wstring domain_;
    SEC_WINNT_AUTH_IDENTITY_W data_{};
};

class PackageExchange final : public SecurityExchange {
public:
    explicit PackageExchange(const std::string& target) : target_(widen(target)) {}
    ~PackageExchange() override {
        if (haveContext_) secur32().deleteContext(&context_);
        if (haveCredentials_) secur32().freeCredentials(&credentials_);
    }

    bool open(std::wstring package, const SecurityIdentity* identity, std::string& error);
    State next(std::span<const uint8_t> in, std::vector<uint8_t>& out, std::string& error) override;

private:
    std::wstring target_;
    CredHandle credentials_{};
    CtxtHandle context_{};
    bool haveCredentials_ = false;
    bool haveContext_ = false;
    size_t maxToken_ = 0;
};

bool PackageExchange::open(std::wstring package, const SecurityIdentity* identity,
                           std::string& error) {
    PSecPkgInfoW info = nullptr;
    SECURITY_STATUS status = secur32().queryPackage(package.data(), &info);
    if (status != SEC_E_OK || !info) {
        error = statusText("QuerySecurityPackageInfo", status);
        return false;
    }
    maxToken_ = info->cbMaxToken;
    secur32().freeBuffer(info);
    WideIdentity wide(identity ? *identity : SecurityIdentity());
    TimeStamp expiry{};
    status = secur32().acquire(nullptr, package.data(), SECPKG_CRED_OUTBOUND, nullptr,
                               identity ? wide.data() : nullptr, nullptr, nullptr, &credentials_,
                               &expiry);
    if (status != SEC_E_OK) {
        error = statusText("AcquireCredentialsHandle", status);
        return false;
    }
    haveCredentials_ = true;
    return true;
}

SecurityExchange::State PackageExchange::next(std::span<const uint8_t> in,
                                              std::vector<uint8_t>& out, std::string& error) {
    std::vector<uint8_t> challenge(in.begin(), in.end());
    SecBuffer inBuffer{static_cast<unsigned long>(challenge.size()), SECBUFFER_TOKEN,
                       challenge.data()};
    SecBufferDesc inList{SECBUFFER_VERSION, 1, &inBuffer};
    out.assign(maxToken_, 0);
    SecBuffer outBuffer{static_cast<unsigned long>(out.size()), SECBUFFER_TOKEN, out.data()};
    SecBufferDesc outList{SECBUFFER_VERSION, 1, &outBuffer};
    unsigned long attributes = 0;
    TimeStamp expiry{};
    SECURITY_STATUS status =
        secur32().initialize(&credentials_, haveContext_ ? &context_ : nullptr, target_.data(), 0,
                             0, SECURITY_NATIVE_DREP, haveContext_ ? &inList : nullptr, 0,
                             &context_, &outList, &attributes, &expiry);
    if (status >= 0) haveContext_ = true;
    if (status == SEC_I_COMPLETE_NEEDED || status == SEC_I_COMPLETE_AND_CONTINUE) {
        const bool goesOn = status == SEC_I_COMPLETE_AND_CONTINUE;
        status = secur32().complete ? secur32().complete(&context_, &outList)
                                    : SEC_E_UNSUPPORTED_FUNCTION;
        if (status == SEC_E_OK && goesOn) status = SEC_I_CONTINUE_NEEDED;
    }
    if (status != SEC_E_OK && status != SEC_I_CONTINUE_NEEDED) {
        out.clear();
        error = statusText("InitializeSecurityContext", status);
        return State::Failed;
    }
    out.resize(outBuffer.cbBuffer <= out.size() ? outBuffer.cbBuffer : out.size());
    return status == SEC_E_OK ? State::Done : State::Continue;
}

class WindowsSecurity final : public SysSecurity {
public:
    std::unique_ptr<SecurityExchange> begin(std::string_view package, const std::string& target,
                                            const SecurityIdentity* identity,
                                            std::string& error) override {
        if (!secur32().usable) {
            error = "secur32 cannot be used";
            return nullptr;
        }
        auto exchange = std::make_unique<PackageExchange>(target);
        if (!exchange->open(widen(package), identity, error)) return nullptr;
        return exchange;
    }
};

}  // namespace

SysSecurity& sysSecurity() {
    return Replaceable<SysSecurity>::get<WindowsSecurity>();
}

}  // namespace tv::plat
