// Computer name and code pages of Windows.
#include "platform/SysHost.h"

#include <windows.h>

#include "platform/Replaceable.h"
#include "platform/win32/WidePath.h"

namespace tv::plat {
namespace {

std::string readComputerName() {
    wchar_t name[MAX_COMPUTERNAME_LENGTH + 1];
    DWORD size = MAX_COMPUTERNAME_LENGTH + 1;
    if (!GetComputerNameW(name, &size)) return {};
    return narrow(std::wstring_view(name, size));
}

std::string readDnsName() {
    wchar_t name[256];  // DNS knows no longer one
    DWORD size = 256;
    if (!GetComputerNameExW(ComputerNameDnsFullyQualified, name, &size)) return {};
    return nameInDns(narrow(std::wstring_view(name, size)));
}

class WindowsHost final : public SysHost {
public:
    std::string computerName() override {
        static const std::string& name = *new std::string(readComputerName());
        return name;
    }
    std::string dnsName() override {
        static const std::string& name = *new std::string(readDnsName());
        return name;
    }
    uint32_t ansiCodePage() override { return GetACP(); }
    uint32_t oemCodePage() override { return GetOEMCP(); }
    uint32_t textFileCodePage() override { return GetACP(); }
};

}  // namespace

SysHost& sysHost() {
    return Replaceable<SysHost>::get<WindowsHost>();
}

}  // namespace tv::plat
