// The name servers by iphlpapi, looked up at run time, and the place of the hosts file.
#include "platform/SysNameServers.h"

// Each of these needs the one before.
// clang-format off
#include <winsock2.h>
#include <windows.h>
#include <iphlpapi.h>
// clang-format on

#include "platform/Replaceable.h"
#include "platform/SysLibrary.h"
#include "platform/win32/WidePath.h"

namespace tv::plat {
namespace {

using GetParams = decltype(&GetNetworkParams);

// Limits on what a broken system can make of us: a reply has some hundred bytes, a list some lines.
constexpr ULONG kLargestReply = 1 << 20;
constexpr int kMaxServers = 256;

// A text of the system, which need not be terminated.
template <size_t size>
std::string textOf(const char (&field)[size]) {
    const std::string whole(field, size);
    return whole.substr(0, whole.find('\0'));
}

class WindowsNameServers final : public SysNameServers {
public:
    bool list(std::vector<std::string>& servers, std::string& domain, std::string& error) override {
        SysLibrary library;
        std::string reason;
        if (!library.open(inSystemFolder(L"\\Iphlpapi.dll"), reason)) {
            error = "Failed to load Iphlpapi.dll";
            return false;
        }
        GetParams getParams = nullptr;
        library.find("GetNetworkParams", getParams);
        if (!getParams) {
            error = "Failed to find GetNetworkParams function in Iphlpapi.dll";
            return false;
        }
        if (read(getParams, servers, domain)) return true;
        error = "GetNetworkparams failed";
        return false;
    }

    std::string settingsPath() override { return {}; }
    std::string hostsPath() override { return inSystemFolder(L"\\drivers\\etc\\hosts"); }

private:
    static bool read(GetParams getParams, std::vector<std::string>& servers, std::string& domain) {
        std::vector<FIXED_INFO> block(1);
        ULONG size = sizeof(FIXED_INFO);
        DWORD result = getParams(block.data(), &size);
        // The list may grow between two calls.
        for (int i = 0; result == ERROR_BUFFER_OVERFLOW && size <= kLargestReply && i < 4; ++i) {
            block.resize(size / sizeof(FIXED_INFO) + 1);
            size = static_cast<ULONG>(block.size() * sizeof(FIXED_INFO));
            result = getParams(block.data(), &size);
        }
        if (result != ERROR_SUCCESS) return false;
        domain = textOf(block[0].DomainName);
        const IP_ADDR_STRING* entry = &block[0].DnsServerList;
        for (int i = 0; entry && i < kMaxServers; entry = entry->Next, ++i) {
            servers.push_back(textOf(entry->IpAddress.String));
        }
        return true;
    }
};

}  // namespace

SysNameServers& sysNameServers() {
    return Replaceable<SysNameServers>::get<WindowsNameServers>();
}

}  // namespace tv::plat
